#include "backends/pipewire/CameraStream.hpp"

#include "backends/pipewire/CameraFormats.hpp"
#include "backends/pipewire/CameraPictures.hpp"
#include "backends/pipewire/JpegPictures.hpp"
#include "base/HostClock.hpp"

#include <pipewire/stream.h>
#include <pthread.h>
#include <spa/buffer/buffer.h>
#include <spa/buffer/meta.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace tessarin::pipewire {

namespace {

// A frame's own time is believed when it is about now: other clocks count from other beginnings.
constexpr std::int64_t oldestFrame = 1'000'000'000; // nanoseconds

// A frame in a buffer of the server's, which gets it back when the picture has been made.
struct WaitingFrame {
  pw_buffer* buffer = nullptr;
  CameraFormat format;
  MediaTime time;
};

// Nothing when the camera itself calls the frame broken.
std::optional<MediaTime> timeOf(const spa_buffer& buffer, MediaTime now) {
  const auto* header = static_cast<const spa_meta_header*>(
      spa_buffer_find_meta_data(&buffer, SPA_META_Header, sizeof(spa_meta_header)));
  if (!header) {
    return now;
  }
  if ((header->flags & (SPA_META_HEADER_FLAG_CORRUPTED | SPA_META_HEADER_FLAG_GAP)) != 0) {
    return std::nullopt;
  }
  const auto age = now.value() - header->pts;
  return header->pts > 0 && age >= 0 && age <= oldestFrame ? MediaTime::nanoseconds(header->pts) : now;
}

// The parts of the buffer that hold something, each within its memory.
std::vector<CameraBlock> blocksOf(const spa_buffer& buffer) {
  std::vector<CameraBlock> blocks;
  for (std::uint32_t i = 0; i < buffer.n_datas; ++i) {
    const auto& data = buffer.datas[i];
    if (!data.data || !data.chunk || (data.chunk->flags & SPA_CHUNK_FLAG_CORRUPTED) != 0) {
      return {};
    }
    const auto offset = std::min(data.chunk->offset, data.maxsize);
    const auto size = std::min(data.chunk->size, data.maxsize - offset);
    blocks.push_back({{static_cast<const std::uint8_t*>(data.data) + offset, size}, data.chunk->stride});
  }
  return blocks;
}

// Frames come on the loop's thread, which only puts the newest one aside. A thread of the stream's own makes
// pictures of them, calls the handlers, and gives the buffers back. It never holds the mutex and the loop's
// lock together; a holder of the loop's lock waits for it at most as long as one picture takes to be made.
class CameraStream final : public DeviceStream, private ConnectionListener {
 public:
  CameraStream(std::shared_ptr<Connection> connection, ServerNode node, CameraFrameHandler onFrame,
               DeviceEndHandler onEnd)
      : connection_(std::move(connection)), node_(std::move(node)), onFrame_(std::move(onFrame)),
        onEnd_(std::move(onEnd)) {}
  ~CameraStream() override { stop(); }

  void start() override {
    thread_ = std::thread([this] { deliver(); });
    const auto problem = connectAndWait();
    if (problem) {
      stop();
      fail(*problem);
    }
  }

  void stop() override {
    {
      const std::lock_guard lock(mutex_);
      phase_ = Phase::stopped; // what the stream tells while it is taken down is no news
      changed_.notify_all();
    }
    {
      const Connection::Lock loopLock(*connection_);
      connection_->removeListener(*this);
      if (stream_) {
        pw_stream_destroy(std::exchange(stream_, nullptr));
      }
    }
    if (thread_.joinable()) {
      thread_.join();
    }
  }

 private:
  enum class Phase { starting, refused, running, ended, stopped };
  struct Events; // the stream's, as functions for the library

  std::optional<CaptureDeviceError> connectAndWait() {
    {
      const Connection::Lock loopLock(*connection_);
      if (connection_->isLost() || !isThere()) {
        return CaptureDeviceError::unavailable;
      }
      connection_->addListener(*this);
      if (!connect()) {
        return CaptureDeviceError::unavailable;
      }
    }
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, Connection::patience, [this] { return phase_ != Phase::starting; });
    const bool hasRun = phase_ == Phase::running || phase_ == Phase::ended;
    return hasRun ? std::nullopt : std::optional(refusal_);
  }

  // Whether the camera has not been unplugged since it was chosen. With the loop locked.
  bool isThere() const {
    const auto& nodes = connection_->knownState().nodes;
    return std::any_of(nodes.begin(), nodes.end(), [this](const auto& node) { return node.id == node_.id; });
  }

  bool connect();
  void stateChanged(pw_stream_state state);
  void formatChanged(const spa_pod* format);
  void frameCame();
  void bufferRemoved(pw_buffer* buffer);
  void end();

  void connectionLost() override { end(); }
  void nodeRemoved(std::uint32_t nodeID) override {
    if (nodeID == node_.id) {
      end();
    }
  }
  void serverRefused(CaptureDeviceError why) override {
    const std::lock_guard lock(mutex_);
    refusal_ = why;
  }

  void deliver();
  std::optional<Picture> makePicture(const WaitingFrame& frame);
  void giveBack(pw_buffer* buffer);

  const std::shared_ptr<Connection> connection_;
  const ServerNode node_;
  const CameraFrameHandler onFrame_;
  const DeviceEndHandler onEnd_;
  const MonotonicHostClock clock_;

  // With the loop locked:
  pw_stream* stream_ = nullptr;
  spa_hook hook_{};
  std::optional<CameraFormat> format_; // nothing while it is being agreed on

  // The delivering thread's own:
  JpegReader jpegReader_;
  PicturePool pool_;

  std::mutex mutex_;
  std::condition_variable changed_;
  // Guarded by mutex_:
  Phase phase_ = Phase::starting;
  CaptureDeviceError refusal_ = CaptureDeviceError::unavailable; // why it would not start
  std::optional<WaitingFrame> waiting_;                          // the newest
  pw_buffer* inWork_ = nullptr;                                  // its memory is being read
  pw_buffer* done_ = nullptr;                                    // read, and still to be given back

  std::thread thread_;
};

struct CameraStream::Events {
  static CameraStream& self(void* data) { return *static_cast<CameraStream*>(data); }

  static void stateChanged(void* data, pw_stream_state /*before*/, pw_stream_state state,
                           const char* /*error*/) {
    self(data).stateChanged(state);
  }
  static void paramChanged(void* data, std::uint32_t id, const spa_pod* parameter) {
    if (id == SPA_PARAM_Format) {
      self(data).formatChanged(parameter);
    }
  }
  static void removeBuffer(void* data, pw_buffer* buffer) { self(data).bufferRemoved(buffer); }
  static void process(void* data) { self(data).frameCame(); }

  static const pw_stream_events* stream() {
    static const pw_stream_events events = [] {
      pw_stream_events made{};
      made.version = PW_VERSION_STREAM_EVENTS;
      made.state_changed = &stateChanged;
      made.param_changed = &paramChanged;
      made.remove_buffer = &removeBuffer;
      made.process = &process;
      return made;
    }();
    return &events;
  }
};

bool CameraStream::connect() {
  auto* properties = pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY, "Capture",
                                       PW_KEY_MEDIA_ROLE, "Camera", PW_KEY_NODE_DONT_RECONNECT, "true",
                                       "target.object", node_.name.c_str(), nullptr);
  stream_ = pw_stream_new(connection_->core(), "tessarin-camera", properties);
  if (!stream_) {
    return false;
  }
  pw_stream_add_listener(stream_, &hook_, Events::stream(), this);
  const auto formats = CameraParameters::formats();
  auto pods = formats.pods();
  constexpr auto flags =
      PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_DONT_RECONNECT | PW_STREAM_FLAG_MAP_BUFFERS;
  return pw_stream_connect(stream_, PW_DIRECTION_INPUT, PW_ID_ANY, static_cast<pw_stream_flags>(flags),
                           pods.data(), static_cast<std::uint32_t>(pods.size())) >= 0;
}

void CameraStream::stateChanged(pw_stream_state state) {
  if (state == PW_STREAM_STATE_ERROR || state == PW_STREAM_STATE_UNCONNECTED) {
    end();
    return;
  }
  const std::lock_guard lock(mutex_);
  if (state == PW_STREAM_STATE_STREAMING && phase_ == Phase::starting) {
    phase_ = Phase::running;
    changed_.notify_all();
  }
}

void CameraStream::formatChanged(const spa_pod* format) {
  format_ = parseCameraFormat(format);
  if (format_) {
    const auto buffers = CameraParameters::buffers();
    auto pods = buffers.pods();
    pw_stream_update_params(stream_, pods.data(), static_cast<std::uint32_t>(pods.size()));
  }
}

// A frame that is still waiting gives way to a newer one.
void CameraStream::frameCame() {
  pw_buffer* newest = nullptr;
  while (auto* next = pw_stream_dequeue_buffer(stream_)) {
    giveBack(std::exchange(newest, next));
  }
  if (!newest) {
    return;
  }
  const auto time = timeOf(*newest->buffer, clock_.now());
  if (!format_ || !time) {
    giveBack(newest);
    return;
  }
  std::optional<WaitingFrame> late;
  {
    const std::lock_guard lock(mutex_);
    late = std::exchange(waiting_, WaitingFrame{newest, *format_, *time});
    changed_.notify_all();
  }
  if (late) {
    giveBack(late->buffer);
  }
}

// With the loop locked.
void CameraStream::giveBack(pw_buffer* buffer) {
  if (buffer && stream_) {
    pw_stream_queue_buffer(stream_, buffer);
  }
}

// The buffer's memory goes away when this returns.
void CameraStream::bufferRemoved(pw_buffer* buffer) {
  std::unique_lock lock(mutex_);
  if (waiting_ && waiting_->buffer == buffer) {
    waiting_.reset();
  }
  changed_.wait(lock, [&] { return inWork_ != buffer; });
  if (done_ == buffer) {
    done_ = nullptr;
  }
}

void CameraStream::end() {
  const std::lock_guard lock(mutex_);
  if (phase_ == Phase::starting) {
    phase_ = Phase::refused;
  } else if (phase_ == Phase::running) {
    phase_ = Phase::ended;
  }
  changed_.notify_all();
}

void CameraStream::deliver() {
  pthread_setname_np(pthread_self(), "camera");
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return phase_ == Phase::ended || phase_ == Phase::stopped || waiting_; });
    if (phase_ == Phase::ended || phase_ == Phase::stopped) {
      break;
    }
    const auto frame = *std::exchange(waiting_, std::nullopt);
    inWork_ = frame.buffer;
    lock.unlock();
    const auto picture = makePicture(frame);
    lock.lock();
    inWork_ = nullptr;
    done_ = frame.buffer;
    changed_.notify_all();
    lock.unlock();
    {
      const Connection::Lock loopLock(*connection_);
      lock.lock();
      auto* finished = std::exchange(done_, nullptr);
      lock.unlock();
      giveBack(finished);
    }
    lock.lock();
    if (picture && phase_ == Phase::running) {
      lock.unlock();
      onFrame_({*picture, frame.time});
      lock.lock();
    }
  }
  const bool hasEnded = phase_ == Phase::ended;
  lock.unlock();
  if (hasEnded) {
    onEnd_();
  }
}

std::optional<Picture> CameraStream::makePicture(const WaitingFrame& frame) {
  const auto blocks = blocksOf(*frame.buffer->buffer);
  if (blocks.empty()) {
    return std::nullopt;
  }
  return frame.format.coding == CameraCoding::jpeg ? jpegReader_.read(blocks[0].bytes, pool_)
                                                   : convertFrame(frame.format, blocks, pool_);
}

} // namespace

std::unique_ptr<DeviceStream> makeCameraStream(std::shared_ptr<Connection> connection, const ServerNode& node,
                                               CameraFrameHandler onFrame, DeviceEndHandler onEnd) {
  return std::make_unique<CameraStream>(std::move(connection), node, std::move(onFrame), std::move(onEnd));
}

} // namespace tessarin::pipewire
