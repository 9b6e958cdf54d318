#include "modules/media/VideoTrackInput.hpp"

#include "modules/media/CoderFailure.hpp"
#include "modules/media/MovieFile.hpp"

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

namespace tessarin::media {

namespace {

// Different pictures that may wait for the coder.
constexpr std::size_t longestLine = 4;
// Those, one being coded, the last one coded, and what the owner keeps to repeat or to append later.
constexpr std::size_t mostPictures = longestLine + 8;

// Places that may wait. In real time repetitions, which cost the coder next to nothing, keep the pace; a
// coder without them, and a source that can wait, is held to its own.
std::size_t mostPlaces(const VideoSettings& settings, bool repeats) {
  constexpr std::int64_t seconds = 2;
  return settings.expectsMediaDataInRealTime && repeats
             ? std::max(longestLine, static_cast<std::size_t>(settings.expectedFrameRate * seconds))
             : longestLine;
}

std::int64_t frameDuration(const VideoSettings& settings) {
  const MediaTime interval(1, static_cast<std::int32_t>(settings.expectedFrameRate));
  return std::max<std::int64_t>(interval.convertedTo(videoTimescale).value(), 1);
}

KeyInterval keyInterval(const VideoSettings& settings) {
  const auto rate = static_cast<std::int32_t>(settings.expectedFrameRate);
  return {settings.maximumKeyFrameInterval,
          MediaTime(settings.maximumKeyFrameInterval, rate).convertedTo(videoTimescale).value()};
}

} // namespace

VideoTrackInput::VideoTrackInput(const VideoSettings& settings, VideoCoders& coders, WriterState& state,
                                 Sink sink)
    : settings_(settings), coders_(coders), state_(state), sink_(std::move(sink)),
      pool_(static_cast<std::int32_t>(settings.width), static_cast<std::int32_t>(settings.height),
            mostPictures),
      judge_(videoTimescale), coder_(coders.make(settings)),
      sequencer_(*coder_.coder, coder_.coder->makeRepeater(), keyInterval(settings), sink_.coded),
      line_(longestLine, mostPlaces(settings, sequencer_.repeats())), queue_(makeThreadQueue("media-coder")) {
}

VideoTrackInput::~VideoTrackInput() {
  if (!isFinishing_)
    isStopped_ = true;
}

bool VideoTrackInput::isReadyForMoreMediaData() const {
  return hasRoom() && !state_.isDiskBehind();
}

// Once true, stays so up to the next append unless the writer ends.
bool VideoTrackInput::hasRoom() const {
  return !isFinished_ && state_.isWriting() && line_.hasRoom();
}

std::unique_ptr<ReadinessObservation> VideoTrackInput::observeReadiness(std::function<void()> handler) {
  return observers_.add(std::move(handler));
}

void VideoTrackInput::markAsFinished() {
  isFinished_ = true;
}

std::shared_ptr<const CodablePicture> VideoTrackInput::render(const PictureView& source) {
  if (source.width < 1 || source.height < 1)
    return nullptr;
  auto picture = pool_.take();
  if (!picture)
    return nullptr;
  if (!scaler_ || !scaler_->takes(source))
    scaler_.emplace(source.width, source.height, area());
  scaler_->scaleToI420(source, picture->planes());
  return picture;
}

pixels::FittedArea VideoTrackInput::area() const {
  auto whole = pixels::FittedArea::whole(static_cast<std::int32_t>(settings_.width),
                                         static_cast<std::int32_t>(settings_.height));
  whole.isMirrored = settings_.isMirrored;
  return whole;
}

// The time in the track, at least one unit after the one before; nothing when it does not come after it.
std::optional<std::int64_t> VideoTrackInput::nextTime(MediaTime presentationTime) const {
  const MediaTime time = (presentationTime - sessionStart_).convertedTo(videoTimescale);
  if (!time.isNumeric() || time.value() < 0 || (lastTime_ && time.value() < *lastTime_))
    return std::nullopt;
  return lastTime_ ? std::max(time.value(), *lastTime_ + 1) : time.value();
}

bool VideoTrackInput::append(std::shared_ptr<const CodablePicture> picture, MediaTime presentationTime) {
  auto own = std::dynamic_pointer_cast<const I420Picture>(std::move(picture));
  // The disk may have fallen behind since the caller found the input ready.
  if (!hasRoom())
    return false;
  const std::optional<std::int64_t> time = nextTime(presentationTime);
  if (!own || own->width() != settings_.width || own->height() != settings_.height || !time) {
    sink_.failed({"POSIX", EINVAL, std::nullopt, 0});
    return false;
  }
  lastTime_ = *time;
  watchLoad(*time, line_.push(std::move(own), *time));
  queue_->async([this] { codeNext(); });
  return true;
}

// A source that can wait is never in a hurry.
void VideoTrackInput::watchLoad(std::int64_t time, bool gaveWay) {
  if (!settings_.expectsMediaDataInRealTime)
    return;
  const CodingEffort effort = coders_.effort().current();
  coders_.effort().stepDown(effort, judge_.judge(time, gaveWay, effort));
}

void VideoTrackInput::codeNext() {
  bool freedRoom = false;
  auto place = line_.pop(freedRoom);
  if (place && !isStopped_ && state_.isWriting())
    guarded([&] { sequencer_.append(place->picture, place->time); });
  if (freedRoom)
    observers_.notify();
}

template<class Work> void VideoTrackInput::guarded(const Work& work) {
  try {
    work();
  } catch (const CoderFailure& failure) {
    coders_.failed(coder_.encoderName);
    sink_.failed({failure.domain(), failure.code(), std::nullopt, 0});
  } catch (const std::bad_alloc&) {
    sink_.failed({"POSIX", ENOMEM, std::nullopt, 0});
  }
}

void VideoTrackInput::finish(std::function<void()> completion) {
  isFinished_ = true;
  isFinishing_ = true;
  if (settings_.expectsMediaDataInRealTime && lastTime_)
    coders_.effort().trackEnds(judge_.calmTime(), videoTimescale);
  queue_->async([this, completion = std::move(completion)] {
    if (!isStopped_ && state_.isWriting())
      guarded([&] { sequencer_.finish(); });
    completion();
  });
}

void VideoTrackInput::stop() {
  isStopped_ = true;
  isFinished_ = true;
  wait();
}

void VideoTrackInput::wait() {
  queue_->sync([] {});
}

std::int64_t VideoTrackInput::endTime() const {
  return lastTime_ ? *lastTime_ + frameDuration(settings_) : 0;
}

} // namespace tessarin::media
