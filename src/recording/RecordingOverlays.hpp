#pragma once

#include "base/FileSystem.hpp"
#include "base/HostClock.hpp"
#include "base/SerialQueue.hpp"
#include "desktop/WindowCaptureActivator.hpp"
#include "ports/Desktop.hpp"
#include "ports/InteractionEvents.hpp"
#include "ports/Panels.hpp"
#include "ports/Typesetting.hpp"
#include "recording/CameraOverlaySource.hpp"
#include "recording/RecordingConfiguration.hpp"
#include "recording/RecordingModels.hpp"
#include "trace/RecordingShortcutUpdate.hpp"

#include <cstdint>
#include <functional>
#include <memory>

namespace tessarin {

class RecordingCameraOverlay;
class RecordingShortcutOverlay;

// What panels need of the machine. Everything referred to outlives them.
struct RecordingOverlayEnvironment {
  DesktopContent& desktop;
  InteractionSource& interactions; // is what is typed secret
  PanelFactory& panels;
  TextTypesetter& typesetter;
  FileSystem& files;
  const HostClock& clock;
  SerialQueue& mainQueue; // the main thread
  Sleeper sleep;          // the session's thread, while the desktop is looked at
};

// The panels of a session: the camera's picture and the badges of shortcuts, as far as its settings ask for
// them. Called on the session's thread; the panels live on the main queue, to which every call hops and,
// unless it says otherwise, waits for it. Without a panel its calls do nothing.
class RecordingOverlays {
 public:
  explicit RecordingOverlays(RecordingOverlayEnvironment environment);
  // As close().
  ~RecordingOverlays();
  RecordingOverlays(const RecordingOverlays&) = delete;
  RecordingOverlays& operator=(const RecordingOverlays&) = delete;

  // The handler is called once, on the main queue, when the layout cannot be kept any more; it must not
  // block. Throws outputFailed, and contentUnavailable when there can be no window.
  void showCamera(CameraOverlaySource& source, const RecordingRequestDTO& request,
                  const RecordingConfigurationPlan& plan, std::function<void()> failureHandler);
  // Throws contentUnavailable when there can be no window.
  void showShortcuts(const RectDTO& captureRect);

  bool isEmpty() const { return !camera_ && !shortcuts_; }
  // The application that owns the panels, as the desktop knows it. Throws contentUnavailable when it cannot
  // be found within eight looks.
  RunningApplication captureExclusionApplication();

  // Any thread; does not wait.
  void receive(const RecordingShortcutUpdate& update);

  // From the segment's epoch on, the camera's places count from the active duration.
  void startSegment(std::int64_t activeDurationMs, std::uint64_t epochHostTimeNs);
  // The camera may still be moved, which is written down no longer; its layout is saved.
  void pauseCamera();
  void clearShortcuts();
  // Saves the layout up to that active time. Throws outputFailed when it is not whole.
  void finishCamera(std::int64_t activeDurationMs);
  void closeCamera();
  // Ends the panels. Idempotent.
  void close() noexcept;

 private:
  const RecordingOverlayEnvironment environment_;
  // Made and used on the main queue; shared with the calls that receive() leaves there.
  std::shared_ptr<RecordingCameraOverlay> camera_;
  std::shared_ptr<RecordingShortcutOverlay> shortcuts_;
};

} // namespace tessarin
