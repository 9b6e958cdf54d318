#pragma once

#include "backends/posix/ModuleLoader.hpp"
#include "ports/MediaWriting.hpp"
#include "ports/Modules.hpp"

#include <memory>
#include <mutex>
#include <utility>

namespace tessarin {

class FileSystem;

// Serves media writing by the module "media", which is opened with the first writer. Any thread.
class ModuleMediaFileWriterFactory final : public MediaFileWriterFactory {
 public:
  // Loader, files and what the probe refers to outlive the factory and its writers. Without a probe no
  // hardware encoder is used.
  ModuleMediaFileWriterFactory(ModuleLoader& loader, FileSystem& files, HardwareEncoderProbe probe = nullptr)
      : loader_(loader), files_(files), probe_(std::move(probe)) {}

  // Throws MediaUnavailable when the module cannot be had; the loader has told why.
  std::unique_ptr<MediaFileWriter> makeWriter(const MediaFileOptions& options) override;

 private:
  MediaFileWriterFactory& factory();

  ModuleLoader& loader_;
  FileSystem& files_;
  const HardwareEncoderProbe probe_;
  std::mutex mutex_;
  std::unique_ptr<MediaFileWriterFactory> factory_; // made under the mutex, then unchanged
};

} // namespace tessarin
