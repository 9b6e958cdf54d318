#pragma once

#include "ports/MovieEditing.hpp"

namespace tessarin {
class FileSystem;
}

namespace tessarin::editing {

// Looks into files by their index (the container room) and decodes by the codec library. No state but the
// file system, which outlives it; any thread.
class Assets final : public MediaAssets {
 public:
  explicit Assets(FileSystem& files) : files_(files) {}

  MediaAsset asset(const std::string& path) override;
  Picture picture(const std::string& path, MediaTime time) override;
  void decodeSound(const std::string& path, std::size_t audioTrackIndex,
                   const std::function<void(const DecodedSound&)>& handler) override;

 private:
  FileSystem& files_;
};

} // namespace tessarin::editing
