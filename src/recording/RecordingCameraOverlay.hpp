#pragma once

#include "ports/Panels.hpp"
#include "presentation/CameraPresentationRenderer.hpp"
#include "recording/CameraOverlaySource.hpp"
#include "recording/CameraOverlayView.hpp"
#include "recording/RecordedCameraLayout.hpp"
#include "recording/RecordingConfiguration.hpp"
#include "recording/RecordingModels.hpp"
#include "recording/RecordingOverlays.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tessarin {

// The camera's picture on a panel over the desktop, where a person may move it, and the file of the session
// that keeps its way over time. The panel is no part of the recording. Confined to the main queue.
class RecordingCameraOverlay {
 public:
  // Creates the layout's file, which must not be there yet, and shows the panel. Throws outputFailed, or
  // contentUnavailable when there can be no window, and then leaves neither. The source outlives the
  // overlay, or its closing. The handler is called once, when the layout cannot be kept any more; it must
  // not close the overlay, nor block.
  RecordingCameraOverlay(RecordingOverlayEnvironment environment, CameraOverlaySource& source,
                         const RecordingRequestDTO& request, const RecordingConfigurationPlan& plan,
                         std::function<void()> failureHandler);

  // Nothing once it is closed.
  std::optional<std::uint32_t> windowID() const;

  // From that host time on, a move counts from the active duration, in milliseconds. The present place is
  // the first one of the segment.
  void startSegment(std::int64_t activeDurationMs, std::uint64_t epochHostTimeNs);
  // The panel may still be moved, but not the recorded place. Saves the layout.
  void pauseSegment();
  // Ends the segment and saves the layout up to that active time. Throws outputFailed when that fails, or
  // anything before has failed.
  void finish(std::int64_t durationMs);
  // Takes the panel away; the layout can still be finished. Idempotent.
  void close();

  // Points, to the right and downwards; the panel stays within the capture. Nothing once the overlay has
  // failed.
  void move(const PointerLocation& delta);
  // Shows the camera's newest picture, unless the panel shows it already.
  void refresh();

 private:
  std::optional<std::int64_t> activeTimeNow() const;
  void appendPosition(std::int64_t timeMs);
  void persistSoon();
  void persistOrFail();
  void failOnce();
  void createFile();
  // Both throw outputFailed.
  std::string encodedLayout() const;
  void write(const std::string& text);
  void showPanel();
  void placePanel();
  RectDTO panelFrame() const;
  bool isShown(const Picture& frame, const SizeDTO& pixels) const;

  const RecordingOverlayEnvironment environment_;
  CameraOverlaySource& source_;
  const RectDTO captureRect_; // points, global
  const std::string filePath_;
  RecordedCameraLayout layout_;
  std::function<void()> failureHandler_; // empty once it was called
  bool failed_ = false;                  // for good

  // Of the running segment; absent while there is none.
  std::optional<std::uint64_t> segmentEpochNs_;
  std::int64_t baseMs_ = 0;

  CameraPresentationRenderer renderer_;
  // What the panel shows: the camera's picture, kept so that no other can take its place in memory, and the
  // panel's size in pixels.
  Picture shownFrame_;
  SizeDTO shownPixels_;
  CameraOverlayView view_;
  std::unique_ptr<Panel> panel_;      // null once closed; calls the view
  std::unique_ptr<QueueTimer> timer_; // calls refresh()
  std::unique_ptr<QueueTimer> save_;  // calls persistOrFail(); while a save is due
};

} // namespace tessarin
