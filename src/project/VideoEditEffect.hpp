#pragma once

#include "base/Json.hpp"
#include "model/VideoGeometry.hpp"
#include "project/InteractionStyles.hpp"
#include "project/VideoLayerAnchor.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>

// What an edit lays over the picture: flat JSON objects, told apart by their "kind". Times are milliseconds
// on the output's time line, the end exclusive; places are fractions of the frame; colours are "#rrggbb" or
// "#rrggbbaa". Plain values; decoding repairs nothing, and bounds are payloadIsValid's business.
namespace tessarin {

enum class VideoEditEffectKind : std::uint8_t {
  zoom,
  redaction,
  text,
  arrow,
  rectangle,
  ellipse,
  highlight,
  number,
  freeze,
  interaction
};
constexpr auto jsonNames(VideoEditEffectKind) {
  return json::names<VideoEditEffectKind>({{VideoEditEffectKind::zoom, "zoom"},
                                           {VideoEditEffectKind::redaction, "redaction"},
                                           {VideoEditEffectKind::text, "text"},
                                           {VideoEditEffectKind::arrow, "arrow"},
                                           {VideoEditEffectKind::rectangle, "rectangle"},
                                           {VideoEditEffectKind::ellipse, "ellipse"},
                                           {VideoEditEffectKind::highlight, "highlight"},
                                           {VideoEditEffectKind::number, "number"},
                                           {VideoEditEffectKind::freeze, "freeze"},
                                           {VideoEditEffectKind::interaction, "interaction"}});
}

enum class VideoRedactionMode : std::uint8_t { mosaic, blur, solid };
constexpr auto jsonNames(VideoRedactionMode) {
  return json::names<VideoRedactionMode>({{VideoRedactionMode::mosaic, "mosaic"},
                                          {VideoRedactionMode::blur, "blur"},
                                          {VideoRedactionMode::solid, "solid"}});
}

struct ZoomVideoEffectDTO {
  std::optional<bool> followCursor; // absent: no
  VideoEditEffectKind kind = VideoEditEffectKind::zoom;
  std::string id;
  std::int64_t startMs = 0;
  std::int64_t endMs = 0;
  NormalizedVideoPointDTO center;
  double scale = 1;

  static constexpr auto fields() {
    using DTO = ZoomVideoEffectDTO;
    return json::table(json::field("followCursor", &DTO::followCursor), json::field("kind", &DTO::kind),
                       json::field("id", &DTO::id), json::field("startMs", &DTO::startMs),
                       json::field("endMs", &DTO::endMs), json::field("center", &DTO::center),
                       json::field("scale", &DTO::scale));
  }
  bool operator==(const ZoomVideoEffectDTO&) const = default;
};

struct RedactionVideoEffectDTO {
  VideoEditEffectKind kind = VideoEditEffectKind::redaction;
  std::string id;
  std::int64_t startMs = 0;
  std::int64_t endMs = 0;
  VideoRedactionMode mode = VideoRedactionMode::mosaic;
  NormalizedVideoRectDTO rect;
  double strength = 0;
  std::string color;
  std::optional<std::string> tracking; // kept for later; nothing may be in it

  static constexpr auto fields() {
    using DTO = RedactionVideoEffectDTO;
    return json::table(json::field("kind", &DTO::kind), json::field("id", &DTO::id),
                       json::field("startMs", &DTO::startMs), json::field("endMs", &DTO::endMs),
                       json::field("mode", &DTO::mode), json::field("rect", &DTO::rect),
                       json::field("strength", &DTO::strength), json::field("color", &DTO::color),
                       json::field("tracking", &DTO::tracking));
  }
  bool operator==(const RedactionVideoEffectDTO&) const = default;
};

struct TextVideoEffectDTO {
  VideoEditEffectKind kind = VideoEditEffectKind::text;
  std::string id;
  std::int64_t startMs = 0;
  std::int64_t endMs = 0;
  NormalizedVideoRectDTO rect;
  std::string text;
  std::string color;
  std::string backgroundColor;
  double fontScale = 0;
  std::optional<bool> visible; // absent: yes
  std::optional<VideoLayerAnchorDTO> anchor;

  static constexpr auto fields() {
    using DTO = TextVideoEffectDTO;
    return json::table(
        json::field("kind", &DTO::kind), json::field("id", &DTO::id), json::field("startMs", &DTO::startMs),
        json::field("endMs", &DTO::endMs), json::field("rect", &DTO::rect), json::field("text", &DTO::text),
        json::field("color", &DTO::color), json::field("backgroundColor", &DTO::backgroundColor),
        json::field("fontScale", &DTO::fontScale), json::field("visible", &DTO::visible),
        json::field("anchor", &DTO::anchor));
  }
  bool operator==(const TextVideoEffectDTO&) const = default;
};

struct ArrowVideoEffectDTO {
  VideoEditEffectKind kind = VideoEditEffectKind::arrow;
  std::string id;
  std::int64_t startMs = 0;
  std::int64_t endMs = 0;
  NormalizedVideoPointDTO start;
  NormalizedVideoPointDTO end; // where the head is
  std::string color;
  double strokeWidth = 0;

  static constexpr auto fields() {
    using DTO = ArrowVideoEffectDTO;
    return json::table(json::field("kind", &DTO::kind), json::field("id", &DTO::id),
                       json::field("startMs", &DTO::startMs), json::field("endMs", &DTO::endMs),
                       json::field("start", &DTO::start), json::field("end", &DTO::end),
                       json::field("color", &DTO::color), json::field("strokeWidth", &DTO::strokeWidth));
  }
  bool operator==(const ArrowVideoEffectDTO&) const = default;
};

// A rectangle or an ellipse.
struct ShapeVideoEffectDTO {
  VideoEditEffectKind kind = VideoEditEffectKind::rectangle;
  std::string id;
  std::int64_t startMs = 0;
  std::int64_t endMs = 0;
  NormalizedVideoRectDTO rect;
  std::string color;
  std::string fillColor;
  double strokeWidth = 0;

  static constexpr auto fields() {
    using DTO = ShapeVideoEffectDTO;
    return json::table(
        json::field("kind", &DTO::kind), json::field("id", &DTO::id), json::field("startMs", &DTO::startMs),
        json::field("endMs", &DTO::endMs), json::field("rect", &DTO::rect), json::field("color", &DTO::color),
        json::field("fillColor", &DTO::fillColor), json::field("strokeWidth", &DTO::strokeWidth));
  }
  bool operator==(const ShapeVideoEffectDTO&) const = default;
};

struct HighlightVideoEffectDTO {
  VideoEditEffectKind kind = VideoEditEffectKind::highlight;
  std::string id;
  std::int64_t startMs = 0;
  std::int64_t endMs = 0;
  NormalizedVideoRectDTO rect;
  std::string color;
  double opacity = 0;

  static constexpr auto fields() {
    using DTO = HighlightVideoEffectDTO;
    return json::table(json::field("kind", &DTO::kind), json::field("id", &DTO::id),
                       json::field("startMs", &DTO::startMs), json::field("endMs", &DTO::endMs),
                       json::field("rect", &DTO::rect), json::field("color", &DTO::color),
                       json::field("opacity", &DTO::opacity));
  }
  bool operator==(const HighlightVideoEffectDTO&) const = default;
};

struct NumberVideoEffectDTO {
  VideoEditEffectKind kind = VideoEditEffectKind::number;
  std::string id;
  std::int64_t startMs = 0;
  std::int64_t endMs = 0;
  NormalizedVideoPointDTO center;
  std::int64_t value = 0;
  std::string color;

  static constexpr auto fields() {
    using DTO = NumberVideoEffectDTO;
    return json::table(json::field("kind", &DTO::kind), json::field("id", &DTO::id),
                       json::field("startMs", &DTO::startMs), json::field("endMs", &DTO::endMs),
                       json::field("center", &DTO::center), json::field("value", &DTO::value),
                       json::field("color", &DTO::color));
  }
  bool operator==(const NumberVideoEffectDTO&) const = default;
};

// Holds the picture of one moment of the source.
struct FreezeVideoEffectDTO {
  VideoEditEffectKind kind = VideoEditEffectKind::freeze;
  std::string id;
  std::int64_t startMs = 0;
  std::int64_t endMs = 0;
  std::int64_t sourceTimeMs = 0;

  static constexpr auto fields() {
    using DTO = FreezeVideoEffectDTO;
    return json::table(json::field("kind", &DTO::kind), json::field("id", &DTO::id),
                       json::field("startMs", &DTO::startMs), json::field("endMs", &DTO::endMs),
                       json::field("sourceTimeMs", &DTO::sourceTimeMs));
  }
  bool operator==(const FreezeVideoEffectDTO&) const = default;
};

// Draws the trace of pointer, clicks and shortcuts.
struct InteractionVideoEffectDTO {
  VideoEditEffectKind kind = VideoEditEffectKind::interaction;
  std::string id;
  std::int64_t startMs = 0;
  std::int64_t endMs = 0;
  std::string sourcePath; // of the trace; absolute
  bool visible = false;
  bool cursorVisible = false;
  double cursorSize = 1;
  std::string cursorColor;
  bool cursorShadow = false;
  bool clickVisible = false;
  InteractionClickStyleDTO clickStyle = InteractionClickStyleDTO::ring;
  std::string clickColor;
  bool dwellVisible = false;
  InteractionDwellStyleDTO dwellStyle = InteractionDwellStyleDTO::halo;
  std::int64_t dwellThresholdMs = 0;
  bool shortcutVisible = false;
  InteractionShortcutStyleDTO shortcutStyle = InteractionShortcutStyleDTO::dark;

  static constexpr auto fields() {
    using DTO = InteractionVideoEffectDTO;
    return json::table(
        json::field("kind", &DTO::kind), json::field("id", &DTO::id), json::field("startMs", &DTO::startMs),
        json::field("endMs", &DTO::endMs), json::field("sourcePath", &DTO::sourcePath),
        json::field("visible", &DTO::visible), json::field("cursorVisible", &DTO::cursorVisible),
        json::field("cursorSize", &DTO::cursorSize), json::field("cursorColor", &DTO::cursorColor),
        json::field("cursorShadow", &DTO::cursorShadow), json::field("clickVisible", &DTO::clickVisible),
        json::field("clickStyle", &DTO::clickStyle), json::field("clickColor", &DTO::clickColor),
        json::field("dwellVisible", &DTO::dwellVisible), json::field("dwellStyle", &DTO::dwellStyle),
        json::field("dwellThresholdMs", &DTO::dwellThresholdMs),
        json::field("shortcutVisible", &DTO::shortcutVisible),
        json::field("shortcutStyle", &DTO::shortcutStyle));
  }
  bool operator==(const InteractionVideoEffectDTO&) const = default;
};

// One of the ten. Keys that belong to another kind are ignored like unknown ones.
//
//   const auto zoom = VideoEditEffectDTO::make<VideoEditEffectKind::zoom>(record);
//   if (const ZoomVideoEffectDTO* record = effect.as<VideoEditEffectKind::zoom>())
struct VideoEditEffectDTO {
  // In the order of VideoEditEffectKind.
  using Record =
      std::variant<ZoomVideoEffectDTO, RedactionVideoEffectDTO, TextVideoEffectDTO, ArrowVideoEffectDTO,
                   ShapeVideoEffectDTO, ShapeVideoEffectDTO, HighlightVideoEffectDTO, NumberVideoEffectDTO,
                   FreezeVideoEffectDTO, InteractionVideoEffectDTO>;
  template<VideoEditEffectKind Kind>
  using RecordOf = std::variant_alternative_t<static_cast<std::size_t>(Kind), Record>;

  Record record;

  // The case decides what the effect is, whatever the record's own field says.
  template<VideoEditEffectKind Kind> static VideoEditEffectDTO make(RecordOf<Kind> of) {
    return {Record(std::in_place_index<static_cast<std::size_t>(Kind)>, std::move(of))};
  }
  VideoEditEffectKind kind() const { return static_cast<VideoEditEffectKind>(record.index()); }
  // The record of an effect of this kind, else null. Lives as long as the effect.
  template<VideoEditEffectKind Kind> const RecordOf<Kind>* as() const {
    return std::get_if<static_cast<std::size_t>(Kind)>(&record);
  }
  template<VideoEditEffectKind Kind> RecordOf<Kind>* as() {
    return std::get_if<static_cast<std::size_t>(Kind)>(&record);
  }

  const std::string& id() const;
  std::int64_t startMs() const;
  std::int64_t endMs() const;

  // Whether everything but id and times is within its bounds; the source's length limits what can be frozen.
  // Pure, any thread.
  bool payloadIsValid(std::int64_t sourceDurationMs) const;

  static VideoEditEffectDTO fromJson(const json::Value& value);
  void toJson(std::string& out) const;

  bool operator==(const VideoEditEffectDTO&) const = default;
};

} // namespace tessarin
