#include "modules/editing/Assets.hpp"
#include "modules/editing/Exporter.hpp"
#include "ports/Modules.hpp"

namespace tessarin::editing {

namespace {

std::unique_ptr<MediaAssets> makeMediaAssets(FileSystem& files) {
  return std::make_unique<Assets>(files);
}

std::unique_ptr<MovieExporter> makeMovieExporter(FileSystem& files) {
  return std::make_unique<Exporter>(files);
}

} // namespace

} // namespace tessarin::editing

// The one symbol of the module.
extern "C" __attribute__((visibility("default"))) const tessarin::ModuleHeader* tessarin_module() {
  static const tessarin::EditingModule module{
      {tessarin::moduleBuildId()}, tessarin::editing::makeMediaAssets, tessarin::editing::makeMovieExporter};
  return &module.header;
}
