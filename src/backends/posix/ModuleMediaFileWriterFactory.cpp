#include "backends/posix/ModuleMediaFileWriterFactory.hpp"

namespace tessarin {

std::unique_ptr<MediaFileWriter> ModuleMediaFileWriterFactory::makeWriter(const MediaFileOptions& options) {
  return factory().makeWriter(options);
}

MediaFileWriterFactory& ModuleMediaFileWriterFactory::factory() {
  const std::lock_guard lock(mutex_);
  if (!factory_) {
    try {
      const ModuleHeader& header = loader_.open("media");
      factory_ = reinterpret_cast<const MediaModule&>(header).makeFileWriterFactory(files_, probe_);
    } catch (const Failure<ModuleFailure>&) {
      throw MediaUnavailable();
    }
  }
  return *factory_;
}

} // namespace tessarin
