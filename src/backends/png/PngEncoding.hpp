#pragma once

#include "model/Picture.hpp"

#include <cstddef>
#include <memory>
#include <span>

namespace tessarin::png {

struct EncodedPicture {
  std::unique_ptr<std::byte[]> buffer;
  std::size_t size = 0;

  std::span<const std::byte> bytes() const { return {buffer.get(), size}; }
};

// A whole PNG file of the picture, which is at least one pixel in both directions: 8 bits a sample, RGB for
// an opaque picture, RGBA with straight alpha for others, tagged sRGB. Any thread. Throws std::bad_alloc,
// also for a picture whose data would not fit into one chunk of 2 GiB.
EncodedPicture encode(const PictureView& picture);

} // namespace tessarin::png
