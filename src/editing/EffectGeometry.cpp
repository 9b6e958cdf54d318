#include "editing/EffectGeometry.hpp"

#include "editing/VideoEffectColor.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tessarin {

namespace {

using Kind = VideoEditEffectKind;

constexpr double thinnestLine = 1; // pixels

constexpr double headPerLineWidth = 5;             // length of an arrow's head along its sides
constexpr double headAngle = std::numbers::pi / 6; // of either side with the line

constexpr double numberPart = 0.08; // of the shorter side
constexpr double smallestNumber = 28;
constexpr double numberFontPart = 0.52; // of the diameter

constexpr double textInsetX = 6;
constexpr double textInsetY = 4;
constexpr double smallestFont = 8;
constexpr double lineHeightPart = 1.15; // of the font's size

HighlightGeometry geometryOf(const HighlightVideoEffectDTO& highlight, const SizeDTO& size) {
  return {pixelRect(highlight.rect, size), VideoEffectColor::color(highlight.color, highlight.opacity)};
}

ShapeGeometry geometryOf(const ShapeVideoEffectDTO& shape, const SizeDTO& size, bool isEllipse) {
  return {isEllipse, pixelRect(shape.rect, size), VideoEffectColor::color(shape.fillColor),
          VideoEffectColor::color(shape.color), annotationLineWidth(shape.strokeWidth, size)};
}

ArrowGeometry geometryOf(const ArrowVideoEffectDTO& arrow, const SizeDTO& size) {
  const PixelPoint start = pixelPoint(arrow.start, size);
  const PixelPoint end = pixelPoint(arrow.end, size);
  const double lineWidth = annotationLineWidth(arrow.strokeWidth, size);
  const double angle = std::atan2(end.y - start.y, end.x - start.x);
  const auto corner = [&](double direction) {
    const double side = headPerLineWidth * lineWidth;
    return PixelPoint{end.x - side * std::cos(direction), end.y - side * std::sin(direction)};
  };
  return {start,
          end,
          lineWidth,
          {end, corner(angle - headAngle), corner(angle + headAngle)},
          VideoEffectColor::color(arrow.color)};
}

NumberGeometry geometryOf(const NumberVideoEffectDTO& number, const SizeDTO& size) {
  const double diameter = std::max(shorterSideOf(size) * numberPart, smallestNumber);
  return {pixelPoint(number.center, size),
          diameter,
          VideoEffectColor::color(number.color),
          std::to_string(number.value),
          diameter * numberFontPart,
          Color::gray(1)};
}

std::optional<RectDTO> innerRectOf(const RectDTO& rect) {
  const RectDTO inner{rect.x + textInsetX, rect.y + textInsetY, rect.width - 2 * textInsetX,
                      rect.height - 2 * textInsetY};
  if (inner.width <= 0 || inner.height <= 0)
    return std::nullopt;
  return inner;
}

TextGeometry geometryOf(const TextVideoEffectDTO& text, const SizeDTO& size) {
  const RectDTO rect = pixelRect(text.rect, size);
  const double fontSize = std::max(static_cast<double>(size.height) * text.fontScale, smallestFont);
  return {rect,
          VideoEffectColor::color(text.backgroundColor),
          innerRectOf(rect),
          text.text,
          fontSize,
          fontSize * lineHeightPart,
          VideoEffectColor::color(text.color)};
}

} // namespace

double annotationLineWidth(double strokeWidth, const SizeDTO& size) {
  return std::max(shorterSideOf(size) * strokeWidth, thinnestLine);
}

RedactionGeometry redactionGeometry(const RedactionVideoEffectDTO& redaction, const SizeDTO& size) {
  const RectDTO rect = pixelRect(redaction.rect, size);
  return {redaction.mode, rect, centerOf(rect), redaction.strength, VideoEffectColor::color(redaction.color)};
}

std::optional<AnnotationGeometry> annotationGeometry(const VideoEditEffectDTO& effect, const SizeDTO& size) {
  switch (effect.kind()) {
  case Kind::highlight:
    return geometryOf(*effect.as<Kind::highlight>(), size);
  case Kind::rectangle:
    return geometryOf(*effect.as<Kind::rectangle>(), size, false);
  case Kind::ellipse:
    return geometryOf(*effect.as<Kind::ellipse>(), size, true);
  case Kind::arrow:
    return geometryOf(*effect.as<Kind::arrow>(), size);
  case Kind::number:
    return geometryOf(*effect.as<Kind::number>(), size);
  case Kind::text:
    return geometryOf(*effect.as<Kind::text>(), size);
  case Kind::zoom:
  case Kind::redaction:
  case Kind::freeze:
  case Kind::interaction:
    break;
  }
  return std::nullopt;
}

} // namespace tessarin
