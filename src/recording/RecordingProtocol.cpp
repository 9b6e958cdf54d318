#include "recording/RecordingProtocol.hpp"

#include "base/Diagnostics.hpp"
#include "base/Failure.hpp"
#include "base/Text.hpp"

#include <tuple>

namespace tessarin {

namespace {

constexpr std::int64_t protocolSchemaVersion = 2;
constexpr std::int64_t audioSampleRateHz = 48000;
constexpr std::int64_t audioChannelCount = 2;
constexpr std::uint64_t nanosecondsPerMillisecond = 1'000'000;

// An event's own keys and the ones that every event has, as one flat record.
template<class Body> struct EventLine : Body {
  std::int64_t schemaVersion;
  std::string_view event;
  std::string_view sessionID;

  static constexpr auto fields() {
    return std::tuple_cat(json::table(json::field("schemaVersion", &EventLine::schemaVersion),
                                      json::field("event", &EventLine::event),
                                      json::field("sessionId", &EventLine::sessionID)),
                          Body::fields());
  }
};

CaptureTrackPayload trackPayload(std::string id, CaptureTrackKind kind, CaptureTrackMediaType mediaType,
                                 const CaptureFile& file) {
  CaptureTrackPayload track;
  track.id = std::move(id);
  track.kind = kind;
  track.mediaType = mediaType;
  track.path = file.path;
  track.durationMs = file.durationMs;
  track.sizeBytes = file.sizeBytes;
  return track;
}

CaptureTrackPayload videoTrack(std::string id, CaptureTrackKind kind, const CaptureFile& file,
                               std::int64_t width, std::int64_t height, RecordingCodec codec) {
  CaptureTrackPayload track = trackPayload(std::move(id), kind, CaptureTrackMediaType::video, file);
  track.widthPixels = width;
  track.heightPixels = height;
  track.codec = codec;
  return track;
}

CaptureTrackPayload audioTrack(std::string id, CaptureTrackKind kind, const CaptureFile& file) {
  CaptureTrackPayload track = trackPayload(std::move(id), kind, CaptureTrackMediaType::audio, file);
  track.sampleRateHz = audioSampleRateHz;
  track.channelCount = audioChannelCount;
  return track;
}

} // namespace

std::string_view messageOf(RecordingProtocolError error) {
  switch (error) {
  case RecordingProtocolError::lineTooLarge:
    return "The recording control message is too large.";
  case RecordingProtocolError::malformedJSON:
    return "The recording control message is malformed.";
  case RecordingProtocolError::unsupportedSchema:
    return "The recording control message uses an unsupported schema.";
  case RecordingProtocolError::invalidSession:
    return "The recording control session is invalid.";
  case RecordingProtocolError::staleSession:
    return "The recording control message belongs to another session.";
  }
  return {};
}

RecordingControlCommand
RecordingControlCommand::decodeLine(std::string_view line,
                                    std::optional<std::string_view> expectedSessionID) {
  if (line.size() > maximumLineBytes)
    fail(RecordingProtocolError::lineTooLarge);
  RecordingControlCommand command;
  try {
    command = json::decode<RecordingControlCommand>(line);
  } catch (const json::DecodingFailure&) {
    fail(RecordingProtocolError::malformedJSON);
  }
  if (command.schemaVersion != protocolSchemaVersion)
    fail(RecordingProtocolError::unsupportedSchema);
  if (!isUuid(command.sessionID))
    fail(RecordingProtocolError::invalidSession);
  if (expectedSessionID && command.sessionID != *expectedSessionID)
    fail(RecordingProtocolError::staleSession);
  return command;
}

CaptureTrackPayload CaptureTrackPayload::screen(const CaptureFile& file, std::int64_t width,
                                                std::int64_t height, RecordingCodec codec) {
  return videoTrack("screen", CaptureTrackKind::screenVideo, file, width, height, codec);
}

CaptureTrackPayload CaptureTrackPayload::camera(const CaptureFile& file, std::int64_t width,
                                                std::int64_t height, RecordingCodec codec) {
  return videoTrack("camera", CaptureTrackKind::cameraVideo, file, width, height, codec);
}

CaptureTrackPayload CaptureTrackPayload::systemAudio(const CaptureFile& file) {
  return audioTrack("system-audio", CaptureTrackKind::systemAudio, file);
}

CaptureTrackPayload CaptureTrackPayload::microphone(const CaptureFile& file) {
  return audioTrack("microphone", CaptureTrackKind::microphoneAudio, file);
}

CaptureTrackPayload CaptureTrackPayload::interactionEvents(const CaptureFile& file) {
  return trackPayload("interaction-events", CaptureTrackKind::interactionEvents, CaptureTrackMediaType::data,
                      file);
}

CaptureDeliverablePayload CaptureDeliverablePayload::shareVideo(const CaptureFile& file, std::int64_t width,
                                                                std::int64_t height, RecordingCodec codec) {
  return {"share-video",  CaptureDeliverableKind::shareVideo,
          file.path,      file.durationMs,
          file.sizeBytes, width,
          height,         codec};
}

std::string RecordingEvent::encodedLine() const {
  return std::visit(
      [this]<class Body>(const Body& body) {
        return json::encode(EventLine<Body>{body, protocolSchemaVersion, Body::name, sessionID}) + '\n';
      },
      what);
}

std::string recordingFailedLine(std::string_view stage, NativeErrorCode code) {
  return DiagnosticsLine("tessarin-native recording-failed")
      .item("stage", stage)
      .item("nativeCode", json::nameOf(code))
      .text();
}

std::string recordingStreamStopSummaryLine(std::uint64_t streamStopMs, bool streamStopFailed) {
  return DiagnosticsLine("tessarin-native recording-stream-stop-summary")
      .item("streamStopMs", streamStopMs)
      .item("streamStopFailed", streamStopFailed ? 1 : 0)
      .text();
}

std::uint64_t elapsedMilliseconds(std::uint64_t fromNanoseconds, std::uint64_t toNanoseconds) {
  return toNanoseconds > fromNanoseconds ? (toNanoseconds - fromNanoseconds) / nanosecondsPerMillisecond : 0;
}

std::string RecordingStopDiagnostics::summaryLine(std::uint64_t now) const {
  return DiagnosticsLine("tessarin-native recording-stop-summary")
      .item("writerFinishMs", writerFinishMs)
      .item("segmentValidationMs", segmentValidationMs)
      .item("streamStopMs", streamStopMs.value_or(0))
      .item("streamStopDeferred", streamStopMs ? 0 : 1)
      .item("microphoneStopMs", microphoneStopMs)
      .item("outputRemovalMs", outputRemovalMs)
      .item("audioDrainMs", audioDrainMs)
      .item("writerQueueDrainMs", writerQueueDrainMs)
      .item("finalizeMs", elapsedMilliseconds(startedAt, mergeStartedAt))
      .item("trackMergeMs", elapsedMilliseconds(mergeStartedAt, mergeEndedAt))
      .item("validationMs", elapsedMilliseconds(mergeEndedAt, validationEndedAt))
      .item("stopMergeMs", elapsedMilliseconds(startedAt, now))
      .text();
}

std::string RecordingSummary::line() const {
  return DiagnosticsLine("tessarin-native recording-summary")
      .item("startupMs", startupMs)
      .item("videoDeliveryPermille", videoDeliveryPermille)
      .item("maxAudioQueueMs", maxAudioQueueMs)
      .item("systemAudioDriftMs", systemAudioDriftMs)
      .item("microphoneDriftMs", microphoneDriftMs)
      .item("cameraDriftMs", cameraDriftMs)
      .item("screenFrames", screenFrames)
      .item("cameraFrames", cameraFrames)
      .text();
}

} // namespace tessarin
