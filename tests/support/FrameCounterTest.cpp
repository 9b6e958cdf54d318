#include "support/FrameCounter.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace tessarin {
namespace {

class Painted {
 public:
  Painted(int width, int height)
      : width_(width), height_(height), bytes_(static_cast<std::size_t>(width) * height * 4, 0x60) {}

  void draw(std::uint32_t number, int left, int top, std::uint8_t white = 255, std::uint8_t black = 0) {
    for (int y = 0; y < frameCounter::height; ++y) {
      for (int x = 0; x < frameCounter::width; ++x) {
        const int block = y / frameCounter::blockSize * frameCounter::columns + x / frameCounter::blockSize;
        const auto value = frameCounter::isWhite(number, block) ? white : black;
        std::fill_n(bytes_.begin() + ((top + y) * width_ + left + x) * 4, 4, value);
      }
    }
  }
  PictureView view() const { return {bytes_.data(), width_, height_, width_ * 4, PixelFormat::bgrx8}; }

 private:
  int width_;
  int height_;
  std::vector<std::uint8_t> bytes_;
};

TEST(FrameCounter, ReadsBackWhatIsDrawn) {
  for (const std::uint32_t number : {0U, 1U, 59U, 0x12345678U, 0xFFFFFFFFU}) {
    Painted picture(200, 100);
    picture.draw(number, 7, 11);
    EXPECT_EQ(frameCounter::read(picture.view(), 7, 11), number);
  }
}

TEST(FrameCounter, ReadsBackDullPaint) {
  Painted picture(160, 64);
  picture.draw(4711, 0, 0, 200, 50);
  EXPECT_EQ(frameCounter::read(picture.view()), 4711U);
}

TEST(FrameCounter, RefusesWhatIsNoCounter) {
  Painted grey(160, 64);
  EXPECT_EQ(frameCounter::read(grey.view()), std::nullopt);
  Painted black(160, 64);
  black.draw(0, 0, 0, 0, 0);
  EXPECT_EQ(frameCounter::read(black.view()), std::nullopt) << "the checksum of zeros is not zero";
  Painted shifted(400, 100);
  shifted.draw(4711, 16, 0);
  EXPECT_EQ(frameCounter::read(shifted.view()), std::nullopt);
  EXPECT_EQ(frameCounter::read(shifted.view(), 241, 0), std::nullopt) << "beyond the edge";
}

} // namespace
} // namespace tessarin
