#include "backends/posix/ModuleMovieEditing.hpp"

#include "ports/Modules.hpp"

#include <utility>

namespace tessarin {

namespace {

const EditingModule& openedModule(ModuleLoader& loader) {
  try {
    return reinterpret_cast<const EditingModule&>(loader.open("editing"));
  } catch (const Failure<ModuleFailure>&) {
    throw MovieEditingFailure(MovieEditingError::unavailable);
  }
}

} // namespace

MediaAsset ModuleMediaAssets::asset(const std::string& path) {
  return assets().asset(path);
}

Picture ModuleMediaAssets::picture(const std::string& path, MediaTime time) {
  return assets().picture(path, time);
}

void ModuleMediaAssets::decodeSound(const std::string& path, std::size_t audioTrackIndex,
                                    const std::function<void(const DecodedSound&)>& handler) {
  assets().decodeSound(path, audioTrackIndex, handler);
}

MediaAssets& ModuleMediaAssets::assets() {
  const std::lock_guard lock(mutex_);
  if (!assets_)
    assets_ = openedModule(loader_).makeMediaAssets(files_);
  return *assets_;
}

void ModuleMovieExporter::run(const MovieExport& movie, const std::function<void(int permille)>& progress,
                              std::stop_token stop) {
  exporter().run(movie, progress, std::move(stop));
}

MovieExporter& ModuleMovieExporter::exporter() {
  const std::lock_guard lock(mutex_);
  if (!exporter_)
    exporter_ = openedModule(loader_).makeMovieExporter(files_);
  return *exporter_;
}

} // namespace tessarin
