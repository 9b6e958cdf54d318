#include "project/VideoEditEffect.hpp"

#include "base/Text.hpp"
#include "project/EditBounds.hpp"
#include "project/EditPaths.hpp"

#include <cmath>

namespace tessarin {

namespace {

using namespace editBounds;

constexpr std::size_t mostTextScalars = 200;
constexpr std::size_t mostScalarBytes = 4;
constexpr double shortestArrow = 0.01;

bool strokeWidthIsValid(double width) {
  return isWithin(width, 0.002, 0.05);
}

bool textIsValid(const std::string& text) {
  return !trimmed(text).empty() && text.size() <= mostTextScalars * mostScalarBytes &&
         codePoints(text).size() <= mostTextScalars;
}

struct PayloadRules {
  std::int64_t sourceDurationMs = 0;

  bool operator()(const ZoomVideoEffectDTO& zoom) const {
    return pointIsValid(zoom.center) && isWithin(zoom.scale, 1.25, 4.0);
  }
  bool operator()(const RedactionVideoEffectDTO& redaction) const {
    return rectIsValid(redaction.rect) && isWithin(redaction.strength, 1, 100) &&
           colorIsValid(redaction.color) && !redaction.tracking;
  }
  bool operator()(const TextVideoEffectDTO& text) const {
    return rectIsValid(text.rect) && textIsValid(text.text) && colorIsValid(text.color) &&
           colorIsValid(text.backgroundColor) && fontScaleIsValid(text.fontScale);
  }
  bool operator()(const ArrowVideoEffectDTO& arrow) const {
    return pointIsValid(arrow.start) && pointIsValid(arrow.end) &&
           std::hypot(arrow.end.x - arrow.start.x, arrow.end.y - arrow.start.y) >= shortestArrow &&
           colorIsValid(arrow.color) && strokeWidthIsValid(arrow.strokeWidth);
  }
  bool operator()(const ShapeVideoEffectDTO& shape) const {
    return rectIsValid(shape.rect) && colorIsValid(shape.color) && colorIsValid(shape.fillColor) &&
           strokeWidthIsValid(shape.strokeWidth);
  }
  bool operator()(const HighlightVideoEffectDTO& highlight) const {
    return rectIsValid(highlight.rect) && colorIsValid(highlight.color) &&
           isWithin(highlight.opacity, 0.05, 1.0);
  }
  bool operator()(const NumberVideoEffectDTO& number) const {
    return pointIsValid(number.center) && number.value >= 1 && number.value <= 999 &&
           colorIsValid(number.color);
  }
  bool operator()(const FreezeVideoEffectDTO& freeze) const {
    return freeze.sourceTimeMs >= 0 && freeze.sourceTimeMs < sourceDurationMs;
  }
  bool operator()(const InteractionVideoEffectDTO& interaction) const {
    return lastPathComponent(interaction.sourcePath) == editInteractionFileName &&
           isWithin(interaction.cursorSize, 0.5, 3.0) && colorIsValid(interaction.cursorColor) &&
           colorIsValid(interaction.clickColor) && interaction.dwellThresholdMs >= 400 &&
           interaction.dwellThresholdMs <= 3000;
  }
};

} // namespace

bool VideoEditEffectDTO::payloadIsValid(std::int64_t sourceDurationMs) const {
  return std::visit(PayloadRules{sourceDurationMs}, record);
}

} // namespace tessarin
