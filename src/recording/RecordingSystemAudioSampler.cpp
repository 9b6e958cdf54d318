#include "recording/RecordingSystemAudioSampler.hpp"

#include "model/Errors.hpp"

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

namespace tessarin {

namespace {

constexpr std::chrono::milliseconds listeningTime{400};

// The handlers' own, so that a stream that is torn down late finds it still there.
struct Listening {
  SystemAudioLevelCollector collector;
  std::atomic<bool> hasEnded = false; // before it was stopped
};

} // namespace

RecordingAudioLevelPayload RecordingSystemAudioSampler::sample(std::string_view displayID) const {
  if (!content_.load().displaysByID.contains(std::string(displayID)))
    throw serviceErrors::contentUnavailable();
  const auto listening = std::make_shared<Listening>();
  const auto queue = makeQueue_("com.tessarin.recording.preflight-audio");
  try {
    const auto stream = devices_.openSystemAudio(
        [listening, &queue = *queue](const AudioSample& sample) {
          queue.async([listening, sample] { listening->collector.collect(sample.pcm); });
        },
        [listening] { listening->hasEnded = true; });
    stream->start();
    // Whatever ends this, the stream's destructor stops it.
    sleep_(listeningTime);
    stream->stop();
  } catch (const Failure<CaptureDeviceError>&) {
    throw serviceErrors::contentUnavailable();
  }
  // What was delivered to the end counts.
  queue->sync([] {});
  if (listening->hasEnded)
    throw serviceErrors::contentUnavailable();
  return listening->collector.level();
}

} // namespace tessarin
