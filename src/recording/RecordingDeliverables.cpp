#include "recording/RecordingDeliverables.hpp"

#include "base/ParallelTasks.hpp"
#include "recording/RecordingMerger.hpp"
#include "recording/RecordingTrackTimeline.hpp"

namespace tessarin {

namespace {

// Among the video tracks of a segment.
constexpr std::int64_t screenTrackIndex = 0;
constexpr std::int64_t cameraTrackIndex = 1;

} // namespace

RecordingAudioTracks::RecordingAudioTracks(const RecordingSettingsDTO& settings) {
  const auto next = [this] {
    all.push_back(static_cast<std::int64_t>(all.size()));
    return all.back();
  };
  if (settings.systemAudio)
    systemAudio = next();
  if (settings.microphone)
    microphone = next();
}

RecordingDeliverables::RecordingDeliverables(const RecordingEnvironment& environment,
                                             const RecordingSettingsDTO& settings,
                                             const RecordingSegmentStore& store)
    : environment_(environment), settings_(settings), store_(store) {}

void RecordingDeliverables::merge() {
  std::vector<std::string> segments;
  for (const NativeRecordingSegment& segment : store_.segments())
    segments.push_back(segment.path);
  const RecordingSessionPaths& paths = store_.paths();
  const RecordingAudioTracks audio(settings_);
  const RecordingMerger merger(environment_.files, environment_.reencoder);

  ParallelTasks tasks(environment_.makeQueue);
  tasks.start("com.tessarin.recording.merge-screen",
              [&] { merger.mergeVideoTrack(segments, paths.screenOutput, screenTrackIndex); });
  if (settings_.camera)
    tasks.start("com.tessarin.recording.merge-camera",
                [&] { merger.mergeVideoTrack(segments, paths.cameraOutput, cameraTrackIndex); });
  if (audio.systemAudio)
    tasks.start("com.tessarin.recording.merge-system-audio", [&] {
      systemAudioBytes_ = merger.mergeAudio(segments, paths.systemAudioOutput, *audio.systemAudio);
    });
  if (audio.microphone)
    tasks.start("com.tessarin.recording.merge-microphone", [&] {
      microphoneBytes_ = merger.mergeAudio(segments, paths.microphoneOutput, *audio.microphone);
    });
  tasks.start("com.tessarin.recording.merge-share",
              [&] { merger.mergeShareVideo(segments, audio.all, paths.finalOutput); });
  tasks.join();
}

void RecordingDeliverables::validate(MediaTime fallbackDuration) {
  const RecordingSessionPaths& paths = store_.paths();
  ParallelTasks pictures(environment_.makeQueue);
  pictures.start("com.tessarin.recording.validate-screen",
                 [&] { screen_ = validated(paths.screenOutput, fallbackDuration, 0); });
  if (settings_.camera)
    pictures.start("com.tessarin.recording.validate-camera",
                   [&] { camera_ = validated(paths.cameraOutput, fallbackDuration, 0); });
  pictures.start("com.tessarin.recording.validate-share", [&] {
    share_ = validated(paths.finalOutput, fallbackDuration, RecordingAudioTracks(settings_).all.size());
  });
  pictures.join();

  ParallelTasks sound(environment_.makeQueue);
  if (settings_.systemAudio)
    sound.start("com.tessarin.recording.validate-system-audio",
                [&] { requireAudio(paths.systemAudioOutput); });
  if (settings_.microphone)
    sound.start("com.tessarin.recording.validate-microphone", [&] { requireAudio(paths.microphoneOutput); });
  sound.join();
}

ValidatedMedia RecordingDeliverables::validated(const std::string& path, MediaTime fallbackDuration,
                                                std::size_t audioTrackCount) const {
  return RecordingMediaValidator::validateRecording(environment_.files, path, fallbackDuration, 1,
                                                    audioTrackCount, settings_.frameRate);
}

void RecordingDeliverables::requireAudio(const std::string& path) const {
  if (!RecordingMediaValidator::validateAudio(environment_.files, path, screen_.durationMs))
    throw serviceErrors::recordingFailed();
}

void RecordingDeliverables::requireMatchingLengths() const {
  const auto require = [this](const ValidatedMedia& other) {
    if (!RecordingTrackTimeline::cameraMatches(screen_.durationMs, other.durationMs, settings_.frameRate))
      throw serviceErrors::recordingFailed();
  };
  require(share_);
  if (camera_)
    require(*camera_);
}

std::vector<CaptureTrackPayload>
RecordingDeliverables::tracks(SizeDTO screenPixelSize, const std::optional<SizeDTO>& cameraPixelSize) const {
  const RecordingSessionPaths& paths = store_.paths();
  const RecordingCodec codec = settings_.effectiveCodec();
  std::vector<CaptureTrackPayload> tracks;
  tracks.push_back(CaptureTrackPayload::screen({paths.screenOutput, screen_.durationMs, screen_.sizeBytes},
                                               screenPixelSize.width, screenPixelSize.height, codec));
  if (camera_ && cameraPixelSize)
    tracks.push_back(
        CaptureTrackPayload::camera({paths.cameraOutput, camera_->durationMs, camera_->sizeBytes},
                                    cameraPixelSize->width, cameraPixelSize->height, codec));
  // A lane of sound is the program's length by its check.
  if (settings_.systemAudio)
    tracks.push_back(
        CaptureTrackPayload::systemAudio({paths.systemAudioOutput, programDurationMs(), systemAudioBytes_}));
  if (settings_.microphone)
    tracks.push_back(
        CaptureTrackPayload::microphone({paths.microphoneOutput, programDurationMs(), microphoneBytes_}));
  return tracks;
}

CaptureDeliverablePayload RecordingDeliverables::shareVideo(SizeDTO screenPixelSize) const {
  return CaptureDeliverablePayload::shareVideo(
      {store_.paths().finalOutput, share_.durationMs, share_.sizeBytes}, screenPixelSize.width,
      screenPixelSize.height, settings_.effectiveCodec());
}

} // namespace tessarin
