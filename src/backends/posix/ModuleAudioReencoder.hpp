#pragma once

#include "backends/posix/ModuleLoader.hpp"
#include "ports/MediaWriting.hpp"

#include <memory>
#include <mutex>

namespace tessarin {

class FileSystem;

// Serves the coding of sound anew by the module "media", which is opened when it is first needed. Any thread.
class ModuleAudioReencoder final : public AudioReencoder {
 public:
  // Both outlive the reencoder.
  ModuleAudioReencoder(ModuleLoader& loader, FileSystem& files) : loader_(loader), files_(files) {}

  // Throws MediaUnavailable when the module cannot be had; the loader has told why.
  void reencode(const std::vector<AudioPiece>& pieces, const std::string& outputPath) override;

 private:
  AudioReencoder& reencoder();

  ModuleLoader& loader_;
  FileSystem& files_;
  std::mutex mutex_;
  std::unique_ptr<AudioReencoder> reencoder_; // made under the mutex, then unchanged
};

} // namespace tessarin
