#pragma once

#include "base/Json.hpp"
#include "model/Interaction.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

// The records of an interaction trace: one JSON object for each thing that the user did, told apart by its
// "kind". Times are milliseconds of active recording time, pauses left out. Plain values.
namespace tessarin {

enum class InteractionEventKind : std::uint8_t { cursor, click, shortcut };
constexpr auto jsonNames(InteractionEventKind) {
  return json::names<InteractionEventKind>({{InteractionEventKind::cursor, "cursor"},
                                            {InteractionEventKind::click, "click"},
                                            {InteractionEventKind::shortcut, "shortcut"}});
}

// Where the origin of x and y lies. Traces without it count y upwards from the bottom.
enum class InteractionCoordinateSpace : std::uint8_t { captureTopLeft };
constexpr auto jsonNames(InteractionCoordinateSpace) {
  return json::names<InteractionCoordinateSpace>(
      {{InteractionCoordinateSpace::captureTopLeft, "captureTopLeft"}});
}

enum class InteractionCursorRendering : std::uint8_t { source }; // the pointer is part of the picture already
constexpr auto jsonNames(InteractionCursorRendering) {
  return json::names<InteractionCursorRendering>({{InteractionCursorRendering::source, "source"}});
}

struct InteractionCursorEvent {
  InteractionEventKind kind = InteractionEventKind::cursor;
  std::int64_t timestampMs = 0;
  double x = 0; // fractions of the capture rectangle
  double y = 0;
  std::optional<InteractionCoordinateSpace> coordinateSpace;
  std::optional<InteractionCursorRendering> cursorRendering;

  static constexpr auto fields() {
    using This = InteractionCursorEvent;
    return json::table(json::field("kind", &This::kind), json::field("timestampMs", &This::timestampMs),
                       json::field("x", &This::x), json::field("y", &This::y),
                       json::field("coordinateSpace", &This::coordinateSpace),
                       json::field("cursorRendering", &This::cursorRendering));
  }
  bool operator==(const InteractionCursorEvent&) const = default;
};

struct InteractionClickEvent {
  InteractionEventKind kind = InteractionEventKind::click;
  std::int64_t timestampMs = 0;
  double x = 0;
  double y = 0;
  InteractionMouseButton button = InteractionMouseButton::left;
  std::optional<InteractionCoordinateSpace> coordinateSpace;

  static constexpr auto fields() {
    using This = InteractionClickEvent;
    return json::table(json::field("kind", &This::kind), json::field("timestampMs", &This::timestampMs),
                       json::field("x", &This::x), json::field("y", &This::y),
                       json::field("button", &This::button),
                       json::field("coordinateSpace", &This::coordinateSpace));
  }
  bool operator==(const InteractionClickEvent&) const = default;
};

struct InteractionShortcutEvent {
  InteractionEventKind kind = InteractionEventKind::shortcut;
  std::int64_t timestampMs = 0;
  std::vector<std::string> keys; // modifiers, then the key

  static constexpr auto fields() {
    using This = InteractionShortcutEvent;
    return json::table(json::field("kind", &This::kind), json::field("timestampMs", &This::timestampMs),
                       json::field("keys", &This::keys));
  }
  bool operator==(const InteractionShortcutEvent&) const = default;
};

// One of the three. Keys that belong to another kind are ignored like unknown ones.
struct InteractionEventDTO {
  std::variant<InteractionCursorEvent, InteractionClickEvent, InteractionShortcutEvent> event;

  std::int64_t timestampMs() const;
  InteractionEventDTO at(std::int64_t timestampMs) const; // the same at another time

  static InteractionEventDTO fromJson(const json::Value& value);
  void toJson(std::string& out) const;

  bool operator==(const InteractionEventDTO&) const = default;
};

} // namespace tessarin
