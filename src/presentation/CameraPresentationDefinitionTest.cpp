#include "presentation/CameraPictures.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

// The whole way from frame to picture against its definition, step by step in the coordinates it is told in:
// y upwards, everything continuous, each pixel by the mean of many points.
namespace tessarin {
namespace {

using namespace camera_pictures;

using Sample = std::array<double, 4>; // premultiplied B, G, R, A

constexpr int frameWidth = 160;
constexpr int frameHeight = 90;

// A frame whose colours rise evenly, at a place given in its pixels from the bottom left.
Sample frameAt(double x, double y) {
  const double across = std::clamp(x / frameWidth, 0.0, 1.0);
  const double up = std::clamp(y / frameHeight, 0.0, 1.0);
  return {20 + 200 * across, 30 + 180 * up, 240 - 100 * across - 80 * up, 255};
}

Frame gradientFrame() {
  return {frameWidth, frameHeight, [](int x, int y) {
            const Sample sample = frameAt(x + 0.5, frameHeight - y - 0.5);
            const auto level = [&](std::size_t channel) {
              return static_cast<int>(std::lround(sample[channel]));
            };
            return Pixel{level(0), level(1), level(2), 255};
          }};
}

struct Target {
  double x, y, width, height;

  double shorter() const { return std::min(width, height); }

  bool holds(double px, double py, double distance, double radius) const {
    const double left = x + distance;
    const double right = x + width - distance;
    const double bottom = y + distance;
    const double top = y + height - distance;
    if (px < left || px > right || py < bottom || py > top)
      return false;
    const double dx = std::max({left + radius - px, px - (right - radius), 0.0});
    const double dy = std::max({bottom + radius - py, py - (top - radius), 0.0});
    return dx * dx + dy * dy <= radius * radius;
  }
};

Sample definedAt(const VideoCameraLayerDTO& layer, const SizeDTO& canvas, double px, double py) {
  const auto width = static_cast<double>(canvas.width);
  const auto height = static_cast<double>(canvas.height);
  const NormalizedVideoRectDTO& rect = layer.rect;
  const Target target{rect.x * width, (1 - rect.y - rect.height) * height, rect.width * width,
                      rect.height * height};
  const double radius = layer.shape == VideoCameraShapeDTO::rounded  ? target.shorter() * 0.1
                        : layer.shape == VideoCameraShapeDTO::circle ? target.shorter() * 0.5
                                                                     : 0;
  if (!target.holds(px, py, 0, radius))
    return {0, 0, 0, 0};
  const double border = target.shorter() * 0.012;
  if (layer.borderVisible == true && !target.holds(px, py, border, std::max(radius - border, 0.0)))
    return {255, 255, 255, 255};
  const double scale = std::max(target.width / frameWidth, target.height / frameHeight);
  const double fx = frameWidth / 2.0 + (px - target.x - target.width / 2) / scale;
  const double fy = frameHeight / 2.0 + (py - target.y - target.height / 2) / scale;
  return frameAt(layer.mirrored == true ? frameWidth - fx : fx, fy);
}

constexpr int pointBits = 10;
constexpr int points = 1 << pointBits;

// The bits of a number of a point the other way round, as a fraction: with the number itself they make points
// that are spread evenly for edges of any direction.
double reversedFraction(int number) {
  int reversed = 0;
  for (int bit = 0; bit < pointBits; ++bit)
    reversed |= (number >> bit & 1) << (pointBits - 1 - bit);
  return (reversed + 0.5) / points;
}

Sample definedPixel(const VideoCameraLayerDTO& layer, const SizeDTO& canvas, int x, int y) {
  Sample sum{};
  for (int point = 0; point < points; ++point) {
    const double px = x + (point + 0.5) / points;
    const double py = static_cast<double>(canvas.height) - y - reversedFraction(point);
    const Sample sample = definedAt(layer, canvas, px, py);
    for (std::size_t channel = 0; channel < 4; ++channel)
      sum[channel] += sample[channel] / points;
  }
  return sum;
}

// The error of so many points at an edge, and of rounding.
constexpr double tolerance = 4;

void expectDefinition(const VideoCameraLayerDTO& layer, const SizeDTO& canvas) {
  const Frame frame = gradientFrame();
  const PlacedPicture image = CameraPresentationRenderer().image(frame.view(), layer, canvas);
  const PictureView& view = image.picture.view;
  // One pixel beyond the picture on every side, which nothing may reach.
  for (int y = -1; y <= view.height; ++y)
    for (int x = -1; x <= view.width; ++x) {
      const bool isInside = x >= 0 && y >= 0 && x < view.width && y < view.height;
      const Pixel actual = isInside ? pixelAt(view, x, y) : clear;
      const Sample expected = definedPixel(layer, canvas, image.x + x, image.y + y);
      for (std::size_t channel = 0; channel < 4; ++channel)
        ASSERT_NEAR(actual[channel], expected[channel], tolerance)
            << "pixel " << x << "," << y << ", channel " << channel << ", rectangle " << layer.rect.x << ","
            << layer.rect.y << " " << layer.rect.width << "x" << layer.rect.height;
    }
}

TEST(CameraPresentationRenderer, FollowsItsDefinitionAtAnyPlaceAndSize) {
  std::minstd_rand random(7);
  const auto fraction = [&](double from, double to) {
    return from + (to - from) * static_cast<double>(random() % 100000) / 100000;
  };
  for (int i = 0; i < 24; ++i) {
    const SizeDTO canvas{static_cast<std::int64_t>(fraction(20, 160)),
                         static_cast<std::int64_t>(fraction(20, 120))};
    VideoCameraLayerDTO layer =
        layerOf(static_cast<VideoCameraShapeDTO>(i % 3),
                {fraction(-0.2, 0.7), fraction(-0.2, 0.7), fraction(0.05, 0.9), fraction(0.05, 0.9)});
    layer.borderVisible = i % 2 == 0;
    layer.mirrored = i % 4 < 2;
    expectDefinition(layer, canvas);
  }
}

} // namespace
} // namespace tessarin
