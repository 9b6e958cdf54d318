#pragma once

#include "editing/CSSGradientGeometry.hpp"
#include "editing/PixelGeometry.hpp"
#include "model/AffineTransform.hpp"
#include "model/Geometry.hpp"
#include "model/Picture.hpp"
#include "project/VideoOutputVersion.hpp"

#include <optional>
#include <variant>

// Where the content stands on the frame of an output, and what is around it; the same for all frames of an
// export. Pixels of the canvas. Plain values, any thread.
namespace tessarin {

struct CanvasLayout {
  RectDTO contentRect;   // may reach beyond the canvas, which cuts it
  RectDTO availableRect; // that the content was fitted into, or was to fill

  bool operator==(const CanvasLayout&) const = default;
};

// Where content of this size in pixels is laid. The offsets count in every mode, and the content keeps its
// shape in each.
CanvasLayout canvasLayout(const SizeDTO& contentSize, const VideoCanvasConfigDTO& canvas);

struct GradientBackground {
  CSSGradientGeometry::Endpoints points;
  Color start;
  Color end;

  bool operator==(const GradientBackground&) const = default;
};

// The content itself, as large as fills the canvas, out of focus; its edges are extended before it is
// blurred.
struct BlurBackground {
  AffineTransform placement; // from the content
  double radius = 0;         // standard deviation

  bool operator==(const BlurBackground&) const = default;
};

// The content's shape in black, moved down and blurred, below the content.
struct CanvasShadow {
  double offsetY = 0; // downwards
  double radius = 0;  // standard deviation
  double opacity = 0;

  bool operator==(const CanvasShadow&) const = default;
};

// In the order of painting: the background, the shadow, the content with its corners; all within the canvas.
struct CanvasComposition {
  SizeDTO size;
  std::variant<Color, GradientBackground, BlurBackground> background;
  std::optional<CanvasShadow> shadow;
  RectDTO contentRect;
  AffineTransform contentPlacement;   // from the content
  std::optional<double> cornerRadius; // nothing: corners as they are

  bool operator==(const CanvasComposition&) const = default;
};

CanvasComposition canvasComposition(const SizeDTO& contentSize, const VideoCanvasConfigDTO& canvas);

} // namespace tessarin
