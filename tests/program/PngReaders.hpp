#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Pictures in files as programs of others read them.
namespace tessarin {

struct ReadPicture {
  std::vector<std::uint8_t> rgba; // straight alpha, top row first

  // 0xRRGGBBAA
  std::uint32_t at(std::size_t index) const {
    const std::uint8_t* pixel = rgba.data() + 4 * index;
    return static_cast<std::uint32_t>(pixel[0]) << 24 | static_cast<std::uint32_t>(pixel[1]) << 16 |
           static_cast<std::uint32_t>(pixel[2]) << 8 | pixel[3];
  }
  std::size_t pixelCount() const { return rgba.size() / 4; }
};

// By the reference library, ImageMagick and FFmpeg; fails the test when one cannot read the file or they
// do not agree, else yields what they read.
ReadPicture readByAll(const std::string& path);

} // namespace tessarin
