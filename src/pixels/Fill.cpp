#include "pixels/Fill.hpp"

#include "pixels/Kernels.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>

namespace tessarin::pixels {

namespace {

constexpr std::size_t pixelBytes = 4;
using Channels = std::array<double, pixelBytes>; // in memory order, 0 to 255

Channels channelsOf(const Color& color) {
  const auto part = [](double value) { return std::clamp(value, 0.0, 1.0); };
  const double alpha = part(color.alpha) * 255;
  return {part(color.blue) * alpha, part(color.green) * alpha, part(color.red) * alpha, alpha};
}

using Pixel = std::array<std::uint8_t, pixelBytes>;

Pixel pixelOf(const Color& color) {
  const Channels channels = channelsOf(color);
  Pixel pixel{};
  std::transform(channels.begin(), channels.end(), pixel.begin(),
                 [](double value) { return static_cast<std::uint8_t>(std::lround(value)); });
  return pixel;
}

// Pixels of one colour, and rows handed over in runs of as many.
class ColorRun {
 public:
  static constexpr std::int32_t length = 256;

  explicit ColorRun(const Pixel& pixel) {
    for (std::size_t x = 0; x < length; ++x)
      std::memcpy(bytes_.data() + x * pixelBytes, pixel.data(), pixelBytes);
  }
  const std::uint8_t* data() const { return bytes_.data(); }

  // The first pixel and the number of pixels of each.
  template<class Part> static void forEach(std::int32_t pixels, const Part& part) {
    for (std::int32_t x = 0; x < pixels; x += length)
      part(x, static_cast<std::size_t>(std::min(length, pixels - x)));
  }

 private:
  std::array<std::uint8_t, length * pixelBytes> bytes_;
};

// The order in which the pixels of a square become brighter (Bayer 1973), as thresholds: each is the middle
// of its 64th part, less than 1.
std::array<float, 8> thresholdsOf(std::int32_t y) {
  std::array<float, 8> thresholds{};
  for (unsigned x = 0; x < 8; ++x) {
    const unsigned line = static_cast<unsigned>(y) % 8;
    unsigned order = 0;
    for (unsigned bit = 0; bit < 3; ++bit)
      order = order * 4 + (((x ^ line) >> bit & 1U) * 2 + (line >> bit & 1U));
    thresholds[x] = (static_cast<float>(order) + 0.5F) / 64;
  }
  return thresholds;
}

std::uint8_t* at(const Canvas& canvas, std::int32_t x, std::int32_t y) {
  return canvas.row(y) + static_cast<std::ptrdiff_t>(x) * 4;
}

} // namespace

void fillArea(const Canvas& canvas, const PixelArea& area, const Color& color) {
  const PixelArea inside = area.intersection(areaOf(canvas));
  if (inside.isEmpty())
    return;
  const ColorRun run(pixelOf(color));
  for (std::int32_t y = inside.top; y < inside.bottom; ++y)
    ColorRun::forEach(inside.width(), [&](std::int32_t x, std::size_t pixels) {
      std::memcpy(at(canvas, inside.left + x, y), run.data(), pixels * pixelBytes);
    });
}

void blendColor(const Canvas& canvas, const PixelArea& area, const Color& color) {
  const PixelArea inside = area.intersection(areaOf(canvas));
  if (inside.isEmpty())
    return;
  const ColorRun run(pixelOf(color));
  const bool keepsFourth = canvas.format == PixelFormat::bgrx8;
  for (std::int32_t y = inside.top; y < inside.bottom; ++y)
    ColorRun::forEach(inside.width(), [&](std::int32_t x, std::size_t pixels) {
      kernels().blendRow(run.data(), at(canvas, inside.left + x, y), pixels, keepsFourth);
    });
}

void blendColor(const Canvas& canvas, std::int32_t x, std::int32_t y, const Mask& mask, const Color& color) {
  const ColorRun run(pixelOf(color));
  const bool keepsFourth = canvas.format == PixelFormat::bgrx8;
  const std::int64_t left = std::max<std::int64_t>(x, 0);
  const std::int64_t right = std::min<std::int64_t>(std::int64_t{x} + mask.width(), canvas.width);
  const std::int64_t top = std::max<std::int64_t>(y, 0);
  const std::int64_t bottom = std::min<std::int64_t>(std::int64_t{y} + mask.height(), canvas.height);
  if (left >= right)
    return;
  for (std::int64_t line = top; line < bottom; ++line) {
    const std::uint8_t* weights = mask.row(static_cast<std::int32_t>(line - y)) + (left - x);
    ColorRun::forEach(static_cast<std::int32_t>(right - left), [&](std::int32_t from, std::size_t pixels) {
      kernels().blendMaskedRow(
          run.data(), weights + from,
          at(canvas, static_cast<std::int32_t>(left) + from, static_cast<std::int32_t>(line)), pixels, false,
          keepsFourth);
    });
  }
}

void colorByAlpha(const PictureView& source, const Color& color, const Canvas& target) {
  const ColorRun run(pixelOf(color));
  constexpr std::array<std::uint8_t, ColorRun::length> noWhite{};
  for (std::int32_t y = 0; y < source.height; ++y)
    ColorRun::forEach(source.width, [&](std::int32_t x, std::size_t pixels) {
      std::array<std::uint8_t, ColorRun::length> weights;
      const std::uint8_t* from = rowOf(source, y) + static_cast<std::ptrdiff_t>(x) * 4;
      for (std::size_t i = 0; i < pixels; ++i)
        weights[i] = from[i * pixelBytes + 3];
      std::uint8_t* to = at(target, x, y);
      std::memcpy(to, run.data(), pixels * pixelBytes);
      kernels().maskRow(to, weights.data(), noWhite.data(), pixels, false);
    });
}

void fillGradient(const Canvas& canvas, const LinearGradient& gradient) {
  const double alongX = gradient.endX - gradient.startX;
  const double alongY = gradient.endY - gradient.startY;
  const double squared = alongX * alongX + alongY * alongY;
  const Channels start = channelsOf(gradient.start);
  const Channels end = channelsOf(gradient.end);
  if (!std::isfinite(1 / squared) || !std::isfinite(squared)) {
    fillArea(canvas, areaOf(canvas), gradient.end);
    return;
  }
  for (std::int32_t y = 0; y < canvas.height; ++y) {
    const double place = ((0.5 - gradient.startX) * alongX + (y + 0.5 - gradient.startY) * alongY) / squared;
    GradientLine line{};
    for (std::size_t channel = 0; channel < pixelBytes; ++channel) {
      const double change = end[channel] - start[channel];
      line.start[channel] = static_cast<float>(start[channel] + change * place);
      line.step[channel] = static_cast<float>(change * alongX / squared);
      line.low[channel] = static_cast<float>(std::min(start[channel], end[channel]));
      line.high[channel] = static_cast<float>(std::max(start[channel], end[channel]));
    }
    const auto thresholds = thresholdsOf(y);
    std::copy(thresholds.begin(), thresholds.end(), line.thresholds);
    kernels().gradientRow(line, static_cast<std::size_t>(canvas.width), canvas.row(y));
  }
}

} // namespace tessarin::pixels
