// Everything that reads or writes pictures, on pictures that end and begin where memory does: what goes
// beyond them ends the test by a signal.

#include "pixels/AffineResampler.hpp"
#include "pixels/Compose.hpp"
#include "pixels/Fill.hpp"
#include "pixels/GaussianBlur.hpp"
#include "pixels/Kernels.hpp"
#include "pixels/Mask.hpp"
#include "pixels/Mosaic.hpp"
#include "pixels/Shadow.hpp"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

namespace tessarin::pixels {
namespace {

// A picture whose first byte is the first one, or whose last byte is the last one, that may be touched.
class GuardedPicture {
 public:
  GuardedPicture(std::int32_t width, std::int32_t height, std::ptrdiff_t slack, bool isAtEnd,
                 PixelFormat format) {
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    const std::ptrdiff_t stride = std::ptrdiff_t{width} * 4 + slack;
    const auto bytes = static_cast<std::size_t>(stride * (height - 1) + std::ptrdiff_t{width} * 4);
    const std::size_t pages = (bytes + page - 1) / page * page;
    length_ = pages + 2 * page;
    memory_ =
        static_cast<std::uint8_t*>(::mmap(nullptr, length_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (memory_ == MAP_FAILED || ::mprotect(memory_ + page, pages, PROT_READ | PROT_WRITE) != 0)
      std::abort();
    std::uint8_t* const first = memory_ + page + (isAtEnd ? pages - bytes : 0);
    std::memset(first, 0x5A, bytes);
    canvas_ = {first, width, height, stride, format};
  }
  ~GuardedPicture() { ::munmap(memory_, length_); }
  GuardedPicture(const GuardedPicture&) = delete;
  GuardedPicture& operator=(const GuardedPicture&) = delete;

  const Canvas& canvas() const { return canvas_; }
  PictureView view() const { return canvas_.view(); }

 private:
  std::uint8_t* memory_;
  std::size_t length_;
  Canvas canvas_;
};

class Dice {
 public:
  explicit Dice(unsigned seed) : random_(seed) {}
  int upTo(int most) { return std::uniform_int_distribution(0, most)(random_); }
  double between(double least, double most) { return std::uniform_real_distribution(least, most)(random_); }
  bool yes() { return upTo(1) == 1; }
  PixelArea areaWithin(std::int32_t width, std::int32_t height) {
    const int left = upTo(width - 1);
    const int top = upTo(height - 1);
    return {left, top, left + 1 + upTo(width - left - 1), top + 1 + upTo(height - top - 1)};
  }

 private:
  std::mt19937 random_;
};

AffineTransform anyPlacement(Dice& dice) {
  const double scale = std::exp2(dice.between(-5, 5)) * (dice.yes() ? 1 : -1);
  const double other = dice.yes() ? scale : std::exp2(dice.between(-5, 5));
  const double x = dice.yes() ? dice.between(-60, 60) : dice.upTo(20) - 10;
  const double y = dice.yes() ? dice.between(-60, 60) : dice.upTo(20) - 10;
  switch (dice.upTo(4)) {
  case 0:
    return {scale, 0, 0, other, x, y};
  case 1:
    return {0, scale, other, 0, x, y};
  case 2:
    return {dice.yes() ? 1.0 : -1.0, 0, 0, dice.yes() ? 1.0 : -1.0, x, y};
  case 3:
    return {0, dice.yes() ? 1.0 : -1.0, dice.yes() ? 1.0 : -1.0, 0, x, y};
  default:
    return {scale, dice.between(-1, 1), dice.between(-1, 1), other, x, y};
  }
}

void drawEverything(Dice& dice, const GuardedPicture& source, const GuardedPicture& target) {
  const Canvas& canvas = target.canvas();
  AffineResampler().draw(source.view(), anyPlacement(dice), dice.yes() ? Edges::clamped : Edges::transparent,
                         canvas);
  const PixelArea area = dice.areaWithin(source.view().width, source.view().height);
  GuardedPicture part(area.width(), area.height(), 4, dice.yes(), PixelFormat::bgrx8);
  GaussianBlur().blur(source.view(), area, std::exp2(dice.between(-3, 7)), part.canvas());
  Mosaic().draw(source.view(), area, {dice.between(0, 40), dice.between(-50, 90), dice.between(-50, 90)},
                part.canvas());
  const int x = dice.upTo(100) - 50;
  const int y = dice.upTo(100) - 50;
  const Mask mask(
      source.view().width, source.view().height,
      RoundedRect{dice.between(-9, 9), dice.between(-9, 9), dice.between(10, 50), dice.between(10, 50), 0.5});
  blendOver(source.view(), canvas, x, y, {dice.yes() ? &mask : nullptr, dice.between(0, 1)});
  blendColor(canvas, x, y, mask, {1, 0.5, 0, 0.5});
  blendColor(canvas, {x, y, x + 40, y + 40}, {1, 0.5, 0, 0.5});
  fillArea(canvas, {x, y, x + 40, y + 40}, {1, 0.5, 0, 0.5});
  fillGradient(canvas, {dice.between(-9, 9), 0, dice.between(10, 60), 30, {0, 0, 0, 1}, {1, 1, 1, 1}});
  Shadow(canvas.width, canvas.height,
         {{x + 0.3, y + 0.1, x + 30.0, y + 20.0, 3}, 0, 4, dice.between(0.1, 9), {}})
      .blendOnto(canvas);
}

TEST(PictureBounds, HoldForEveryVersionOfTheKernels) {
  for (const Kernels& kernels : availableKernels()) {
    chooseKernels(kernels);
    Dice dice(171);
    for (int i = 0; i < 600; ++i) {
      const auto format = [&] { return dice.yes() ? PixelFormat::bgrx8 : PixelFormat::bgra8Premultiplied; };
      const GuardedPicture source(1 + dice.upTo(70), 1 + dice.upTo(50), 4 * dice.upTo(3), dice.yes(),
                                  format());
      const GuardedPicture target(1 + dice.upTo(70), 1 + dice.upTo(50), 4 * dice.upTo(3), dice.yes(),
                                  format());
      drawEverything(dice, source, target);
    }
  }
  chooseKernels(availableKernels().back());
}

// Whatever is composed is the same on every processor.
TEST(PictureBounds, HoldTheSamePixelsForEveryVersion) {
  for (unsigned seed = 0; seed < 60; ++seed) {
    std::vector<std::uint8_t> expected;
    for (const Kernels& kernels : availableKernels()) {
      chooseKernels(kernels);
      Dice dice(seed);
      const GuardedPicture source(1 + dice.upTo(70), 1 + dice.upTo(50), 0, true, PixelFormat::bgrx8);
      const GuardedPicture target(1 + dice.upTo(70), 1 + dice.upTo(50), 0, true,
                                  PixelFormat::bgra8Premultiplied);
      const PictureView view = source.view();
      for (std::ptrdiff_t i = 0; i < view.stride * view.height; ++i)
        source.canvas().data[i] = static_cast<std::uint8_t>(dice.upTo(255));
      AffineResampler().draw(view, anyPlacement(dice), dice.yes() ? Edges::clamped : Edges::transparent,
                             target.canvas());
      GaussianBlur().blur(target.view(), areaOf(target.view()), std::exp2(dice.between(-3, 5)),
                          target.canvas());
      blendOver(view, target.canvas(), 3, -2, {nullptr, 0.7});
      const std::vector<std::uint8_t> made(target.view().data,
                                           target.view().data + target.view().stride * target.view().height);
      if (expected.empty())
        expected = made;
      ASSERT_EQ(made, expected) << kernels.name << ", " << seed;
    }
  }
  chooseKernels(availableKernels().back());
}

} // namespace
} // namespace tessarin::pixels
