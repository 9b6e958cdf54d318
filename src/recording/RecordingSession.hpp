#pragma once

#include "base/BackgroundTask.hpp"
#include "recording/CameraCompositeRecorder.hpp"
#include "recording/ControlInput.hpp"
#include "recording/RecordingConfiguration.hpp"
#include "recording/RecordingDeliverables.hpp"
#include "recording/RecordingEventWriter.hpp"
#include "recording/RecordingHealthMonitor.hpp"
#include "recording/RecordingModels.hpp"
#include "recording/RecordingOverlays.hpp"
#include "recording/RecordingProtocol.hpp"
#include "recording/RecordingSegmentStore.hpp"
#include "recording/RecordingService.hpp"
#include "recording/RecordingSources.hpp"
#include "recording/RecordingStream.hpp"
#include "recording/RecordingStreamStopDelegate.hpp"
#include "trace/InteractionEventRecorder.hpp"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

namespace tessarin {

// The segment that is being written.
struct ActiveRecordingSegment {
  PendingRecordingSegment pending;
  std::unique_ptr<CameraCompositeRecorder> writer;
  std::size_t expectedVideoTrackCount = 1;
  std::size_t expectedAudioTrackCount = 0;
  std::int64_t frameRate = 30;

  // Whole milliseconds written so far; 0 before the first frame.
  std::int64_t recordedMilliseconds() const;
};

// A segment that has joined the manifest. Milliseconds.
struct FinalizedRecordingSegment {
  std::int64_t durationMs = 0;
  std::uint64_t writerFinishMs = 0;
  std::uint64_t segmentValidationMs = 0;
};

// What a session works with. Everything referred to outlives it.
struct RecordingSessionParts {
  const RecordingEnvironment& environment;
  const RecordingRequestDTO& request;
  const RecordingConfigurationPlan& plan;
  RecordingEventWriter& events;
  RecordingHealthMonitor& health;
  const RecordingSources& sources;
  RecordingOverlays& overlays;
  InteractionEventRecorder* interactions; // null without a trace
  RecordingSegmentStore& store;
  std::shared_ptr<RecordingStreamStopDelegate> stopDelegate;
};

// One running recording, from its stream on: what it holds, and the steps that control lines ask for.
// Confined to the thread that runs the recording. Every step throws what goes wrong in it and leaves its
// name in the stage.
//
// What a step waits for is bounded by whoever is waited for: the first picture of a segment by startTimeout,
// devices, the screen's stream, the watching of input and the main thread with its panels by their ports, a
// host that reads no events by RecordingEventWriter::hostPatience, which is also how long a stop of the
// health monitor can take. Only the disk has no bound: a segment's file is closed, the camera's way is saved,
// and files are joined and checked, however slow it is.
class RecordingSession {
 public:
  static constexpr std::chrono::seconds startTimeout{5};

  // Keeps the name of its present step in the stage.
  RecordingSession(RecordingSessionParts parts, std::unique_ptr<RecordingStream> stream,
                   std::string_view& stage);
  // Drops a segment that is still being written, and ends the stream and the watch.
  ~RecordingSession();
  RecordingSession(const RecordingSession&) = delete;
  RecordingSession& operator=(const RecordingSession&) = delete;

  // Makes the first segment and brings it to its first frame, which fixes the session's epoch.
  void start();
  // Serves control lines until one of them ends the session. Throws also when the lines end.
  void serveControlLines(ControlInput& input);
  // Behind a failure of serveControlLines(): keeps what was recorded. Never throws.
  void salvage() noexcept;

 private:
  ActiveRecordingSegment makeSegment();
  void pause();
  void resume();
  void stop();
  void cancel();

  // From the epoch of a segment on, what the user does is written down.
  void startTrace(std::uint64_t epochHostTimeNs);
  void pauseTrace();

  FinalizedRecordingSegment finalize(bool outputAlreadyDetached);
  void stopCapture();
  void stopCaptureQuietly() noexcept;
  void startHealth();
  void writeState(RecordingPhase phase, std::int64_t activeDurationMs);
  void write(decltype(RecordingEvent::what) what);

  // The parts of stop().
  void finishLastSegment(RecordingStopDiagnostics& diagnostics);
  void stopStreamOfPausedSession();
  void stopCaptureInBackground();
  std::optional<CaptureTrackPayload> finishTrace(std::int64_t programDurationMs);
  RecordingEvent::Completed completedEvent(const RecordingDeliverables& deliverables,
                                           const std::optional<CaptureTrackPayload>& trace,
                                           std::uint64_t stopHostTimeNs) const;
  void reportDeferredStreamStop();

  std::uint64_t now() const;

  const RecordingSessionParts parts_;
  std::string_view& stage_;

  const std::unique_ptr<RecordingStream> stream_;
  std::optional<ActiveRecordingSegment> active_; // absent while paused
  std::int64_t accumulatedDurationMs_ = 0;       // of all finalised segments
  std::uint64_t epochHostTimeNs_ = 0;            // host time of the first segment's first frame
  bool isCapturing_ = false;
  std::optional<BackgroundTask<std::uint64_t>> streamStop_;
};

} // namespace tessarin
