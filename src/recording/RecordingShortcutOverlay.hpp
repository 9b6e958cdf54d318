#pragma once

#include "base/MediaTime.hpp"
#include "ports/Panels.hpp"
#include "presentation/ShortcutBadgeRenderer.hpp"
#include "recording/RecordingOverlays.hpp"
#include "trace/RecordingShortcutUpdate.hpp"

#include <cstdint>
#include <memory>
#include <optional>

namespace tessarin {

// The badge that shows a recorded shortcut over the captured region for a while. The pointer goes through
// it, and it is no part of the recording. Confined to the main queue.
class RecordingShortcutOverlay {
 public:
  // Points, global. Shows nothing yet. Throws contentUnavailable when there can be no window.
  RecordingShortcutOverlay(RecordingOverlayEnvironment environment, const RectDTO& captureRect);

  // Nothing once it is closed.
  std::optional<std::uint32_t> windowID() const;

  // Shows or takes down what the update says. One that is no newer than the last is ignored, and so is
  // every one once the overlay is closed.
  void receive(const RecordingShortcutUpdate& update);
  // Takes the badge down when its time is over, or when what is typed now is secret.
  void refresh();
  void clear();
  // Takes the panel away. Idempotent.
  void close();

 private:
  bool mayShow(const RecordingShortcutUpdate& update) const;
  void show(const ShortcutBadgeRenderer::Badge& badge, MediaTime expiresAt);
  RectDTO emptyFrame() const;

  const RecordingOverlayEnvironment environment_;
  const ShortcutBadgeRenderer renderer_;
  const RectDTO captureRect_;
  std::uint64_t revision_ = 0;         // of the newest update
  std::optional<MediaTime> expiresAt_; // host time; while a badge is shown
  std::unique_ptr<Panel> panel_;       // null once closed
  std::unique_ptr<QueueTimer> timer_;  // calls refresh() at the expiry
};

} // namespace tessarin
