#pragma once

#include "model/VideoGeometry.hpp"
#include "trace/InteractionEventDTO.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tessarin {

// Points have their origin at the top left, whatever the event said.
struct InteractionCursorSample {
  std::int64_t timestampMs = 0;
  NormalizedVideoPointDTO point;
  std::optional<InteractionCursorRendering> rendering;

  bool operator==(const InteractionCursorSample&) const = default;
};

struct InteractionClickSample {
  std::int64_t timestampMs = 0;
  NormalizedVideoPointDTO point;
  InteractionMouseButton button = InteractionMouseButton::left;

  bool operator==(const InteractionClickSample&) const = default;
};

struct InteractionShortcutSample {
  std::int64_t timestampMs = 0;
  std::vector<std::string> keys;

  bool operator==(const InteractionShortcutSample&) const = default;
};

// What of the trace shows at one moment.
struct InteractionOverlayState {
  std::optional<InteractionCursorSample> cursor;
  std::optional<InteractionClickSample> click;
  bool dwelling = false; // the pointer has rested
  std::optional<InteractionShortcutSample> shortcut;

  bool operator==(const InteractionOverlayState&) const = default;
};

// The events of a trace, to be asked for each picture. Immutable after construction, so readable from any
// number of threads.
class InteractionEventIndex {
 public:
  InteractionEventIndex() = default;
  // Events in order of time.
  explicit InteractionEventIndex(const std::vector<InteractionEventDTO>& events);

  const std::vector<InteractionCursorSample>& cursors() const { return cursors_; }
  const std::vector<InteractionClickSample>& clicks() const { return clicks_; }
  const std::vector<InteractionShortcutSample>& shortcuts() const { return shortcuts_; }

  // The last time that is not later; nothing when there is none. Times are in order.
  static std::optional<std::size_t> lastIndex(std::int64_t atOrBefore, std::span<const std::int64_t> times);

  // The pointer of the last 750 ms, the click of the last 649 and the shortcut of the last 1499, each the
  // newest; dwelling when the pointer has kept within a radius of 0.006 for at least `dwellThresholdMs`.
  InteractionOverlayState state(std::int64_t atMs, std::int64_t dwellThresholdMs) const;

 private:
  bool isDwelling(std::optional<std::size_t> last, std::int64_t sinceMs) const;

  std::vector<InteractionCursorSample> cursors_;
  std::vector<InteractionClickSample> clicks_;
  std::vector<InteractionShortcutSample> shortcuts_;
  // The same times in the same order, close together for the search.
  std::vector<std::int64_t> cursorTimes_;
  std::vector<std::int64_t> clickTimes_;
  std::vector<std::int64_t> shortcutTimes_;
};

} // namespace tessarin
