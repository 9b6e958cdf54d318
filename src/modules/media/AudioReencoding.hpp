#pragma once

#include "ports/MediaWriting.hpp"

namespace tessarin {
class FileSystem;
}

namespace tessarin::media {

// Decodes and codes anew by the codec library, through our own container. The file appears whole under its
// name or not at all. No state but the file system, which outlives it; any thread.
class LibraryAudioReencoder final : public AudioReencoder {
 public:
  explicit LibraryAudioReencoder(FileSystem& files) : files_(files) {}
  void reencode(const std::vector<AudioPiece>& pieces, const std::string& outputPath) override;

 private:
  FileSystem& files_;
};

} // namespace tessarin::media
