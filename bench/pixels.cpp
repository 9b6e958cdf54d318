// tessarin-bench-pixels ROUNDS
//
// Times what frames of 1920 by 1080 pixels are composed of, on one core: as the program does it, with the
// kernels that any processor runs, and a copy of the frame by memcpy, in turns. Prints a line each with the
// medians in microseconds of the processor:
//
//   NAME OURS PLAIN COPY

#include "pixels/AffineResampler.hpp"
#include "pixels/Compose.hpp"
#include "pixels/Fill.hpp"
#include "pixels/GaussianBlur.hpp"
#include "pixels/Kernels.hpp"
#include "pixels/Mask.hpp"
#include "pixels/Mosaic.hpp"
#include "pixels/Shadow.hpp"

#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

namespace {

using namespace tessarin;
using namespace tessarin::pixels;

constexpr std::int32_t frameWidth = 1920;
constexpr std::int32_t frameHeight = 1080;

class Frame {
 public:
  Frame(std::int32_t width, std::int32_t height, PixelFormat format)
      : width_(width), height_(height), format_(format),
        bytes_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4) {
    std::minstd_rand random(7);
    std::generate(bytes_.begin(), bytes_.end(), [&] { return static_cast<std::uint8_t>(random() >> 8); });
    // Some is seen through, most is not, as in annotations.
    for (std::size_t i = 3; i < bytes_.size(); i += 4)
      bytes_[i] =
          i / 4 % 16 == 0 ? std::max({bytes_[i - 1], bytes_[i - 2], bytes_[i - 3]}) : std::uint8_t{255};
  }
  Canvas canvas() { return {bytes_.data(), width_, height_, std::ptrdiff_t{width_} * 4, format_}; }
  PictureView view() { return canvas().view(); }
  std::vector<std::uint8_t>& bytes() { return bytes_; }

 private:
  std::int32_t width_, height_;
  PixelFormat format_;
  std::vector<std::uint8_t> bytes_;
};

// Of this thread alone, so that what else the machine does counts little.
double processorMicroseconds() {
  timespec now{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

double microseconds(const std::function<void()>& work) {
  const double start = processorMicroseconds();
  work();
  return processorMicroseconds() - start;
}

double medianOf(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

class Bench {
 public:
  explicit Bench(int rounds) : rounds_(rounds) {}

  // One round more than is counted, which brings the memory in.
  void time(const char* name, const std::function<void()>& work) {
    std::vector<double> ours, plain, copies;
    const auto copy = [&] {
      return microseconds(
          [&] { std::memcpy(to_.bytes().data(), from_.bytes().data(), from_.bytes().size()); });
    };
    for (int round = 0; round <= rounds_; ++round) {
      // Each begins with the same in the caches.
      const double first = copy();
      chooseKernels(availableKernels().back());
      const double fast = microseconds(work);
      const double second = copy();
      chooseKernels(availableKernels().front());
      const double slow = microseconds(work);
      if (round == 0)
        continue;
      copies.push_back(first);
      copies.push_back(second);
      ours.push_back(fast);
      plain.push_back(slow);
    }
    std::printf("%s %.0f %.0f %.0f\n", name, medianOf(ours), medianOf(plain), medianOf(copies));
  }

 private:
  int rounds_;
  Frame from_{frameWidth, frameHeight, PixelFormat::bgrx8};
  Frame to_{frameWidth, frameHeight, PixelFormat::bgrx8};
};

struct Pictures {
  Frame screen{frameWidth, frameHeight, PixelFormat::bgrx8};
  Frame large{2 * frameWidth, 2 * frameHeight, PixelFormat::bgrx8};
  Frame upright{frameHeight, frameWidth, PixelFormat::bgrx8};
  Frame layer{frameWidth, frameHeight, PixelFormat::bgra8Premultiplied};
  Frame target{frameWidth, frameHeight, PixelFormat::bgrx8};
};

constexpr PixelArea whole{0, 0, frameWidth, frameHeight};

void timePlacing(Bench& bench, Pictures& pictures) {
  AffineResampler resampler;
  const auto draw = [&](const char* name, Frame& source, const AffineTransform& placement) {
    bench.time(name,
               [&] { resampler.draw(source.view(), placement, Edges::clamped, pictures.target.canvas()); });
  };
  draw("move", pictures.screen, {1, 0, 0, 1, 3, 5});
  draw("mirror", pictures.screen, {-1, 0, 0, 1, frameWidth, 0});
  draw("turn", pictures.upright, {0, 1, -1, 0, frameWidth, 0});
  draw("zoom", pictures.screen, {1.8, 0, 0, 1.8, -700.3, -300.7});
  draw("zoom-slightly", pictures.screen, {1.01, 0, 0, 1.01, -9.6, -5.4});
  draw("shrink", pictures.large, {0.5, 0, 0, 0.5, 0.2, 0.3});
  draw("shrink-to-a-quarter", pictures.large, {0.25, 0, 0, 0.25, 480.2, 270.3});
  draw("rotate", pictures.screen, {0.98, 0.17, -0.17, 0.98, 90, -100});
}

void timeHiding(Bench& bench, Pictures& pictures) {
  GaussianBlur blur;
  const auto time = [&](const char* name, double deviation, const PixelArea& area) {
    bench.time(name, [&, deviation, area] {
      blur.blur(pictures.screen.view(), area, deviation, partOf(pictures.target.canvas(), area));
    });
  };
  time("blur-1", 1, whole);
  time("blur-3.9", 3.9, whole);
  time("blur-4", 4, whole);
  time("blur-27", 27, whole);
  time("blur-100", 100, whole);
  time("blur-12-of-400x200", 12, {700, 400, 1100, 600});
  Mosaic mosaic;
  bench.time("mosaic-16", [&] {
    mosaic.draw(pictures.screen.view(), whole, {16, frameWidth / 2.0, frameHeight / 2.0},
                pictures.target.canvas());
  });
}

void timeLayers(Bench& bench, Pictures& pictures) {
  const Canvas target = pictures.target.canvas();
  const RoundedRect shape{100.3, 50.6, 1820.3, 1030.6, 40};
  const Mask mask(frameWidth, frameHeight, shape);
  const Shadow shadow(frameWidth, frameHeight, {shape, 0, 13, 13, {0, 0, 0, 0.45}});
  bench.time("fill", [&] { fillArea(target, whole, {0.2, 0.4, 0.6, 1}); });
  bench.time("gradient", [&] {
    fillGradient(target, {0, 0, 1920, 1080, {0, 0, 0.2, 1}, {0.3, 0.1, 0.2, 1}});
  });
  bench.time("lay-over", [&] { blendOver(pictures.layer.view(), target, 0, 0); });
  bench.time("lay-over-masked", [&] { blendOver(pictures.screen.view(), target, 0, 0, {&mask, 1}); });
  bench.time("lay-over-faintly", [&] { blendOver(pictures.layer.view(), target, 0, 0, {&mask, 0.6}); });
  bench.time("lay-shadow", [&] { shadow.blendOnto(target); });
  bench.time("make-mask", [&] { const Mask made(frameWidth, frameHeight, shape); });
  bench.time("make-shadow", [&] {
    const Shadow made(frameWidth, frameHeight, {shape, 0, 13, 13, {0, 0, 0, 0.45}});
  });
}

// A zoomed recording with an annotation on a canvas of its own blurred picture.
void timeFrame(Bench& bench, Pictures& pictures) {
  AffineResampler resampler;
  GaussianBlur blur;
  Frame content{frameWidth, frameHeight, PixelFormat::bgrx8};
  const RectDTO rect{100.3, 50.6, 1720, 967.5};
  const PixelArea touched = touchedPixels(rect, frameWidth, frameHeight);
  Frame placed{touched.width(), touched.height(), PixelFormat::bgrx8};
  const RoundedRect shape{rect.x, rect.y, rect.x + rect.width, rect.y + rect.height, 40};
  const Mask mask(touched.width(), touched.height(),
                  RoundedRect{shape.left - touched.left, shape.top - touched.top, shape.right - touched.left,
                              shape.bottom - touched.top, shape.radius});
  const Shadow shadow(frameWidth, frameHeight, {shape, 0, 13, 13, {0, 0, 0, 0.45}});
  const Canvas target = pictures.target.canvas();
  bench.time("frame", [&] {
    resampler.draw(pictures.screen.view(), {1.8, 0, 0, 1.8, -700.3, -300.7}, Edges::clamped,
                   content.canvas());
    blur.blur(content.view(), {700, 400, 1100, 600}, 12, partOf(content.canvas(), {700, 400, 1100, 600}));
    blendOver(pictures.layer.view(), content.canvas(), 0, 0);
    blur.blur(content.view(), whole, 27, target);
    shadow.blendOnto(target);
    resampler.draw(content.view(),
                   coveringPlacement(frameWidth, frameHeight,
                                     {rect.x - touched.left, rect.y - touched.top, rect.width, rect.height}),
                   Edges::clamped, placed.canvas());
    blendOver(placed.view(), target, touched.left, touched.top, {&mask, 1});
  });
}

} // namespace

int main(int count, char** arguments) {
  if (count != 2) {
    std::fputs("usage: tessarin-bench-pixels ROUNDS\n", stderr);
    return 2;
  }
  Bench bench(std::atoi(arguments[1]));
  Pictures pictures;
  timePlacing(bench, pictures);
  timeHiding(bench, pictures);
  timeLayers(bench, pictures);
  timeFrame(bench, pictures);
}
