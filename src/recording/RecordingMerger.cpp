#include "recording/RecordingMerger.hpp"

#include "base/SafeFile.hpp"
#include "container/MovieJoin.hpp"
#include "recording/SegmentFiles.hpp"

#include <algorithm>
#include <functional>
#include <memory>
#include <numeric>
#include <utility>

namespace tessarin {

namespace {

using container::JoinPiece;
using container::JoinTrack;
using container::Track;
using container::TrackKind;

constexpr std::size_t maximumAudioTracks = 2;
constexpr const char* movieBrand = "mp42";
constexpr const char* audioBrand = "M4A ";

void refuse(bool condition, RecordingMergeError error) {
  if (condition)
    fail(error);
}

// A source that stays open while pieces of it are joined.
struct Source {
  std::unique_ptr<OpenFile> file;
  container::Movie movie;
};

Source openSource(SegmentFiles& files, const std::string& path) {
  try {
    Source source;
    source.file = files.open(path);
    source.movie = container::readMovie(*source.file);
    return source;
  } catch (const FileFailure&) {
    fail(RecordingMergeError::invalidSegment);
  } catch (const container::ContainerFailure&) {
    fail(RecordingMergeError::invalidSegment);
  }
}

// Those of one merge, in order.
class Sources {
 public:
  Sources(FileSystem& files, const std::vector<std::string>& paths) : files_(files, paths.size()) {
    all_.reserve(paths.size());
    for (const std::string& path : paths)
      all_.push_back(openSource(files_, path));
  }
  Sources(const Sources&) = delete;
  Sources& operator=(const Sources&) = delete;

  std::size_t size() const { return all_.size(); }
  const Source& front() const { return all_.front(); }
  const Source& operator[](std::size_t index) const { return all_[index]; }
  auto begin() const { return all_.begin(); }
  auto end() const { return all_.end(); }

 private:
  SegmentFiles files_; // outlives what it opens
  std::vector<Source> all_;
};

RecordingMergePlan planOf(const Sources& sources) {
  std::vector<MediaTime> durations;
  durations.reserve(sources.size());
  for (const Source& source : sources)
    durations.push_back(source.movie.duration);
  return RecordingMergePlan(durations);
}

void refuseExistingOutput(FileSystem& files, const std::string& path) {
  bool taken = true;
  try {
    taken = exists(files, path);
  } catch (const FileFailure&) {
    taken = true;
  }
  refuse(taken, RecordingMergeError::exportFailed);
}

// Has the output written under a hidden name beside it, on the disk, and moves it into place, so that neither
// a failure nor a crash leaves anything behind that a later try would take for a finished file.
std::int64_t writeOutput(FileSystem& files, const std::string& path,
                         const std::function<void(OpenFile& output)>& write) {
  try {
    TemporaryFile temporary(files, hiddenTemporaryName(path));
    write(*files.open(temporary.path(), OpenMode::createExclusive));
    const std::optional<std::int64_t> size = regularFileSize(files, temporary.path());
    refuse(!size || *size < 1, RecordingMergeError::exportFailed);
    files.renameExclusive(temporary.path(), path);
    temporary.keep();
    syncDirectoryQuietly(files, directoryOf(path));
    return *size;
  } catch (const FileFailure&) {
    fail(RecordingMergeError::exportFailed);
  } catch (const container::ContainerFailure&) {
    fail(RecordingMergeError::exportFailed);
  }
}

bool cloned(OpenFile& output, const OpenFile& source) {
  try {
    return output.cloneFrom(source);
  } catch (const FileFailure&) {
    return false; // a copy may still do
  }
}

std::int64_t cloneOrCopyMedia(FileSystem& files, const OpenFile& source, const std::string& outputPath) {
  return writeOutput(files, outputPath, [&](OpenFile& output) {
    if (!cloned(output, source))
      output.copyFrom(source, 0, 0, static_cast<std::uint64_t>(source.info().sizeBytes));
    output.sync();
  });
}

std::int64_t exportMovie(FileSystem& files, const std::string& outputPath,
                         const std::vector<JoinTrack>& tracks, const char* brand) {
  return writeOutput(files, outputPath,
                     [&](OpenFile& output) { container::writeJoinedMovie(output, tracks, brand); });
}

// Coded anew, for sound that cannot be joined as it is.
std::int64_t exportReencoded(FileSystem& files, AudioReencoder& reencoder, const std::string& outputPath,
                             const std::vector<AudioPiece>& pieces) {
  try {
    reencoder.reencode(pieces, outputPath);
    TemporaryFile made(files, outputPath);
    const std::optional<std::int64_t> size = regularFileSize(files, outputPath);
    refuse(!size || *size < 1, RecordingMergeError::exportFailed);
    made.keep();
    syncDirectoryQuietly(files, directoryOf(outputPath));
    return *size;
  } catch (const std::exception&) {
    fail(RecordingMergeError::exportFailed);
  }
}

const Track& trackAt(const Source& source, TrackKind kind, std::int64_t index, RecordingMergeError missing) {
  const std::vector<const Track*> tracks = source.movie.tracksOf(kind);
  refuse(index < 0 || static_cast<std::uint64_t>(index) >= tracks.size(), missing);
  return *tracks[static_cast<std::size_t>(index)];
}

JoinPiece videoPiece(const Source& source, std::int64_t index, const RecordingMergeInsertion& insertion) {
  const Track& track = trackAt(source, TrackKind::video, index, RecordingMergeError::missingVideo);
  return {source.file.get(), &track, insertion.start, insertion.duration};
}

JoinPiece trimmedAudioPiece(const Source& source, const Track& track,
                            const RecordingMergeInsertion& insertion) {
  const MediaTime duration = std::min(track.duration, insertion.duration);
  refuse(duration <= MediaTime::zero(), RecordingMergeError::invalidSegment);
  return {source.file.get(), &track, insertion.start, duration};
}

JoinPiece audioPiece(const Source& source, std::int64_t index, const RecordingMergeInsertion& insertion) {
  return trimmedAudioPiece(
      source, trackAt(source, TrackKind::audio, index, RecordingMergeError::compositionFailed), insertion);
}

// Whether a copy of the file takes little along that is neither coded samples nor their index: a file of a
// terabyte may be one of a second with a hole behind it.
bool isMostlyMedia(const Source& source) {
  constexpr std::uint64_t indexBytesPerSample = 64;
  std::uint64_t expected = std::uint64_t{1} << 20;
  for (const Track& track : source.movie.tracks)
    for (const container::Sample& sample : track.samples)
      expected += sample.size + indexBytesPerSample;
  return static_cast<std::uint64_t>(source.file->info().sizeBytes) <= expected;
}

// A segment that was cut off by a crash is joined anew, so that what comes out is an ordinary file.
bool isFinishedWith(const Source& source, std::size_t videoTracks, std::size_t audioTracks) {
  return !source.movie.isFragmented && isMostlyMedia(source) &&
         source.movie.tracksOf(TrackKind::video).size() == videoTracks &&
         source.movie.tracksOf(TrackKind::audio).size() == audioTracks;
}

bool hasRepeats(std::vector<std::string> paths) {
  std::sort(paths.begin(), paths.end());
  return std::adjacent_find(paths.begin(), paths.end()) != paths.end();
}

bool holds(const std::vector<std::string>& paths, const std::string& path) {
  return std::find(paths.begin(), paths.end(), path) != paths.end();
}

void checkAudioIndices(const std::vector<std::int64_t>& indices) {
  const bool repeated = indices.size() == maximumAudioTracks && indices[0] == indices[1];
  const bool negative =
      std::any_of(indices.begin(), indices.end(), [](std::int64_t index) { return index < 0; });
  refuse(indices.size() > maximumAudioTracks || repeated || negative, RecordingMergeError::invalidSegment);
}

// Whether the indices are 0, 1, ... in order.
bool countUpFromZero(const std::vector<std::int64_t>& indices) {
  std::vector<std::int64_t> expected(indices.size());
  std::iota(expected.begin(), expected.end(), std::int64_t{0});
  return indices == expected;
}

} // namespace

RecordingMergePlan::RecordingMergePlan(std::span<const MediaTime> segmentDurations)
    : total(MediaTime::zero()) {
  refuse(segmentDurations.empty(), RecordingMergeError::noSegments);
  insertions.reserve(segmentDurations.size());
  for (const MediaTime duration : segmentDurations) {
    refuse(duration <= MediaTime::zero(), RecordingMergeError::invalidSegment);
    insertions.push_back({total, duration});
    total = total + duration;
  }
}

std::int64_t RecordingMerger::mergeVideoTrack(const std::vector<std::string>& segmentPaths,
                                              const std::string& outputPath,
                                              std::int64_t videoTrackIndex) const {
  refuse(segmentPaths.empty(), RecordingMergeError::noSegments);
  refuseExistingOutput(files_, outputPath);
  const Sources sources(files_, segmentPaths);
  const RecordingMergePlan plan = planOf(sources);
  JoinTrack video;
  for (std::size_t i = 0; i < sources.size(); ++i)
    video.pieces.push_back(videoPiece(sources[i], videoTrackIndex, plan.insertions[i]));
  if (sources.size() == 1 && isFinishedWith(sources.front(), 1, 0))
    return cloneOrCopyMedia(files_, *sources.front().file, outputPath);
  return exportMovie(files_, outputPath, {video}, movieBrand);
}

std::int64_t RecordingMerger::mergeAudio(const std::vector<std::string>& segmentPaths,
                                         const std::string& outputPath, std::int64_t audioTrackIndex) const {
  refuse(segmentPaths.empty(), RecordingMergeError::noSegments);
  refuseExistingOutput(files_, outputPath);
  const Sources sources(files_, segmentPaths);
  const RecordingMergePlan plan = planOf(sources);
  JoinTrack audio;
  std::vector<AudioPiece> pieces;
  for (std::size_t i = 0; i < sources.size(); ++i) {
    const JoinPiece& piece =
        audio.pieces.emplace_back(audioPiece(sources[i], audioTrackIndex, plan.insertions[i]));
    pieces.push_back({segmentPaths[i], audioTrackIndex, piece.start, piece.duration});
  }
  try {
    return exportMovie(files_, outputPath, {audio}, audioBrand);
  } catch (const Failure<RecordingMergeError>&) {
    // Nothing is left of that attempt.
    return exportReencoded(files_, reencoder_, outputPath, pieces);
  }
}

std::int64_t RecordingMerger::mergeShareVideo(const std::vector<std::string>& segmentPaths,
                                              const std::vector<std::int64_t>& audioTrackIndices,
                                              const std::string& outputPath) const {
  refuse(segmentPaths.empty() || holds(segmentPaths, outputPath), RecordingMergeError::invalidSegment);
  checkAudioIndices(audioTrackIndices);
  refuseExistingOutput(files_, outputPath);
  const Sources sources(files_, segmentPaths);
  const RecordingMergePlan plan = planOf(sources);
  if (sources.size() == 1 && countUpFromZero(audioTrackIndices) &&
      isFinishedWith(sources.front(), 1, audioTrackIndices.size()))
    return cloneOrCopyMedia(files_, *sources.front().file, outputPath);

  std::vector<JoinTrack> tracks(1 + audioTrackIndices.size());
  for (std::size_t i = 0; i < sources.size(); ++i) {
    tracks[0].pieces.push_back(videoPiece(sources[i], 0, plan.insertions[i]));
    for (std::size_t lane = 0; lane < audioTrackIndices.size(); ++lane)
      tracks[1 + lane].pieces.push_back(audioPiece(sources[i], audioTrackIndices[lane], plan.insertions[i]));
  }
  return exportMovie(files_, outputPath, tracks, movieBrand);
}

std::int64_t RecordingMerger::mergeShareVideo(const std::string& screenPath,
                                              const std::vector<std::string>& audioPaths,
                                              const std::string& outputPath) const {
  refuse(outputPath == screenPath || audioPaths.size() > maximumAudioTracks || hasRepeats(audioPaths) ||
             holds(audioPaths, outputPath),
         RecordingMergeError::invalidSegment);
  refuseExistingOutput(files_, outputPath);
  const Sources screens(files_, {screenPath});
  const Source& screen = screens.front();
  refuse(screen.movie.tracksOf(TrackKind::video).size() != 1 ||
             !screen.movie.tracksOf(TrackKind::audio).empty(),
         RecordingMergeError::invalidSegment);
  const RecordingMergeInsertion whole{MediaTime::zero(), screen.movie.duration};
  refuse(whole.duration <= MediaTime::zero(), RecordingMergeError::invalidSegment);
  if (audioPaths.empty() && isMostlyMedia(screen))
    return cloneOrCopyMedia(files_, *screen.file, outputPath);

  const Sources sounds(files_, audioPaths);
  std::vector<JoinTrack> tracks{{{videoPiece(screen, 0, whole)}}};
  for (const Source& sound : sounds) {
    const std::vector<const Track*> audio = sound.movie.tracksOf(TrackKind::audio);
    refuse(audio.size() != 1, RecordingMergeError::invalidSegment);
    tracks.push_back({{trimmedAudioPiece(sound, *audio.front(), whole)}});
  }
  return exportMovie(files_, outputPath, tracks, movieBrand);
}

} // namespace tessarin
