#include "modules/media/AudioReencoding.hpp"
#include "modules/media/MediaWriter.hpp"
#include "ports/Modules.hpp"

namespace tessarin::media {

namespace {

std::unique_ptr<MediaFileWriterFactory> makeFileWriterFactory(FileSystem& files, HardwareEncoderProbe probe) {
  return std::make_unique<MediaWriterFactory>(files, std::move(probe));
}

std::unique_ptr<AudioReencoder> makeAudioReencoder(FileSystem& files) {
  return std::make_unique<LibraryAudioReencoder>(files);
}

} // namespace

} // namespace tessarin::media

// The one symbol of the module.
extern "C" __attribute__((visibility("default"))) const tessarin::ModuleHeader* tessarin_module() {
  static const tessarin::MediaModule module{{tessarin::moduleBuildId()},
                                            tessarin::media::makeFileWriterFactory,
                                            tessarin::media::makeAudioReencoder};
  return &module.header;
}
