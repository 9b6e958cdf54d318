#include "recording/RecordingMediaValidator.hpp"

#include "base/SafeFile.hpp"
#include "model/Errors.hpp"
#include "recording/RecordingTrackTimeline.hpp"
#include "recording/RecordingWriterPolicy.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>

namespace tessarin::RecordingMediaValidator {

namespace {

using container::Movie;
using container::Track;
using container::TrackKind;

constexpr std::int64_t audioLengthToleranceMs = 250;
constexpr double houseSampleRate = 48000; // Hz
constexpr double sampleRateTolerance = 0.5;
constexpr std::int32_t houseChannelCount = 2;

void require(bool condition) {
  if (!condition)
    throw serviceErrors::recordingFailed();
}

struct OpenedMovie {
  std::int64_t sizeBytes = 0;
  Movie movie;
};

// Nothing when the path is no regular file with bytes in it.
std::optional<OpenedMovie> openMovie(FileSystem& files, const std::string& path) {
  try {
    const std::optional<std::int64_t> size = regularFileSize(files, path);
    if (!size || *size < 1)
      return std::nullopt;
    const std::unique_ptr<OpenFile> file = files.open(path, OpenMode::read);
    return OpenedMovie{*size, container::readMovie(*file)};
  } catch (const FileFailure&) {
    throw serviceErrors::recordingFailed();
  } catch (const container::ContainerFailure&) {
    throw serviceErrors::recordingFailed();
  }
}

std::int64_t usableMilliseconds(MediaTime time) {
  return time > MediaTime::zero() ? time.wholeMilliseconds() : 0;
}

bool areInStep(const Track& first, const Track& other) {
  const std::int64_t toleranceMs = RecordingEncodedSampleTimeline::maximumInitialLead.wholeMilliseconds();
  const auto differ = [toleranceMs](MediaTime a, MediaTime b) {
    return std::llabs(usableMilliseconds(a) - usableMilliseconds(b)) > toleranceMs;
  };
  return !differ(first.start, other.start) &&
         !differ(first.start + first.duration, other.start + other.duration);
}

bool isMonotonic(const Track& track) {
  std::int64_t lastPresentation = 0;
  std::int64_t lastDecode = 0;
  bool isFirst = true;
  for (const container::Sample& sample : track.samples) {
    const std::int64_t presentation = sample.decodeTime + sample.compositionOffset;
    if (sample.size == 0)
      return false;
    if (!isFirst && (presentation < lastPresentation || sample.decodeTime < lastDecode))
      return false;
    isFirst = false;
    lastPresentation = presentation;
    lastDecode = sample.decodeTime;
  }
  return !isFirst;
}

} // namespace

ValidatedMedia validateRecording(FileSystem& files, const std::string& path, MediaTime fallbackDuration,
                                 std::size_t expectedVideoTrackCount, std::size_t expectedAudioTrackCount,
                                 std::int64_t frameRate) {
  const std::optional<OpenedMovie> opened = openMovie(files, path);
  require(opened.has_value());
  const std::vector<const Track*> video = opened->movie.tracksOf(TrackKind::video);
  const std::vector<const Track*> audio = opened->movie.tracksOf(TrackKind::audio);
  require(video.size() == expectedVideoTrackCount && audio.size() == expectedAudioTrackCount);

  std::vector<const Track*> tracks = video;
  tracks.insert(tracks.end(), audio.begin(), audio.end());
  require(samplesAreMonotonic(tracks));

  const MediaTime duration =
      opened->movie.duration > MediaTime::zero() ? opened->movie.duration : fallbackDuration;
  const std::int64_t durationMs = usableMilliseconds(duration);
  if (!video.empty())
    require(std::all_of(tracks.begin(), tracks.end(),
                        [&](const Track* track) { return areInStep(*video.front(), *track); }));
  if (video.size() == 2)
    require(RecordingTrackTimeline::cameraMatches(usableMilliseconds(video[0]->duration),
                                                  usableMilliseconds(video[1]->duration), frameRate));
  require(durationMs >= 1);
  return {durationMs, opened->sizeBytes};
}

bool validateAudio(FileSystem& files, const std::string& path, std::int64_t expectedDurationMs) {
  const std::optional<OpenedMovie> opened = openMovie(files, path);
  if (!opened)
    return false;
  const std::vector<const Track*> audio = opened->movie.tracksOf(TrackKind::audio);
  if (!opened->movie.tracksOf(TrackKind::video).empty() || audio.size() != 1)
    return false;
  const MediaTime duration = audio.front()->duration;
  return duration > MediaTime::zero() && hasCanonicalAudioFormat(*audio.front()) &&
         std::llabs(duration.wholeMilliseconds() - expectedDurationMs) <= audioLengthToleranceMs &&
         samplesAreMonotonic(audio);
}

bool samplesAreMonotonic(std::span<const Track* const> tracks) {
  return std::all_of(tracks.begin(), tracks.end(), [](const Track* track) { return isMonotonic(*track); });
}

bool hasCanonicalAudioFormat(const Track& track) {
  return std::all_of(track.descriptions.begin(), track.descriptions.end(), [](const auto& description) {
    return std::fabs(description.sampleRate - houseSampleRate) <= sampleRateTolerance &&
           description.channelCount == houseChannelCount;
  });
}

} // namespace tessarin::RecordingMediaValidator
