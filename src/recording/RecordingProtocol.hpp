#pragma once

#include "base/Json.hpp"
#include "model/Errors.hpp"
#include "model/RecordingCodec.hpp"
#include "recording/RecordingHealth.hpp"
#include "recording/RecordingModels.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// The three channels of a running recording: control lines in, event lines out, diagnostics lines beside
// them. Plain values and pure functions, any thread.
namespace tessarin {

// ---- Control lines

enum class RecordingProtocolError : std::uint8_t {
  lineTooLarge,
  malformedJSON,
  unsupportedSchema,
  invalidSession,
  staleSession
};

std::string_view messageOf(RecordingProtocolError error);

enum class RecordingControlAction : std::uint8_t { pause, resume, stop, cancel };
constexpr auto jsonNames(RecordingControlAction) {
  return json::names<RecordingControlAction>({{RecordingControlAction::pause, "pause"},
                                              {RecordingControlAction::resume, "resume"},
                                              {RecordingControlAction::stop, "stop"},
                                              {RecordingControlAction::cancel, "cancel"}});
}

struct RecordingControlCommand {
  static constexpr std::size_t maximumLineBytes = 65536;

  std::int64_t schemaVersion = 0;
  RecordingControlAction command = RecordingControlAction::pause;
  std::string sessionID;

  static constexpr auto fields() {
    return json::table(json::field("schemaVersion", &RecordingControlCommand::schemaVersion),
                       json::field("command", &RecordingControlCommand::command),
                       json::field("sessionId", &RecordingControlCommand::sessionID));
  }

  // Decodes one line, given without its line feed. With an expected session, the line's must be the same
  // text. The first check that fails is thrown as Failure<RecordingProtocolError>.
  static RecordingControlCommand decodeLine(std::string_view line,
                                            std::optional<std::string_view> expectedSessionID);

  bool operator==(const RecordingControlCommand&) const = default;
};

// ---- What a completed recording holds

struct CaptureSessionClock {
  std::optional<std::uint64_t> epochHostTimeNs;  // host clock at the first segment's first picture
  std::optional<std::int64_t> captureDurationMs; // from there to the stop; never less than the program
  std::int64_t programDurationMs = 0;            // active time without pauses

  static constexpr auto fields() {
    return json::table(json::field("epochHostTimeNs", &CaptureSessionClock::epochHostTimeNs),
                       json::field("captureDurationMs", &CaptureSessionClock::captureDurationMs),
                       json::field("programDurationMs", &CaptureSessionClock::programDurationMs));
  }
  bool operator==(const CaptureSessionClock&) const = default;
};

enum class CaptureTrackKind : std::uint8_t {
  screenVideo,
  cameraVideo,
  systemAudio,
  microphoneAudio,
  interactionEvents,
  sensorData
};
constexpr auto jsonNames(CaptureTrackKind) {
  using enum CaptureTrackKind;
  return json::names<CaptureTrackKind>({{screenVideo, "screenVideo"},
                                        {cameraVideo, "cameraVideo"},
                                        {systemAudio, "systemAudio"},
                                        {microphoneAudio, "microphoneAudio"},
                                        {interactionEvents, "interactionEvents"},
                                        {sensorData, "sensorData"}});
}

enum class CaptureTrackMediaType : std::uint8_t { video, audio, data };
constexpr auto jsonNames(CaptureTrackMediaType) {
  return json::names<CaptureTrackMediaType>({{CaptureTrackMediaType::video, "video"},
                                             {CaptureTrackMediaType::audio, "audio"},
                                             {CaptureTrackMediaType::data, "data"}});
}

// A finished file as its check has found it.
struct CaptureFile {
  std::string path; // absolute
  std::int64_t durationMs = 0;
  std::int64_t sizeBytes = 0;
};

struct CaptureTrackPayload {
  std::string id;
  CaptureTrackKind kind = CaptureTrackKind::screenVideo;
  CaptureTrackMediaType mediaType = CaptureTrackMediaType::video;
  std::string path; // absolute
  std::int64_t durationMs = 0;
  std::int64_t sizeBytes = 0;
  std::optional<std::int64_t> widthPixels;
  std::optional<std::int64_t> heightPixels;
  std::optional<RecordingCodec> codec;
  std::optional<std::int64_t> sampleRateHz;
  std::optional<std::int64_t> channelCount;

  static constexpr auto fields() {
    using Payload = CaptureTrackPayload;
    return json::table(
        json::field("id", &Payload::id), json::field("kind", &Payload::kind),
        json::field("mediaType", &Payload::mediaType), json::field("path", &Payload::path),
        json::field("durationMs", &Payload::durationMs), json::field("sizeBytes", &Payload::sizeBytes),
        json::field("widthPixels", &Payload::widthPixels),
        json::field("heightPixels", &Payload::heightPixels), json::field("codec", &Payload::codec),
        json::field("sampleRateHz", &Payload::sampleRateHz),
        json::field("channelCount", &Payload::channelCount));
  }

  // The tracks that a session can have, in the order in which a completed event lists them. Sizes in pixels.
  static CaptureTrackPayload screen(const CaptureFile& file, std::int64_t width, std::int64_t height,
                                    RecordingCodec codec);
  static CaptureTrackPayload camera(const CaptureFile& file, std::int64_t width, std::int64_t height,
                                    RecordingCodec codec);
  static CaptureTrackPayload systemAudio(const CaptureFile& file);
  static CaptureTrackPayload microphone(const CaptureFile& file);
  static CaptureTrackPayload interactionEvents(const CaptureFile& file);

  bool operator==(const CaptureTrackPayload&) const = default;
};

enum class CaptureDeliverableKind : std::uint8_t { shareVideo };
constexpr auto jsonNames(CaptureDeliverableKind) {
  return json::names<CaptureDeliverableKind>({{CaptureDeliverableKind::shareVideo, "shareVideo"}});
}

struct CaptureDeliverablePayload {
  std::string id;
  CaptureDeliverableKind kind = CaptureDeliverableKind::shareVideo;
  std::string path; // absolute
  std::int64_t durationMs = 0;
  std::int64_t sizeBytes = 0;
  std::int64_t widthPixels = 0;
  std::int64_t heightPixels = 0;
  RecordingCodec codec = RecordingCodec::h264;

  static constexpr auto fields() {
    using Payload = CaptureDeliverablePayload;
    return json::table(
        json::field("id", &Payload::id), json::field("kind", &Payload::kind),
        json::field("path", &Payload::path), json::field("durationMs", &Payload::durationMs),
        json::field("sizeBytes", &Payload::sizeBytes), json::field("widthPixels", &Payload::widthPixels),
        json::field("heightPixels", &Payload::heightPixels), json::field("codec", &Payload::codec));
  }

  static CaptureDeliverablePayload shareVideo(const CaptureFile& file, std::int64_t width,
                                              std::int64_t height, RecordingCodec codec);

  bool operator==(const CaptureDeliverablePayload&) const = default;
};

// ---- Events

// One event of a session: what has happened, and in which session. On the wire it is one flat object.
struct RecordingEvent {
  struct HealthChanged {
    static constexpr std::string_view name = "healthChanged";
    RecordingHealth health;

    static constexpr auto fields() { return json::table(json::field("health", &HealthChanged::health)); }
    bool operator==(const HealthChanged&) const = default;
  };

  struct StateChanged {
    static constexpr std::string_view name = "stateChanged";
    RecordingPhase phase = RecordingPhase::idle;
    std::int64_t activeDurationMs = 0;

    static constexpr auto fields() {
      return json::table(json::field("phase", &StateChanged::phase),
                         json::field("activeDurationMs", &StateChanged::activeDurationMs));
    }
    bool operator==(const StateChanged&) const = default;
  };

  struct Completed {
    static constexpr std::string_view name = "completed";
    CaptureSessionClock clock;
    std::vector<CaptureTrackPayload> tracks;
    std::vector<CaptureDeliverablePayload> deliverables;

    static constexpr auto fields() {
      return json::table(json::field("clock", &Completed::clock), json::field("tracks", &Completed::tracks),
                         json::field("deliverables", &Completed::deliverables));
    }
    bool operator==(const Completed&) const = default;
  };

  struct SegmentFinalized {
    static constexpr std::string_view name = "segmentFinalized";
    std::int64_t index = 0;
    std::string path; // absolute
    std::int64_t durationMs = 0;
    std::int64_t sizeBytes = 0;
    std::int64_t activeDurationMs = 0; // of the session up to this segment's end

    static constexpr auto fields() {
      return json::table(json::field("index", &SegmentFinalized::index),
                         json::field("path", &SegmentFinalized::path),
                         json::field("durationMs", &SegmentFinalized::durationMs),
                         json::field("sizeBytes", &SegmentFinalized::sizeBytes),
                         json::field("activeDurationMs", &SegmentFinalized::activeDurationMs));
    }
    bool operator==(const SegmentFinalized&) const = default;
  };

  struct Failed {
    static constexpr std::string_view name = "failed";
    NativeErrorPayload error;

    static constexpr auto fields() { return json::table(json::field("error", &Failed::error)); }
    bool operator==(const Failed&) const = default;
  };

  struct Cancelled {
    static constexpr std::string_view name = "cancelled";

    static constexpr auto fields() { return json::table(); }
    bool operator==(const Cancelled&) const = default;
  };

  std::string sessionID;
  std::variant<HealthChanged, StateChanged, Completed, SegmentFinalized, Failed, Cancelled> what;

  // The event's JSON and a line feed. Throws json::EncodingFailure for text that is not UTF-8.
  std::string encodedLine() const;

  bool operator==(const RecordingEvent&) const = default;
};

// ---- Diagnostics lines, without their line feeds

// The stage of a session that stands in the line of its failure; set before what it names.
namespace RecordingStage {
inline constexpr std::string_view prepareRequest = "prepare-request";
inline constexpr std::string_view shareableContent = "shareable-content";
inline constexpr std::string_view validateTarget = "validate-target";
inline constexpr std::string_view cameraStart = "camera-start";
inline constexpr std::string_view cameraOverlay = "camera-overlay";
inline constexpr std::string_view microphoneStart = "microphone-start";
inline constexpr std::string_view excludeRecordingOverlays = "exclude-recording-overlays";
inline constexpr std::string_view prepareOutput = "prepare-output";
inline constexpr std::string_view interactionRecorder = "interaction-recorder";
inline constexpr std::string_view prepareWriter = "prepare-writer";
inline constexpr std::string_view startCapture = "start-capture";
inline constexpr std::string_view recordingControl = "recording-control";
inline constexpr std::string_view pauseFinalize = "pause-finalize";
inline constexpr std::string_view resumeStart = "resume-start";
inline constexpr std::string_view stopFinalize = "stop-finalize";
inline constexpr std::string_view stopStream = "stop-stream";
inline constexpr std::string_view stopParallelMerge = "stop-parallel-merge";
inline constexpr std::string_view stopParallelValidate = "stop-parallel-validate";
inline constexpr std::string_view stopInteractions = "stop-interactions";
inline constexpr std::string_view stopCompleteEvent = "stop-complete-event";
inline constexpr std::string_view cancel = "cancel";
inline constexpr std::string_view unexpectedStreamStop = "unexpected-stream-stop";
} // namespace RecordingStage

std::string recordingFailedLine(std::string_view stage, NativeErrorCode code);

// The stop of a stream that was waited for only after the completed event. Milliseconds; 0 when unknown.
std::string recordingStreamStopSummaryLine(std::uint64_t streamStopMs, bool streamStopFailed);

// What a stop notes on its way. Times of day are nanoseconds of the host clock, the rest milliseconds.
struct RecordingStopDiagnostics {
  std::uint64_t startedAt = 0; // when the command was read
  std::uint64_t writerFinishMs = 0;
  std::uint64_t segmentValidationMs = 0;
  std::optional<std::uint64_t> streamStopMs; // absent: the stream's stop has not ended yet
  std::uint64_t microphoneStopMs = 0;
  std::uint64_t outputRemovalMs = 0;
  std::uint64_t audioDrainMs = 0;
  std::uint64_t writerQueueDrainMs = 0;
  std::uint64_t mergeStartedAt = 0;
  std::uint64_t mergeEndedAt = 0;
  std::uint64_t validationEndedAt = 0;

  std::string summaryLine(std::uint64_t now) const;
};

// Whole milliseconds from one time of the host clock to a later one, in nanoseconds; 0 when it is earlier.
std::uint64_t elapsedMilliseconds(std::uint64_t fromNanoseconds, std::uint64_t toNanoseconds);

// What a segment's writer reports of itself when the segment has ended. A drift is "missing" or two
// numbers of milliseconds, "late/short".
struct RecordingSummary {
  std::int64_t startupMs = 0;
  std::int64_t videoDeliveryPermille = 0;
  std::int64_t maxAudioQueueMs = 0;
  std::string systemAudioDriftMs = "missing";
  std::string microphoneDriftMs = "missing";
  std::string cameraDriftMs = "missing";
  std::int64_t screenFrames = 0;
  std::int64_t cameraFrames = 0;

  std::string line() const;
};

} // namespace tessarin
