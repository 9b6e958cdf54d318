#include "backends/posix/ModuleAudioReencoder.hpp"

#include "ports/Modules.hpp"

namespace tessarin {

void ModuleAudioReencoder::reencode(const std::vector<AudioPiece>& pieces, const std::string& outputPath) {
  reencoder().reencode(pieces, outputPath);
}

AudioReencoder& ModuleAudioReencoder::reencoder() {
  const std::lock_guard lock(mutex_);
  if (!reencoder_) {
    try {
      const ModuleHeader& header = loader_.open("media");
      reencoder_ = reinterpret_cast<const MediaModule&>(header).makeAudioReencoder(files_);
    } catch (const Failure<ModuleFailure>&) {
      throw MediaUnavailable();
    }
  }
  return *reencoder_;
}

} // namespace tessarin
