#pragma once

#include "backends/posix/ModuleLoader.hpp"
#include "ports/MediaWriting.hpp"

#include <memory>
#include <mutex>

namespace tessarin {

class FileSystem;

// Serves media writing by the module "media", which is opened with the first writer. Any thread.
class ModuleMediaFileWriterFactory final : public MediaFileWriterFactory {
 public:
  // Both outlive the factory and its writers.
  ModuleMediaFileWriterFactory(ModuleLoader& loader, FileSystem& files) : loader_(loader), files_(files) {}

  // Throws MediaUnavailable when the module cannot be had; the loader has told why.
  std::unique_ptr<MediaFileWriter> makeWriter(const MediaFileOptions& options) override;

 private:
  MediaFileWriterFactory& factory();

  ModuleLoader& loader_;
  FileSystem& files_;
  std::mutex mutex_;
  std::unique_ptr<MediaFileWriterFactory> factory_; // made under the mutex, then unchanged
};

} // namespace tessarin
