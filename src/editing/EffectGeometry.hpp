#pragma once

#include "editing/PixelGeometry.hpp"
#include "model/Geometry.hpp"
#include "model/Picture.hpp"
#include "project/VideoEditEffect.hpp"

#include <array>
#include <optional>
#include <string>
#include <variant>

// What redactions and annotations come to on a picture of so many pixels. Plain values, any thread.
namespace tessarin {

// A part of the picture that is made unreadable.
struct RedactionGeometry {
  VideoRedactionMode mode = VideoRedactionMode::mosaic;
  RectDTO rect;        // nothing outside of it changes
  PixelPoint center;   // of the rectangle; squares of a mosaic are laid around it
  double strength = 0; // pixels: a mosaic's side, a blur's standard deviation, its edges being extended
  Color color;         // of a solid one

  bool operator==(const RedactionGeometry&) const = default;
};

RedactionGeometry redactionGeometry(const RedactionVideoEffectDTO& redaction, const SizeDTO& size);

struct HighlightGeometry {
  RectDTO rect;
  Color fill;

  bool operator==(const HighlightGeometry&) const = default;
};

// A rectangle, or the ellipse in it: filled, and then stroked along its edge.
struct ShapeGeometry {
  bool isEllipse = false;
  RectDTO rect;
  Color fill;
  Color stroke;
  double lineWidth = 0;

  bool operator==(const ShapeGeometry&) const = default;
};

// A line with round ends, and then a filled triangle at its end.
struct ArrowGeometry {
  PixelPoint start;
  PixelPoint end;
  double lineWidth = 0;
  std::array<PixelPoint, 3> head; // the end first
  Color color;

  bool operator==(const ArrowGeometry&) const = default;
};

// A filled circle with a number in it, whose line is centered on the circle by its bounds.
struct NumberGeometry {
  PixelPoint center;
  double diameter = 0;
  Color fill;
  std::string text;
  double fontSize = 0; // pixels, bold
  Color textColor;

  bool operator==(const NumberGeometry&) const = default;
};

// A filled rectangle with lines of text in it.
struct TextGeometry {
  RectDTO rect;
  Color background;
  // The text's: lines are broken at its width and centered in it, as a block from the first one's ascent to
  // the last one's descent, and what stands out is left out. Nothing where no room is left for any.
  std::optional<RectDTO> inner;
  std::string text;
  double fontSize = 0;   // pixels, bold
  double lineHeight = 0; // of every line
  Color textColor;

  bool operator==(const TextGeometry&) const = default;
};

using AnnotationGeometry =
    std::variant<HighlightGeometry, ShapeGeometry, ArrowGeometry, NumberGeometry, TextGeometry>;

// Nothing for kinds that are no annotations: zoom, redaction, freeze, interaction.
std::optional<AnnotationGeometry> annotationGeometry(const VideoEditEffectDTO& effect, const SizeDTO& size);

// How wide lines are drawn: this part of the shorter side, one pixel at least.
double annotationLineWidth(double strokeWidth, const SizeDTO& size);

} // namespace tessarin
