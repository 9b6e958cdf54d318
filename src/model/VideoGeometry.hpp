#pragma once

#include "base/Json.hpp"

// Places in a picture as edits and traces speak of them: fractions of its width and height, whatever its
// size in pixels. The origin is at the top left. Plain values.
namespace tessarin {

struct NormalizedVideoPointDTO {
  double x = 0;
  double y = 0;

  static constexpr auto fields() {
    return json::table(json::field("x", &NormalizedVideoPointDTO::x),
                       json::field("y", &NormalizedVideoPointDTO::y));
  }
  bool operator==(const NormalizedVideoPointDTO&) const = default;
};

struct NormalizedVideoRectDTO {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;

  static constexpr auto fields() {
    using DTO = NormalizedVideoRectDTO;
    return json::table(json::field("x", &DTO::x), json::field("y", &DTO::y),
                       json::field("width", &DTO::width), json::field("height", &DTO::height));
  }
  bool operator==(const NormalizedVideoRectDTO&) const = default;
};

} // namespace tessarin
