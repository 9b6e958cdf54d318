#pragma once

#include "model/Picture.hpp"

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

namespace tessarin::png {

// A file in pieces, which follow each other in it.
struct EncodedPicture {
  std::unique_ptr<std::byte[]> buffer;
  std::vector<std::span<const std::byte>> parts; // of the buffer, in order
};

// As many threads as the process may use at once.
std::size_t encodingThreads();

// A whole PNG file of the picture, which is at least one pixel in both directions: 8 bits a sample, RGB for
// an opaque picture, RGBA with straight alpha for others, tagged sRGB. Large pictures are shared out among
// at most so many threads, the caller's own among them; their number changes no byte. Any thread. Throws
// std::bad_alloc, also for a picture that might take more than 2 GiB.
EncodedPicture encode(const PictureView& picture, std::size_t threads = encodingThreads());

} // namespace tessarin::png
