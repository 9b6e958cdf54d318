#include "backends/pipewire/AudioStream.hpp"

#include "backends/pipewire/SampleClock.hpp"
#include "backends/pipewire/SoundCapture.hpp"

#include <spa/param/audio/format-utils.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <span>
#include <utility>

namespace tessarin::pipewire {

namespace {

// How long a device may take to begin.
constexpr auto startPatience = std::chrono::milliseconds(3000);
// A graph that has just begun to run moves its clock by tens of milliseconds once: nothing is delivered
// before it has run evenly for this long, or unevenly for the other.
constexpr std::int64_t settlingTime = 60'000'000;
constexpr std::int64_t longestSettling = 400'000'000;
constexpr std::int64_t settlingTolerance = 4'000'000;
// How long a start waits for that. A device that takes longer to bring its first buffers is heard later.
constexpr auto settlingPatience = std::chrono::milliseconds(500);

// Waits until the told times of successive buffers fit each other.
class Settling {
 public:
  bool isDone() const { return isDone_; }
  void take(std::int64_t toldTime, std::size_t frameCount) {
    if (!begun_) {
      begun_ = toldTime;
    }
    if (!evenSince_ || std::abs(toldTime - expected_) > settlingTolerance) {
      evenSince_ = toldTime;
    }
    expected_ = toldTime + soundLength(frameCount);
    isDone_ = expected_ - *evenSince_ > settlingTime || toldTime - *begun_ > longestSettling;
  }

 private:
  bool isDone_ = false;
  std::int64_t expected_ = 0;
  std::optional<std::int64_t> begun_;
  std::optional<std::int64_t> evenSince_;
};

// What a stream listens to.
struct AudioStreamKind {
  const char* nodeName;
  // Nothing: the default output, and whichever is the default later.
  std::optional<ServerNode> device;
};

// A microphone's or the computer's sound. Buffers are taken on the library's data thread, which is served
// first on a busy machine, and handed to the loop's thread, which gives them their times and delivers them.
//
// Where members are confined to the loop, its lock is held.
class AudioStream final : public DeviceStream, private ConnectionListener {
 public:
  AudioStream(std::shared_ptr<Connection> connection, AudioStreamKind kind, AudioSampleHandler onSample,
              DeviceEndHandler onEnd)
      : connection_(std::move(connection)), kind_(std::move(kind)), onSample_(std::move(onSample)),
        onEnd_(std::move(onEnd)) {}
  ~AudioStream() override { stop(); }
  AudioStream(const AudioStream&) = delete;
  AudioStream& operator=(const AudioStream&) = delete;

  void start() override;
  void stop() override;

 private:
  enum class Stage : std::uint8_t { idle, starting, running, ended };
  struct Events;

  pw_properties* properties() const;
  void connectStream();
  void stateChanged(pw_stream_state state);
  void connectionLost() override { end(CaptureDeviceError::unavailable); }
  void nodeRemoved(std::uint32_t nodeID) override;
  void serverRefused(CaptureDeviceError why) override;
  void woken() override { deliverAll(); }
  void end(CaptureDeviceError why);
  void enter(Stage stage);

  void takeBuffers(); // on the data thread
  void deliverAll();
  void deliver(const BufferRecord& record);
  void noteSettled();
  std::int64_t toldTime(const BufferRecord& record) const;
  std::int64_t missingBefore(const BufferRecord& record);

  const std::shared_ptr<Connection> connection_;
  const AudioStreamKind kind_;
  const AudioSampleHandler onSample_;
  const DeviceEndHandler onEnd_;

  // The loop's:
  pw_stream* stream_ = nullptr; // used by the data thread until it is destroyed
  spa_hook hook_{};
  bool isListening_ = false;
  Settling settling_;
  SampleClock clock_{soundRate};
  std::optional<BufferRecord> last_;

  SoundCapture capture_; // filled by the data thread

  std::mutex mutex_;
  std::condition_variable changed_;
  Stage stage_ = Stage::idle; // guarded by mutex_, as are
  CaptureDeviceError failure_ = CaptureDeviceError::unavailable;
  bool isSettled_ = false;
};

struct AudioStream::Events {
  static AudioStream& self(void* data) { return *static_cast<AudioStream*>(data); }

  static void stateChanged(void* data, pw_stream_state /*old*/, pw_stream_state state,
                           const char* /*error*/) {
    self(data).stateChanged(state);
  }
  static void ioChanged(void* data, std::uint32_t id, void* area, std::uint32_t size) {
    if (id == SPA_IO_Position) {
      const bool isThere = area && size >= sizeof(spa_io_position);
      self(data).capture_.setPosition(isThere ? static_cast<const spa_io_position*>(area) : nullptr);
    }
  }
  static void process(void* data) { self(data).takeBuffers(); }

  static const pw_stream_events* table() {
    static const pw_stream_events events = [] {
      pw_stream_events made{};
      made.version = PW_VERSION_STREAM_EVENTS;
      made.state_changed = &stateChanged;
      made.io_changed = &ioChanged;
      made.process = &process;
      return made;
    }();
    return &events;
  }
};

// What a person once chose for recording programs in general, volumes above all, is not applied: the device
// was chosen for this recording, and is heard as it is.
pw_properties* AudioStream::properties() const {
  auto* properties =
      pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Capture", PW_KEY_NODE_NAME,
                        kind_.nodeName, PW_KEY_NODE_LATENCY, "1024/48000", "state.restore-props", "false",
                        "state.restore-target", "false", nullptr);
  if (kind_.device) {
    pw_properties_set(properties, PW_KEY_TARGET_OBJECT, kind_.device->name.c_str());
    pw_properties_set(properties, PW_KEY_NODE_DONT_RECONNECT, "true");
    // The channels of an array of microphones all hear the same, which must not become louder by their
    // number.
    pw_properties_set(properties, "channelmix.normalize", "true");
  } else {
    pw_properties_set(properties, PW_KEY_STREAM_CAPTURE_SINK, "true");
    // Goes on in silence while there is no output at all.
    pw_properties_set(properties, PW_KEY_NODE_ALWAYS_PROCESS, "true");
  }
  return properties;
}

void AudioStream::start() {
  {
    const Connection::Lock lock(*connection_);
    if (connection_->isLost()) {
      fail(CaptureDeviceError::unavailable);
    }
    enter(Stage::starting);
    connection_->addListener(*this);
    isListening_ = true;
    connectStream();
  }
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, startPatience, [this] { return stage_ != Stage::starting; });
  if (stage_ == Stage::running) {
    // What is heard from the return on is delivered.
    changed_.wait_for(lock, settlingPatience, [this] { return isSettled_ || stage_ != Stage::running; });
    return;
  }
  const auto failure = failure_;
  lock.unlock();
  stop();
  fail(failure);
}

void AudioStream::connectStream() {
  stream_ = pw_stream_new(connection_->core(), kind_.nodeName, properties());
  if (!stream_) {
    end(CaptureDeviceError::unavailable);
    return;
  }
  pw_stream_add_listener(stream_, &hook_, Events::table(), this);

  std::array<std::byte, 1024> memory{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, memory.data(), memory.size());
  spa_audio_info_raw format{};
  format.format = SPA_AUDIO_FORMAT_F32;
  format.rate = soundRate;
  format.channels = soundChannels;
  format.position[0] = SPA_AUDIO_CHANNEL_FL;
  format.position[1] = SPA_AUDIO_CHANNEL_FR;
  const spa_pod* parameter = spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &format);
  const auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS |
                                                  PW_STREAM_FLAG_RT_PROCESS);
  if (pw_stream_connect(stream_, PW_DIRECTION_INPUT, PW_ID_ANY, flags, &parameter, 1) < 0) {
    end(CaptureDeviceError::unavailable);
  }
}

// Destroying the stream waits until the data thread has left it, for which the stream is still to be found.
void AudioStream::stop() {
  const Connection::Lock lock(*connection_);
  enter(Stage::ended);
  if (stream_) {
    pw_stream_destroy(stream_);
    stream_ = nullptr;
  }
  if (isListening_) {
    connection_->removeListener(*this);
    isListening_ = false;
  }
}

void AudioStream::stateChanged(pw_stream_state state) {
  if (state == PW_STREAM_STATE_STREAMING) {
    const std::lock_guard lock(mutex_);
    if (stage_ == Stage::starting) {
      stage_ = Stage::running;
      changed_.notify_all();
    }
  } else if (state == PW_STREAM_STATE_ERROR || state == PW_STREAM_STATE_UNCONNECTED) {
    end(CaptureDeviceError::unavailable);
  }
}

void AudioStream::nodeRemoved(std::uint32_t nodeID) {
  if (kind_.device && kind_.device->id == nodeID) {
    end(CaptureDeviceError::unavailable);
  }
}

// Not an end in itself: what cannot be had shows up in the stream's state, and this tells why.
void AudioStream::serverRefused(CaptureDeviceError why) {
  const std::lock_guard lock(mutex_);
  if (stage_ == Stage::starting) {
    failure_ = why;
  }
}

// On the loop's thread, or while starting. What came before the end is delivered before it is told.
void AudioStream::end(CaptureDeviceError why) {
  deliverAll();
  {
    const std::lock_guard lock(mutex_);
    if (stage_ == Stage::ended) {
      return;
    }
    const auto was = std::exchange(stage_, Stage::ended);
    if (was == Stage::starting && failure_ == CaptureDeviceError::unavailable) {
      failure_ = why;
    }
    changed_.notify_all();
    if (was != Stage::running) {
      return;
    }
  }
  onEnd_();
}

void AudioStream::enter(Stage stage) {
  const std::lock_guard lock(mutex_);
  stage_ = stage;
}

void AudioStream::takeBuffers() {
  capture_.takeBuffers(stream_);
  connection_->wakeListeners();
}

void AudioStream::deliverAll() {
  while (const auto* front = capture_.ring().front()) {
    const auto record = *front;
    deliver(record);
  }
}

void AudioStream::deliver(const BufferRecord& record) {
  auto samples = std::make_shared_for_overwrite<float[]>(record.frameCount * soundChannels);
  capture_.ring().pop(samples.get());
  {
    const std::lock_guard lock(mutex_);
    if (stage_ == Stage::ended) {
      return;
    }
  }
  if (!settling_.isDone()) {
    settling_.take(toldTime(record), record.frameCount);
    last_ = record;
    noteSettled();
    return;
  }
  const auto time =
      clock_.timeOf(toldTime(record), static_cast<std::int64_t>(record.frameCount), missingBefore(record));
  AudioSample sample;
  sample.pcm.data = std::as_bytes(std::span(samples.get(), record.frameCount * soundChannels));
  sample.pcm.format = PcmFormat::float32;
  sample.pcm.channelCount = soundChannels;
  sample.pcm.frameCount = record.frameCount;
  sample.sampleRate = soundRate;
  sample.presentationTime = MediaTime::nanoseconds(time);
  sample.owner = std::move(samples);
  onSample_(sample);
}

void AudioStream::noteSettled() {
  if (settling_.isDone()) {
    const std::lock_guard lock(mutex_);
    isSettled_ = true;
    changed_.notify_all();
  }
}

// When the buffer's first frame was heard, as the graph tells it. What a cycle brings of a microphone was
// heard before the cycle began. What an output plays is heard after its cycle by the delay of the output. An
// output that drives its graph ends the cycle, so that those who listen to it get their share with the next.
std::int64_t AudioStream::toldTime(const BufferRecord& record) const {
  const auto length = soundLength(record.frameCount);
  if (kind_.device) {
    return record.time - std::max(record.pathDelay, length);
  }
  const auto& nodes = connection_->knownState().nodes;
  const bool isOutputDriving = std::any_of(nodes.begin(), nodes.end(), [&](const ServerNode& node) {
    return node.id == record.driverID && isSink(node);
  });
  return isOutputDriving ? record.time - length + record.driverDelay : record.time;
}

// The device's own count tells of buffers that this process was too late for, exactly; where that count
// cannot be compared, as on another output, the times have to do.
std::int64_t AudioStream::missingBefore(const BufferRecord& record) {
  const auto last = std::exchange(last_, record);
  if (!last) {
    return 0;
  }
  const auto missing = record.ticks - last->ticks - soundLength(last->frameCount);
  const auto later = record.time - last->time - soundLength(last->frameCount);
  const auto tolerance = soundLength(std::min(record.frameCount, last->frameCount)) / 2;
  if (missing < tolerance || std::abs(missing - later) > tolerance) {
    return 0;
  }
  return (missing * soundRate + 500'000'000) / 1'000'000'000;
}

} // namespace

std::unique_ptr<DeviceStream> makeMicrophoneStream(std::shared_ptr<Connection> connection,
                                                   const ServerNode& node, AudioSampleHandler onSample,
                                                   DeviceEndHandler onEnd) {
  return std::make_unique<AudioStream>(std::move(connection), AudioStreamKind{"tessarin-microphone", node},
                                       std::move(onSample), std::move(onEnd));
}

std::unique_ptr<DeviceStream> makeSystemAudioStream(std::shared_ptr<Connection> connection,
                                                    AudioSampleHandler onSample, DeviceEndHandler onEnd) {
  return std::make_unique<AudioStream>(std::move(connection),
                                       AudioStreamKind{"tessarin-system-audio", std::nullopt},
                                       std::move(onSample), std::move(onEnd));
}

} // namespace tessarin::pipewire
