#pragma once

#include "model/Geometry.hpp"
#include "model/Picture.hpp"
#include "ports/Typesetting.hpp"
#include "project/InteractionStyles.hpp"

#include <optional>
#include <string>
#include <vector>

namespace tessarin {

// Draws the badge that names a shortcut, on the live panel and in exports alike. Keeps no state. One thread
// at a time.
class ShortcutBadgeRenderer {
 public:
  // Bitmaps stay within these sizes, in pixels, and render sizes and scales within these.
  static constexpr std::int32_t maximumWidth = 8192;
  static constexpr std::int32_t maximumHeight = 2048;
  static constexpr double maximumRenderSize = 32768;
  static constexpr double maximumScale = 4;

  struct Size {
    double width = 0;
    double height = 0;
  };
  struct Badge {
    Picture picture; // bgra8Premultiplied
    RectDTO rect;    // where on the render size, from its top left
  };

  // The typesetter outlives the renderer.
  explicit ShortcutBadgeRenderer(TextTypesetter& typesetter) : typesetter_(typesetter) {}

  // The badge for a picture of the render size, drawn with `scale` pixels a unit. Nothing without keys, for
  // sizes and scales outside of the bounds, and when text cannot be set.
  std::optional<Badge> image(const std::vector<std::string>& keys, InteractionShortcutStyleDTO style,
                             const Size& renderSize, double scale) const;

 private:
  TextTypesetter& typesetter_;
};

} // namespace tessarin
