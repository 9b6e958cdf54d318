#pragma once

#include "backends/pipewire/CameraPictures.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

namespace tessarin::pipewire {

// Opens the JPEG pictures that a camera sends, one after another. One thread.
class JpegReader {
 public:
  JpegReader();
  ~JpegReader();
  JpegReader(const JpegReader&) = delete;
  JpegReader& operator=(const JpegReader&) = delete;

  // A bgrx8 picture of its own memory; nothing when the bytes are no whole, undamaged picture with sides of
  // at most largestCameraSide. Bytes behind the picture are of no account.
  std::optional<Picture> read(std::span<const std::uint8_t> bytes, PicturePool& pool);

 private:
  struct Decoder;
  std::unique_ptr<Decoder> decoder_;
};

} // namespace tessarin::pipewire
