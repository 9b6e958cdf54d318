#pragma once

#include "editing/PixelGeometry.hpp"
#include "editing/VideoZoomTransform.hpp"
#include "model/Picture.hpp"
#include "project/VideoEditProject.hpp"
#include "trace/InteractionEventIndex.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

// What is drawn of the trace at one moment, on a transparent picture of so many pixels. Plain values, any
// thread.
namespace tessarin {

struct FilledCircle {
  PixelPoint center;
  double radius = 0;
  Color color;

  bool operator==(const FilledCircle&) const = default;
};

// Half of the line is within the radius.
struct StrokedCircle {
  PixelPoint center;
  double radius = 0;
  double lineWidth = 0;
  Color color;

  bool operator==(const StrokedCircle&) const = default;
};

// The whole picture in the colour, but for a circle that is left clear.
struct SpotlightMark {
  PixelPoint center;
  double radius = 0;
  Color shade;

  bool operator==(const SpotlightMark&) const = default;
};

struct ClickMark {
  std::variant<StrokedCircle, FilledCircle> mark;
  std::optional<FilledCircle> inner; // of the right button, over the mark

  bool operator==(const ClickMark&) const = default;
};

struct CursorShadow {
  double offsetX = 0;
  double offsetY = 0; // downwards
  double blur = 0;    // pixels; twice the standard deviation
  Color color;

  bool operator==(const CursorShadow&) const = default;
};

// A closed polygon, filled, and stroked with round joins.
struct CursorMark {
  std::vector<PixelPoint> outline; // the tip first
  Color fill;
  Color stroke;
  double lineWidth = 0;
  std::optional<CursorShadow> shadow; // of fill and line as one

  bool operator==(const CursorMark&) const = default;
};

struct ShortcutMark {
  std::vector<std::string> keys;
  InteractionShortcutStyleDTO style = InteractionShortcutStyleDTO::dark;

  bool operator==(const ShortcutMark&) const = default;
};

// In the order of painting. What lies beyond the picture's edges is cut off.
struct InteractionOverlayPlan {
  SizeDTO size;
  std::optional<std::variant<StrokedCircle, SpotlightMark>> dwell;
  std::optional<ClickMark> click;
  std::optional<CursorMark> cursor;
  std::optional<ShortcutMark> shortcut; // a badge for this size

  bool operator==(const InteractionOverlayPlan&) const = default;
};

// Of the trace's events on the output, at a moment of the output in milliseconds, over content that is
// cropped and zoomed like this and is of this size. Nothing when there is nothing to draw.
std::optional<InteractionOverlayPlan>
interactionOverlayPlan(const InteractionEventIndex& index, const InteractionVideoEffectDTO& effect,
                       std::int64_t timeMs, const NormalizedVideoCropDTO& crop,
                       const VideoZoomTransform& zoom, const SizeDTO& renderSize);

} // namespace tessarin
