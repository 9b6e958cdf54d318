#pragma once

#include "base/HostClock.hpp"
#include "base/SerialQueue.hpp"
#include "model/Geometry.hpp"
#include "model/VideoGeometry.hpp"
#include "ports/InteractionEvents.hpp"
#include "trace/InteractionEventDTO.hpp"
#include "trace/InteractionTraceWriter.hpp"
#include "trace/RecordingShortcutUpdate.hpp"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace tessarin {

class FileSystem;

struct InteractionRecorderSetup {
  std::string outputDirectory;
  RectDTO captureRect; // global coordinates, points
  bool recordsCursor = false;
  bool recordsClicks = false;
  bool recordsShortcuts = false;
  bool cursorRenderedInSource = false; // the recorded picture shows the pointer already
  // Called without a lock, on whichever thread an update comes from, so that updates may overtake each other;
  // their revisions tell. Must not block. May call the recorder, but not destroy it.
  std::function<void(const RecordingShortcutUpdate&)> shortcutHandler;
};

// Writes what the user does while a session records to the trace in the session's directory: the pointer's
// path and clicks inside the capture rectangle, and shortcuts, never typed text. The trace counts active
// recording time, so that it stays in step with the merged video over pauses; while no segment runs, nothing
// is written. Created, then observing, segments with pauses between, then stopped for good.
//
// Methods on any thread; the pointer is read on a queue of the recorder's own. Not to be destroyed on that
// queue or in a handler.
class InteractionEventRecorder {
 public:
  // Source, clock and file system outlive the recorder. Throws outputFailed when the file exists already or
  // cannot be made.
  InteractionEventRecorder(InteractionRecorderSetup setup, InteractionSource& source, const HostClock& clock,
                           FileSystem& files, const QueueFactory& makeQueue);
  // As stop().
  ~InteractionEventRecorder();

  // Begins to look, once. Throws interactionPermissionDenied when shortcuts are wanted and this session may
  // not watch the keyboard, and recordingFailed the second time or after stop().
  void startObserving();

  // Recording is on from here. The time counts from the segment's epoch, or from now without one, and goes on
  // at the active duration. Nothing after stop().
  void startSegment(std::int64_t activeDurationMs, std::optional<std::uint64_t> epochHostTimeNs);
  // Recording is off from here.
  void pauseSegment();

  // Nothing is watched or written any more, and the file is closed. Idempotent.
  void stop();
  // As stop(), and throws outputFailed when the trace is not whole: a bound was hit or the disk failed.
  void finish();

  // What monitors hand in; also for sources that have no monitor.
  void recordClick(const ButtonPress& press);
  void recordShortcut(const KeyPress& press);

 private:
  struct Segment {
    std::int64_t baseMs = 0; // active time at its start
    MediaTime epoch;         // host time at which that was
    MediaTime begunAt;       // presses stamped with a later host time are recorded
  };
  struct LastCursor {
    NormalizedVideoPointDTO point;
    std::int64_t timestampMs = 0;
  };
  struct LastClick {
    InteractionMouseButton button = InteractionMouseButton::left;
    NormalizedVideoPointDTO point;
    std::int64_t timestampMs = 0;
  };
  using Buttons = std::array<bool, interactionMouseButtonCount>;

  bool readsPointer() const { return setup_.recordsCursor || setup_.recordsClicks; }
  void tick();
  std::optional<NormalizedVideoPointDTO> place(const PointerLocation& location) const;
  MediaTime momentOf(MediaTime hostTime) const;
  void installTimer();

  // With lock_ held.
  std::int64_t timestampMsLocked(MediaTime moment) const;
  Buttons clickedLocked(const PointerState& reading);
  void sampleClicksLocked(const PointerState& reading);
  void sampleCursorLocked(const PointerState& reading, bool isForced);
  void filterClickLocked(InteractionMouseButton button, const NormalizedVideoPointDTO& point,
                         std::int64_t timestampMs);
  bool showsUpdates() const { return setup_.recordsShortcuts && setup_.shortcutHandler; }
  std::optional<RecordingShortcutUpdate> clearingUpdateLocked();
  std::optional<RecordingShortcutUpdate> shortcutUpdateLocked(std::vector<std::string> keys,
                                                              MediaTime moment);
  // Without it.
  void send(const std::optional<RecordingShortcutUpdate>& update) const;

  const InteractionRecorderSetup setup_;
  InteractionSource& source_;
  const HostClock& clock_;

  std::mutex lock_;
  // Guarded by lock_.
  InteractionTraceWriter writer_;
  std::optional<Segment> segment_; // absent: not recording now
  std::uint64_t segmentNumber_ = 0;
  std::optional<LastCursor> lastCursor_;
  std::optional<LastClick> lastClick_;
  std::optional<PointerState> previousButtons_; // absent: not known, the next reading is the first
  std::uint64_t shortcutRevision_ = 0;
  bool stopped_ = false;
  bool monitoringStarted_ = false;
  std::unique_ptr<QueueTimer> cursorTimer_;
  std::unique_ptr<InteractionMonitor> eventMonitor_; // stays when stopped, to be waited for at the end

  const std::unique_ptr<SerialQueue> queue_; // null when the pointer is not read
};

} // namespace tessarin
