#include "modules/media/MediaWriter.hpp"

#include "base/SafeFile.hpp"
#include "modules/media/CoderFailure.hpp"

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

} // namespace

MediaWriter::MediaWriter(FileSystem& files, VideoCoders& coders, MediaFileOptions options)
    : files_(files), coders_(coders), options_(std::move(options)),
      fileQueue_(makeThreadQueue("media-file")) {}

MediaWriter::~MediaWriter() {
  if (isFinishing_) {
    for (const auto& track : tracks_)
      track->wait();
  } else {
    abandonWriting();
  }
  // The tracks hand over nothing more. What the file still has to do may notify them, so they stay for it.
  fileQueue_->sync([] {});
  tracks_.clear();
  fileQueue_.reset();
}

bool MediaWriter::canApply(const VideoSettings& settings) {
  return coders_.canCode(settings);
}

VideoInput* MediaWriter::addVideoInput(const VideoSettings& settings) {
  if (state_.status() != MediaWriterStatus::unknown || !coders_.canCode(settings))
    return nullptr;
  const std::size_t track = tracks_.size();
  const VideoTrackInput::Sink sink{
      [this, track](CodedPicture picture, std::int64_t time) { write(track, std::move(picture), time); },
      [this](MediaWriterError error) { coderFailed(std::move(error)); }};
  try {
    return tracks_.emplace_back(std::make_unique<VideoTrackInput>(settings, coders_, state_, sink)).get();
  } catch (const CoderFailure&) {
    return nullptr;
  }
}

AudioInput* MediaWriter::addAudioInput(const AudioSettings&) {
  return nullptr;
}

bool MediaWriter::startWriting() {
  if (state_.status() != MediaWriterStatus::unknown || tracks_.empty())
    return false;
  std::vector<container::SampleDescription> descriptions;
  for (const auto& track : tracks_)
    descriptions.push_back(track->description());
  const FragmentIntervals intervals{inVideoUnits(options_.initialFragmentInterval),
                                    inVideoUnits(options_.fragmentInterval)};
  openTracks_ = tracks_.size();
  onFile([&] { movie_.emplace(files_, options_.path, intervals, descriptions); });
  return state_.change(MediaWriterStatus::unknown, MediaWriterStatus::writing);
}

void MediaWriter::startSession(MediaTime sourceTime) {
  for (const auto& track : tracks_)
    track->startSession(sourceTime);
}

// On a track's thread.
void MediaWriter::write(std::size_t track, CodedPicture picture, std::int64_t time) {
  const std::size_t bytes = picture.sample.size();
  state_.addUnwritten(bytes);
  fileQueue_->async([this, track, picture = std::move(picture), time, bytes] {
    // What was coded before a failure is kept.
    if (state_.status() != MediaWriterStatus::cancelled)
      onFile([&] { movie_->append(track, picture, time); });
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
  for (const auto& track : tracks_)
    track->finish(trackFinished);
}

// On the file's thread, when nothing is appended any more.
void MediaWriter::finishFile(const std::function<void()>& completion) {
  if (state_.isWriting()) {
    std::vector<std::int64_t> endTimes;
    for (const auto& track : tracks_)
      endTimes.push_back(track->endTime());
    onFile([&] { movie_->finish(endTimes); });
    state_.change(MediaWriterStatus::writing, MediaWriterStatus::completed);
  }
  movie_.reset();
  completion();
}

void MediaWriter::cancelWriting() {
  const bool wasWriting = state_.change(MediaWriterStatus::writing, MediaWriterStatus::cancelled);
  state_.change(MediaWriterStatus::unknown, MediaWriterStatus::cancelled);
  for (const auto& track : tracks_)
    track->stop();
  if (!wasWriting)
    return;
  fileQueue_->sync([this] {
    movie_.reset();
    removeQuietly(files_, options_.path);
  });
}

// Nobody has decided over the file, so what was coded until now is made readable and kept.
void MediaWriter::abandonWriting() {
  for (const auto& track : tracks_)
    track->stop();
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
  for (const auto& track : tracks_)
    track->notifyReadiness();
}

std::unique_ptr<MediaFileWriter> MediaWriterFactory::makeWriter(const MediaFileOptions& options) {
  coders_.effort().segmentBegins();
  return std::make_unique<MediaWriter>(files_, coders_, options);
}

} // namespace tessarin::media
