#include "modules/media/AudioTrackInput.hpp"

#include "modules/media/CoderFailure.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <utility>

namespace tessarin::media {

namespace {

// Frames; centuries, so that sums of times never overflow.
constexpr std::int64_t farthestTime = std::int64_t{1} << 50;

// Frames that may wait for the coder. A server of sound that has stood still hands over all at once what it
// missed, faster than it can be coded; that is some seconds, at 384 kB each.
std::int64_t mostWaiting(const AudioSettings& settings) {
  constexpr std::int64_t seconds = 10;
  return settings.expectsMediaDataInRealTime ? seconds * settings.sampleRate : settings.sampleRate / 2;
}

std::span<const float> floatsOf(const PcmView& pcm, std::int64_t skipped) {
  const auto channels = static_cast<std::size_t>(pcm.channelCount);
  return std::span(reinterpret_cast<const float*>(pcm.data.data()), pcm.frameCount * channels)
      .subspan(static_cast<std::size_t>(skipped) * channels);
}

} // namespace

AudioTrackInput::AudioTrackInput(const AudioSettings& settings, WriterState& state, Sink sink)
    : settings_(settings), mostWaiting_(mostWaiting(settings)), state_(state), sink_(std::move(sink)),
      coder_(makeAacCoder(settings)), sequencer_(*coder_, static_cast<std::size_t>(settings.channelCount)),
      placement_(settings.sampleRate), queue_(makeThreadQueue("sound-coder")) {}

AudioTrackInput::~AudioTrackInput() {
  if (!isFinishing_)
    isStopped_ = true;
}

bool AudioTrackInput::isReadyForMoreMediaData() const {
  return hasRoom() && !state_.isDiskBehind();
}

// Once true, stays so up to the next append unless the writer ends.
bool AudioTrackInput::hasRoom() const {
  if (isFinished_ || !state_.isWriting())
    return false;
  const std::lock_guard lock(mutex_);
  return waitingFrames_ < mostWaiting_;
}

std::unique_ptr<ReadinessObservation> AudioTrackInput::observeReadiness(std::function<void()> handler) {
  return observers_.add(std::move(handler));
}

void AudioTrackInput::markAsFinished() {
  isFinished_ = true;
}

bool AudioTrackInput::takes(const AudioSample& sample) const {
  const PcmView& pcm = sample.pcm;
  return pcm.format == PcmFormat::float32 && pcm.channelCount == settings_.channelCount &&
         sample.sampleRate == settings_.sampleRate &&
         pcm.frameCount <= pcm.data.size() / sizeof(float) / static_cast<std::size_t>(pcm.channelCount) &&
         reinterpret_cast<std::uintptr_t>(pcm.data.data()) % alignof(float) == 0;
}

bool AudioTrackInput::append(const AudioSample& sample) {
  const MediaTime start = (sample.presentationTime - sessionStart_).convertedTo(settings_.sampleRate);
  // The disk may have fallen behind since the caller found the input ready.
  if (!takes(sample) || !start.isNumeric() || std::abs(start.value()) > farthestTime || !hasRoom())
    return false;
  {
    const std::lock_guard lock(mutex_);
    line_.push_back({sample, start.value()});
    waitingFrames_ += static_cast<std::int64_t>(sample.pcm.frameCount);
  }
  queue_->async([this] { codeNext(); });
  return true;
}

std::optional<AudioTrackInput::Waiting> AudioTrackInput::nextWaiting(bool& freedRoom) {
  const std::lock_guard lock(mutex_);
  if (line_.empty())
    return std::nullopt;
  Waiting waiting = std::move(line_.front());
  line_.pop_front();
  const bool wasFull = waitingFrames_ >= mostWaiting_;
  waitingFrames_ -= static_cast<std::int64_t>(waiting.sample.pcm.frameCount);
  freedRoom = wasFull && waitingFrames_ < mostWaiting_;
  return waiting;
}

void AudioTrackInput::codeNext() {
  bool freedRoom = false;
  const auto waiting = nextWaiting(freedRoom);
  if (waiting && isCoding())
    guarded([&] { code(*waiting); });
  if (freedRoom)
    observers_.notify();
}

void AudioTrackInput::code(const Waiting& waiting) {
  const PcmView& pcm = waiting.sample.pcm;
  const auto frames = static_cast<std::int64_t>(pcm.frameCount);
  const PlacedSound placed = placement_.place(waiting.start, frames);
  codeSilence(placed.silence);
  if (placed.length == 0)
    return;
  const auto sound = floatsOf(pcm, placed.skipped);
  if (placed.length == frames - placed.skipped) {
    sequencer_.append(sound);
  } else {
    stretchSound(sound, static_cast<std::size_t>(pcm.channelCount), static_cast<std::size_t>(placed.length),
                 stretched_);
    sequencer_.append(stretched_);
  }
  sink_.coded(sequencer_.take());
}

// By the second, so that hours take no more memory than that and can be stopped.
void AudioTrackInput::codeSilence(std::int64_t frames) {
  while (frames > 0 && isCoding()) {
    const std::int64_t step = std::min<std::int64_t>(frames, settings_.sampleRate);
    sequencer_.appendSilence(step);
    sink_.coded(sequencer_.take());
    frames -= step;
  }
}

template<class Work> void AudioTrackInput::guarded(const Work& work) {
  try {
    work();
  } catch (const CoderFailure& failure) {
    sink_.failed({failure.domain(), failure.code(), std::nullopt, 0});
  } catch (const std::bad_alloc&) {
    sink_.failed({"POSIX", ENOMEM, std::nullopt, 0});
  }
}

void AudioTrackInput::giveUpBefore(std::int64_t frame) {
  queue_->async([this, frame] {
    if (isCoding())
      guarded([&] { codeSilence(placement_.fillTo(frame)); });
  });
}

void AudioTrackInput::finish(std::int64_t endFrame, std::function<void()> completion) {
  isFinished_ = true;
  isFinishing_ = true;
  queue_->async([this, endFrame, completion = std::move(completion)] {
    if (isCoding())
      guarded([&] {
        codeSilence(placement_.fillTo(endFrame));
        sequencer_.finish();
        sink_.coded(sequencer_.take());
      });
    completion();
  });
}

void AudioTrackInput::stop() {
  isStopped_ = true;
  isFinished_ = true;
  wait();
}

void AudioTrackInput::wait() {
  queue_->sync([] {});
}

} // namespace tessarin::media
