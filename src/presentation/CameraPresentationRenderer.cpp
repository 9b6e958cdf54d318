#include "presentation/CameraPresentationRenderer.hpp"

#include "pixels/BorderedMask.hpp"
#include "pixels/FittedScaler.hpp"
#include "pixels/PictureBuffers.hpp"

#include <algorithm>
#include <cmath>
#include <optional>

namespace tessarin {

namespace {

// Parts of the target's shorter side.
constexpr double roundedRadiusPart = 0.1;
constexpr double circleRadiusPart = 0.5;
constexpr double borderPart = 0.012;

constexpr double farthest = 1 << 30;
constexpr double longestSide = CameraPresentationRenderer::maximumSide;

// Edges lie on a grid that is finer than a level of a pixel's coverage. So what arithmetic adds to fractions
// of a canvas makes no pixel more, and a rectangle that moves by whole pixels stays alike.
constexpr double edgesPerPixel = 1024;

double settled(double edge) {
  return std::round(edge * edgesPerPixel) / edgesPerPixel;
}

// One direction of a target on the canvas.
struct Extent {
  double from, to;

  Extent(double begin, double length, std::int64_t canvas)
      : from(settled(begin * static_cast<double>(canvas))),
        to(settled(begin * static_cast<double>(canvas) + length * static_cast<double>(canvas))) {}

  // False for what is not a number, too.
  bool hasPixels() const {
    return std::abs(from) <= farthest && std::abs(to) <= farthest && to > from && pixels() <= longestSide;
  }
  double firstPixel() const { return std::floor(from); }
  double pixels() const { return std::ceil(to) - firstPixel(); }
};

struct Target {
  std::int32_t x, y;       // its first pixel on the canvas
  pixels::FittedArea area; // the layer's rectangle on the pixels it touches

  double shorterSide() const { return std::min(area.right - area.left, area.bottom - area.top); }
};

std::optional<Target> targetOf(const NormalizedVideoRectDTO& rect, const SizeDTO& canvas) {
  if (canvas.width <= 0 || canvas.height <= 0)
    return std::nullopt;
  const Extent across(rect.x, rect.width, canvas.width);
  const Extent along(rect.y, rect.height, canvas.height);
  if (!across.hasPixels() || !along.hasPixels())
    return std::nullopt;
  return Target{static_cast<std::int32_t>(across.firstPixel()),
                static_cast<std::int32_t>(along.firstPixel()),
                {static_cast<std::int32_t>(across.pixels()), static_cast<std::int32_t>(along.pixels()),
                 across.from - across.firstPixel(), along.from - along.firstPixel(),
                 across.to - across.firstPixel(), along.to - along.firstPixel()}};
}

double radiusPartOf(VideoCameraShapeDTO shape) {
  switch (shape) {
  case VideoCameraShapeDTO::rounded:
    return roundedRadiusPart;
  case VideoCameraShapeDTO::circle:
    return circleRadiusPart;
  case VideoCameraShapeDTO::rectangle:
    break;
  }
  return 0;
}

// What a mask is made of.
struct Outline {
  std::int32_t width, height; // of the pixels
  pixels::RoundedRect shape;
  double border;

  bool operator==(const Outline&) const = default;
};

Outline outlineOf(const Target& target, const VideoCameraLayerDTO& layer) {
  const pixels::FittedArea& area = target.area;
  return {area.width,
          area.height,
          {area.left, area.top, area.right, area.bottom, target.shorterSide() * radiusPartOf(layer.shape)},
          layer.borderVisible.value_or(false) ? target.shorterSide() * borderPart : 0};
}

} // namespace

// Both for one geometry, that of the last picture: it changes from picture to picture or hardly ever.
struct CameraPresentationRenderer::Kept {
  struct Scaling {
    pixels::FittedArea area;
    pixels::FittedScaler scaler;
  };
  struct Masking {
    Outline outline;
    pixels::BorderedMask mask;
  };
  std::optional<Scaling> scaling;
  std::optional<Masking> masking;
  pixels::PictureBuffers buffers;

  pixels::FittedScaler& scalerFor(const PictureView& frame, const pixels::FittedArea& area) {
    if (!scaling || !scaling->scaler.takes(frame) || scaling->area != area)
      scaling.emplace(Scaling{area, pixels::FittedScaler(frame.width, frame.height, area)});
    return scaling->scaler;
  }

  const pixels::BorderedMask& maskFor(const Outline& outline) {
    if (!masking || masking->outline != outline)
      masking.emplace(Masking{
          outline, pixels::BorderedMask(outline.width, outline.height, outline.shape, outline.border)});
    return masking->mask;
  }
};

CameraPresentationRenderer::CameraPresentationRenderer() : kept_(std::make_unique<Kept>()) {}
CameraPresentationRenderer::~CameraPresentationRenderer() = default;

PlacedPicture CameraPresentationRenderer::image(const PictureView& frame, const VideoCameraLayerDTO& layer,
                                                const SizeDTO& canvas) {
  std::optional<Target> target = targetOf(layer.rect, canvas);
  if (!target || frame.data == nullptr || frame.width <= 0 || frame.height <= 0)
    return {};
  target->area.isMirrored = layer.mirrored.value_or(false);
  const pixels::PictureBuffers::Sheet sheet =
      kept_->buffers.take(target->area.width, target->area.height, PixelFormat::bgra8Premultiplied);
  kept_->scalerFor(frame, target->area).scale(frame, sheet.canvas);
  kept_->maskFor(outlineOf(*target, layer)).apply(sheet.canvas, frame.format == PixelFormat::bgrx8);
  return {sheet.picture(), target->x, target->y};
}

} // namespace tessarin
