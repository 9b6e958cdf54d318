#include "recording/RecordingRecoveryService.hpp"

#include "base/Failure.hpp"
#include "base/SafeFile.hpp"
#include "container/Movie.hpp"
#include "model/MediaErrors.hpp"
#include "recording/RecordingMediaValidator.hpp"
#include "recording/RecordingMerger.hpp"
#include "recording/RecordingSegmentStore.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <utility>

namespace tessarin {

namespace {

using container::Movie;
using container::Track;
using container::TrackKind;

// How far the files of a session may differ in length.
const MediaTime lengthTolerance = MediaTime::milliseconds(250);

struct InspectedVideo {
  MediaTime duration; // above zero
  std::int64_t durationMs = 0;
  std::int64_t widthPixels = 0;
  std::int64_t heightPixels = 0;
  RecordingCodec codec = RecordingCodec::h264;
  std::int64_t sizeBytes = 0;
};

void requireMedia(bool condition) {
  if (!condition)
    fail(RecordingRecoveryError::invalidMedia);
}

bool areOfOneLength(MediaTime a, MediaTime b) {
  const MediaTime difference = a > b ? a - b : b - a;
  return difference <= lengthTolerance;
}

// Runs a check; whatever goes wrong in it but a recovery's own errors is bad media.
template<class Check> auto inspected(const Check& check) {
  try {
    return check();
  } catch (const Failure<RecordingRecoveryError>&) {
    throw;
  } catch (const std::exception&) {
    fail(RecordingRecoveryError::invalidMedia);
  }
}

// Runs a merge; whatever goes wrong in it is a failed merge.
template<class Merge> std::int64_t merged(const Merge& merge) {
  try {
    return merge();
  } catch (const std::exception&) {
    fail(RecordingRecoveryError::mergeFailed);
  }
}

// Whether an output is there. One that cannot be looked at can be neither checked nor made.
bool isThere(FileSystem& files, const std::string& path) {
  return inspected([&] { return exists(files, path); });
}

// A segment that cannot be looked at counts as missing, and so do all where their directory is a link out of
// the session's.
bool areThere(FileSystem& files, const std::string& directory, const std::vector<std::string>& segments) {
  try {
    return isRealDirectory(files, directory) &&
           std::all_of(segments.begin(), segments.end(),
                       [&](const std::string& segment) { return exists(files, segment); });
  } catch (const FileFailure&) {
    return false;
  }
}

Movie openMovie(FileSystem& files, const std::string& path) {
  return container::readMovie(*files.open(path, OpenMode::read));
}

std::int64_t sizeOf(FileSystem& files, const std::string& path) {
  return inspected([&] {
    const std::optional<std::int64_t> size = regularFileSize(files, path);
    requireMedia(size.value_or(0) > 0);
    return *size;
  });
}

RecordingCodec codecOf(const Track& track) {
  const std::string& subtype = track.descriptions.front().codec;
  requireMedia(subtype == "avc1" || subtype == "hvc1");
  return subtype == "avc1" ? RecordingCodec::h264 : RecordingCodec::hevc;
}

// As it is shown: turned by the track's matrix. Pixels.
SizeDTO displayedSize(const Track& track) {
  constexpr double one = 0x10000;
  const double width = track.descriptions.front().width;
  const double height = track.descriptions.front().height;
  const auto& m = track.matrix;
  return {std::llround(std::fabs((m[0] * width + m[3] * height) / one)),
          std::llround(std::fabs((m[1] * width + m[4] * height) / one))};
}

InspectedVideo inspectVideo(FileSystem& files, const std::string& path) {
  return inspected([&] {
    InspectedVideo video;
    video.sizeBytes = sizeOf(files, path);
    const Movie movie = openMovie(files, path);
    requireMedia(movie.duration > MediaTime::zero());
    const std::vector<const Track*> tracks = movie.tracksOf(TrackKind::video);
    requireMedia(!tracks.empty());
    const SizeDTO size = displayedSize(*tracks.front());
    requireMedia(size.width >= 1 && size.height >= 1);
    video.duration = movie.duration;
    video.durationMs = movie.duration.wholeMilliseconds();
    video.widthPixels = size.width;
    video.heightPixels = size.height;
    video.codec = codecOf(*tracks.front());
    return video;
  });
}

// The length of a file of sound; throws unless it is one of the house format, as long as it should be.
std::int64_t inspectAudio(FileSystem& files, const std::string& path, MediaTime expected) {
  return inspected([&] {
    const Movie movie = openMovie(files, path);
    const std::vector<const Track*> audio = movie.tracksOf(TrackKind::audio);
    requireMedia(audio.size() == 1 && movie.tracksOf(TrackKind::video).empty());
    requireMedia(movie.duration > MediaTime::zero() && areOfOneLength(movie.duration, expected));
    requireMedia(RecordingMediaValidator::hasCanonicalAudioFormat(*audio.front()));
    return movie.duration.wholeMilliseconds();
  });
}

// One run: what it was asked, and the answer as far as it has come.
class Recovery {
 public:
  Recovery(FileSystem& files, AudioReencoder& reencoder, ValidatedRecordingRecoveryRequest request)
      : files_(files), merger_(files, reencoder), request_(std::move(request)), paths_(request_.sessionPath) {
  }

  RecordingRecoveryPayload run() {
    requireFiles();
    std::optional<InspectedVideo> share;
    if (isThere(files_, request_.outputPath))
      share = inspectVideo(files_, request_.outputPath);
    removeStaleTemporaries(files_, request_.sessionPath, paths_.mergedOutputs());
    mergePictures();
    addScreen();
    if (request_.cameraOutputPath)
      addCamera(*request_.cameraOutputPath);
    addAudio();
    addShareVideo(share);
    addInteractions();
    payload_.clock.programDurationMs = screen_.durationMs;
    return std::move(payload_);
  }

 private:
  void requireFiles() {
    if (!isRealDirectory(files_, request_.sessionPath))
      fail(RecordingRecoveryError::invalidRequest);
    if (!areThere(files_, paths_.segmentsDirectory, request_.segmentPaths))
      fail(RecordingRecoveryError::invalidRequest);
  }

  void mergePictures() {
    if (isThere(files_, request_.screenOutputPath))
      sizeOf(files_, request_.screenOutputPath);
    else
      mergeTrack(request_.screenOutputPath, 0);
    if (request_.cameraOutputPath && !isThere(files_, *request_.cameraOutputPath))
      mergeTrack(*request_.cameraOutputPath, 1);
  }

  void mergeTrack(const std::string& path, std::int64_t index) {
    merged([&] { return merger_.mergeVideoTrack(request_.segmentPaths, path, index); });
  }

  void addScreen() {
    const std::string& path = request_.screenOutputPath;
    screen_ = inspectVideo(files_, path);
    payload_.tracks.push_back(CaptureTrackPayload::screen({path, screen_.durationMs, screen_.sizeBytes},
                                                          screen_.widthPixels, screen_.heightPixels,
                                                          screen_.codec));
  }

  void addCamera(const std::string& path) {
    const InspectedVideo camera = inspectVideo(files_, path);
    requireMedia(areOfOneLength(camera.duration, screen_.duration));
    payload_.tracks.push_back(CaptureTrackPayload::camera(
        {path, camera.durationMs, camera.sizeBytes}, camera.widthPixels, camera.heightPixels, camera.codec));
  }

  // The computer's sound before the microphone's, as in the segments; the request tells which there are.
  void addAudio() {
    std::int64_t index = 0;
    if (request_.systemAudioOutputPath)
      payload_.tracks.push_back(
          CaptureTrackPayload::systemAudio(recoverAudio(*request_.systemAudioOutputPath, index++)));
    if (request_.microphoneOutputPath)
      payload_.tracks.push_back(
          CaptureTrackPayload::microphone(recoverAudio(*request_.microphoneOutputPath, index)));
  }

  CaptureFile recoverAudio(const std::string& path, std::int64_t index) {
    if (!isThere(files_, path))
      merged([&] { return merger_.mergeAudio(request_.segmentPaths, path, index); });
    audioPaths_.push_back(path);
    const std::int64_t durationMs = inspectAudio(files_, path, screen_.duration);
    return {path, durationMs, sizeOf(files_, path)};
  }

  void addShareVideo(std::optional<InspectedVideo> share) {
    if (!share) {
      merged([&] {
        return merger_.mergeShareVideo(request_.screenOutputPath, audioPaths_, request_.outputPath);
      });
      share = inspectVideo(files_, request_.outputPath);
    }
    requireMedia(areOfOneLength(share->duration, screen_.duration));
    payload_.deliverables.push_back(
        CaptureDeliverablePayload::shareVideo({request_.outputPath, share->durationMs, share->sizeBytes},
                                              share->widthPixels, share->heightPixels, share->codec));
  }

  // A trace that is missing, empty or cannot be looked at is none.
  void addInteractions() {
    if (!request_.interactionEventsPath)
      return;
    const std::string& path = *request_.interactionEventsPath;
    std::optional<std::int64_t> size;
    try {
      size = regularFileSize(files_, path);
    } catch (const FileFailure&) {
      size = std::nullopt;
    }
    if (size.value_or(0) > 0)
      payload_.tracks.push_back(CaptureTrackPayload::interactionEvents({path, screen_.durationMs, *size}));
  }

  FileSystem& files_;
  const RecordingMerger merger_;
  const ValidatedRecordingRecoveryRequest request_;
  const RecordingSessionPaths paths_;
  InspectedVideo screen_;
  std::vector<std::string> audioPaths_;
  RecordingRecoveryPayload payload_;
};

} // namespace

RecordingRecoveryPayload
RecordingRecoveryService::recovery(const RecordingRecoveryRequestDTO& request) const {
  return Recovery(files_, reencoder_, request.validated()).run();
}

} // namespace tessarin
