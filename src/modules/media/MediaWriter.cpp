#include "modules/media/MediaWriter.hpp"

#include "base/SafeFile.hpp"
#include "modules/media/CoderFailure.hpp"

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

namespace tessarin::media {

namespace {

MediaWriterError posixError(int errorNumber) {
  return {"POSIX", errorNumber, std::nullopt, 0};
}

std::int64_t inVideoUnits(MediaTime time) {
  return time.convertedTo(videoTimescale).value();
}

// Sound of live sources that is this far behind the pictures does not come any more. What it left out is
// coded as silence then, so that a crash does not leave a track that ends long before the pictures.
constexpr MediaTime longestDelayOfSound{2, 1};

// The frames of sound that fit into a time.
std::int64_t wholeFrames(MediaTime time, std::int32_t sampleRate) {
  const std::int64_t nearest = time.convertedTo(sampleRate).value();
  return MediaTime(nearest, sampleRate) > time ? nearest - 1 : nearest;
}

} // namespace

MediaWriter::MediaWriter(FileSystem& files, VideoCoders& coders, MediaFileOptions options)
    : files_(files), coders_(coders), options_(std::move(options)),
      fileQueue_(makeThreadQueue("media-file")) {}

MediaWriter::~MediaWriter() {
  if (isFinishing_)
    forEachTrack([](auto& track) { track.wait(); });
  else
    abandonWriting();
  // The tracks hand over nothing more. What the file still has to do may notify them, so they stay for it.
  fileQueue_->sync([] {});
  videoTracks_.clear();
  audioTracks_.clear();
  fileQueue_.reset();
}

// Those of video first, as they hand on to those of sound.
template<class Work> void MediaWriter::forEachTrack(const Work& work) {
  for (const auto& track : videoTracks_)
    work(*track.input);
  for (const auto& track : audioTracks_)
    work(*track.input);
}

bool MediaWriter::canApply(const VideoSettings& settings) {
  return coders_.canCode(settings);
}

VideoInput* MediaWriter::addVideoInput(const VideoSettings& settings) {
  if (!mayAddTrack() || !coders_.canCode(settings))
    return nullptr;
  const std::size_t track = trackCount();
  const VideoTrackInput::Sink sink{
      [this, track](CodedPicture picture, std::int64_t time) { write(track, std::move(picture), time); },
      [this](MediaWriterError error) { coderFailed(std::move(error)); }};
  try {
    auto input = std::make_unique<VideoTrackInput>(settings, coders_, state_, sink);
    if (videoTracks_.empty())
      isInRealTime_ = settings.expectsMediaDataInRealTime;
    videoTracks_.push_back({track, std::move(input)});
    return videoTracks_.back().input.get();
  } catch (const CoderFailure&) {
    return nullptr;
  }
}

AudioInput* MediaWriter::addAudioInput(const AudioSettings& settings) {
  if (!mayAddTrack() || !canCode(settings))
    return nullptr;
  const std::size_t track = trackCount();
  const AudioTrackInput::Sink sink{[this, track](CodedSound sound) { write(track, std::move(sound)); },
                                   [this](MediaWriterError error) { coderFailed(std::move(error)); }};
  try {
    auto input = std::make_unique<AudioTrackInput>(settings, state_, sink);
    audioTracks_.push_back({track, std::move(input)});
    return audioTracks_.back().input.get();
  } catch (const CoderFailure&) {
    return nullptr;
  }
}

bool MediaWriter::startWriting() {
  if (!mayAddTrack() || videoTracks_.empty())
    return false;
  std::vector<MovieTrack> tracks(trackCount());
  for (const auto& track : videoTracks_)
    tracks[track.index] = videoTrack(track.input->description());
  for (const auto& track : audioTracks_)
    tracks[track.index] = audioTrack(track.input->description(), track.input->sampleRate());
  const FragmentIntervals intervals{inVideoUnits(options_.initialFragmentInterval),
                                    inVideoUnits(options_.fragmentInterval)};
  openTracks_ = tracks.size();
  onFile([&] { movie_.emplace(files_, options_.path, intervals, tracks); });
  return state_.change(MediaWriterStatus::unknown, MediaWriterStatus::writing);
}

void MediaWriter::startSession(MediaTime sourceTime) {
  forEachTrack([&](auto& track) { track.startSession(sourceTime); });
}

// On a video track's thread.
void MediaWriter::write(std::size_t track, CodedPicture picture, std::int64_t time) {
  if (isInRealTime_ && picture.isKey && track == videoTracks_.front().index) {
    const MediaTime silentBefore = MediaTime(time, videoTimescale) - longestDelayOfSound;
    for (const auto& sound : audioTracks_)
      sound.input->giveUpBefore(silentBefore.convertedTo(sound.input->sampleRate()).value());
  }
  const std::size_t bytes = picture.sample.size();
  onFileQueue(bytes, [this, track, picture = std::move(picture), time]() mutable {
    movie_->append(track, std::move(picture), time);
  });
}

// On a sound track's thread.
void MediaWriter::write(std::size_t track, CodedSound sound) {
  const std::size_t bytes = sound.data.size();
  onFileQueue(bytes,
              [this, track, sound = std::move(sound)]() mutable { movie_->append(track, std::move(sound)); });
}

// Has coded bytes written.
template<class Work> void MediaWriter::onFileQueue(std::size_t bytes, Work work) {
  state_.addUnwritten(bytes);
  fileQueue_->async([this, bytes, work = std::move(work)]() mutable {
    // What was coded before a failure is kept.
    if (state_.status() != MediaWriterStatus::cancelled)
      onFile([&work] { work(); });
    if (state_.removeUnwritten(bytes))
      notifyReadiness();
  });
}

// Any thread. The disk did not fail, so what was coded until now is made readable.
void MediaWriter::coderFailed(MediaWriterError error) {
  if (!state_.fail(std::move(error)))
    return;
  fileQueue_->async([this] { onFile([&] { movie_->flush(); }); });
  notifyReadiness();
}

void MediaWriter::finishWriting(std::function<void()> completion) {
  isFinishing_ = true;
  if (!state_.isWriting()) {
    fileQueue_->async(std::move(completion));
    return;
  }
  const auto trackFinished = [this, completion = std::move(completion)] {
    fileQueue_->async([this, completion] {
      if (--openTracks_ == 0)
        finishFile(completion);
    });
  };
  for (const auto& track : videoTracks_)
    track.input->finish(trackFinished);
  const MediaTime end(picturesEnd(), videoTimescale);
  for (const auto& track : audioTracks_)
    track.input->finish(wholeFrames(end, track.input->sampleRate()), trackFinished);
}

// Where the last picture of the file ends, in units of the video timescale. Once nothing is appended.
std::int64_t MediaWriter::picturesEnd() const {
  std::int64_t end = 0;
  for (const auto& track : videoTracks_)
    end = std::max(end, track.input->endTime());
  return end;
}

// On the file's thread, when nothing is appended any more.
void MediaWriter::finishFile(const std::function<void()>& completion) {
  if (state_.isWriting()) {
    std::vector<std::int64_t> endTimes(trackCount());
    for (const auto& track : videoTracks_)
      endTimes[track.index] = track.input->endTime();
    const MediaTime end(picturesEnd(), videoTimescale);
    for (const auto& track : audioTracks_)
      endTimes[track.index] = wholeFrames(end, track.input->sampleRate());
    onFile([&] { movie_->finish(endTimes); });
    state_.change(MediaWriterStatus::writing, MediaWriterStatus::completed);
  }
  movie_.reset();
  completion();
}

void MediaWriter::cancelWriting() {
  const bool wasWriting = state_.change(MediaWriterStatus::writing, MediaWriterStatus::cancelled);
  state_.change(MediaWriterStatus::unknown, MediaWriterStatus::cancelled);
  forEachTrack([](auto& track) { track.stop(); });
  if (!wasWriting)
    return;
  fileQueue_->sync([this] {
    movie_.reset();
    removeQuietly(files_, options_.path);
  });
}

// Nobody has decided over the file, so what was coded until now is made readable and kept.
void MediaWriter::abandonWriting() {
  forEachTrack([](auto& track) { track.stop(); });
  if (state_.isWriting())
    coderFailed({"POSIX", ECANCELED, std::nullopt, 0});
}

// Runs work on the file and makes its failure the writer's.
template<class Work> void MediaWriter::onFile(const Work& work) {
  try {
    work();
  } catch (const FileFailure& failure) {
    state_.fail(posixError(failure.errorNumber()));
    notifyReadiness();
  } catch (const container::ContainerFailure& failure) {
    state_.fail({"container", static_cast<std::int64_t>(failure.error()), std::nullopt, 0});
    notifyReadiness();
  } catch (const std::bad_alloc&) {
    state_.fail(posixError(ENOMEM));
    notifyReadiness();
  }
}

void MediaWriter::notifyReadiness() {
  forEachTrack([](auto& track) { track.notifyReadiness(); });
}

std::unique_ptr<MediaFileWriter> MediaWriterFactory::makeWriter(const MediaFileOptions& options) {
  coders_.effort().segmentBegins();
  return std::make_unique<MediaWriter>(files_, coders_, options);
}

} // namespace tessarin::media
