#include "backends/x11/Stream.hpp"

#include "backends/x11/StreamCapture.hpp"
#include "backends/x11/StreamOutputs.hpp"
#include "backends/x11/StreamTicks.hpp"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

namespace tessarin::x11 {

namespace {

constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;
// A server that hangs is left alone after this.
constexpr auto longestStop = std::chrono::seconds(1);

// Wakes a thread that waits for descriptors. Any thread.
class WakeSignal {
 public:
  WakeSignal() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (descriptor_ < 0) {
      throw CaptureFailure();
    }
  }
  ~WakeSignal() { close(descriptor_); }
  WakeSignal(const WakeSignal&) = delete;
  WakeSignal& operator=(const WakeSignal&) = delete;

  void wake() const { eventfd_write(descriptor_, 1); }
  void consume() const {
    eventfd_t count = 0;
    eventfd_read(descriptor_, &count);
  }
  int descriptor() const { return descriptor_; }

 private:
  int descriptor_;
};

class X11ScreenStream final : public ScreenStream {
 public:
  X11ScreenStream(std::unique_ptr<StreamCapture> capture, const HostClock& clock, MediaTime interval,
                  std::weak_ptr<ScreenStreamDelegate> delegate)
      : capture_(std::move(capture)), descriptor_(capture_->descriptor()), clock_(clock), interval_(interval),
        delegate_(std::move(delegate)) {}

  ~X11ScreenStream() override { end(); }
  X11ScreenStream(const X11ScreenStream&) = delete;
  X11ScreenStream& operator=(const X11ScreenStream&) = delete;

  void addScreenOutput(std::weak_ptr<ScreenSampleOutput> output, SerialQueue& queue) override {
    if (hasEndedByItself_) {
      throw CaptureFailure();
    }
    outputs_.add(std::move(output), queue);
    signal_.wake();
  }

  void removeScreenOutput(const ScreenSampleOutput* output) override { outputs_.remove(output); }

  void startCapture() override {
    const std::lock_guard lock(mutex_);
    if (thread_.joinable() || isStopping_) {
      throw CaptureFailure();
    }
    try {
      thread_ = std::thread([this] { run(); });
    } catch (const std::system_error&) {
      throw CaptureFailure();
    }
  }

  void stopCapture() override {
    end();
    if (hasEndedByItself_) {
      throw CaptureFailure();
    }
  }

 private:
  // A thread that waits for a server which does not answer is freed by cutting the connection.
  void end() {
    std::unique_lock lock(mutex_);
    isStopping_ = true;
    signal_.wake();
    if (!thread_.joinable() || thread_.get_id() == std::this_thread::get_id()) {
      return;
    }
    if (!finished_.wait_for(lock, longestStop, [this] { return hasFinished_; })) {
      shutdown(descriptor_, SHUT_RDWR);
      finished_.wait(lock, [this] { return hasFinished_; });
    }
    if (thread_.joinable()) { // another caller may have joined it meanwhile
      thread_.join();
    }
  }

  void run() {
    pthread_setname_np(pthread_self(), "screen-stream");
    bool hasEnded = true;
    try {
      capturePictures();
      hasEnded = capture_->hasEnded();
    } catch (const std::exception&) {
      // The server is lost, or the content has become unreadable: an end like a window's.
    }
    if (hasEnded && !isStopping_) {
      hasEndedByItself_ = true;
      if (const auto delegate = delegate_.lock()) {
        delegate->streamDidStopWithError();
      }
    }
    const std::lock_guard lock(mutex_);
    hasFinished_ = true;
    finished_.notify_all();
  }

  void capturePictures() {
    StreamTicks ticks(now(), interval_);
    std::int64_t lastTick = -1;
    std::int64_t knownChange = capture_->changedAt();
    while (!isStopping_) {
      capture_->takeEvents();
      if (!outputs_.isEmpty()) {
        capture_->lookAtPointer();
      }
      if (capture_->hasEnded()) {
        return;
      }
      if (capture_->hasChanged() && capture_->changedAt() != knownChange) {
        knownChange = capture_->changedAt();
        ticks.contentChanged(knownChange);
        // What changes after a tick belongs to the next one.
        lastTick = std::max(lastTick, ticks.tickAt(knownChange));
      }
      const bool isDue = !outputs_.isEmpty() && (capture_->hasChanged() || capture_->hasPresent());
      const auto tick = ticks.tickAt(now());
      if (isDue && tick > lastTick) {
        lastTick = sample(ticks, tick);
        continue;
      }
      if (isDue) {
        // Between now and a tick that will be sampled anyway, events can wait.
        wait(ticks.sampleTime(lastTick + 1), false);
      } else {
        wait(std::nullopt, true);
      }
    }
  }

  // Yields the tick that was sampled in the end.
  std::int64_t sample(const StreamTicks& ticks, std::int64_t tick) {
    const auto deliver = [&](bool isUnchanged) {
      outputs_.deliver([this] { return capture_->present(); }, MediaTime::nanoseconds(ticks.stamp(tick)),
                       isUnchanged);
    };
    if (capture_->hasChanged() && capture_->takePicture()) {
      tick = std::max(tick, ticks.tickAt(capture_->readAt()));
      deliver(false);
    } else if (capture_->hasPresent()) {
      deliver(true);
    }
    return tick;
  }

  std::int64_t now() const { return clock_.now().convertedTo(MediaTime::nanosecondScale).value(); }

  // Until the time, or somebody wants something of this thread, or there are events if they matter.
  void wait(std::optional<std::int64_t> until, bool forEvents) const {
    std::array<pollfd, 2> descriptors{{{signal_.descriptor(), POLLIN, 0}, {descriptor_, POLLIN, 0}}};
    timespec timeout{};
    if (until) {
      const auto left = std::max<std::int64_t>(*until - now(), 0);
      timeout = {left / nanosecondsPerSecond, left % nanosecondsPerSecond};
    }
    ppoll(descriptors.data(), forEvents ? 2 : 1, until ? &timeout : nullptr, nullptr);
    signal_.consume();
  }

  const std::unique_ptr<StreamCapture> capture_; // the thread's, once it runs
  const int descriptor_;
  const HostClock& clock_;
  const MediaTime interval_;
  const std::weak_ptr<ScreenStreamDelegate> delegate_;
  StreamOutputs outputs_;
  WakeSignal signal_;
  std::atomic<bool> isStopping_ = false;
  std::atomic<bool> hasEndedByItself_ = false;
  std::mutex mutex_;
  std::condition_variable finished_;
  bool hasFinished_ = false; // guarded by mutex_
  std::thread thread_;       // guarded by mutex_
};

class X11ScreenStreamFactory final : public ScreenStreamFactory {
 public:
  X11ScreenStreamFactory(std::shared_ptr<const DisplayServer> server, const HostClock& clock)
      : server_(std::move(server)), clock_(clock) {}

  std::unique_ptr<ScreenStream> makeStream(const ContentFilter& filter,
                                           const StreamConfiguration& configuration,
                                           std::weak_ptr<ScreenStreamDelegate> delegate) override {
    const auto interval = configuration.minimumFrameInterval;
    if (!interval.isNumeric() || interval.value() <= 0) {
      throw CaptureFailure();
    }
    try {
      auto capture = std::make_unique<StreamCapture>(server_->open(), clock_, filter, configuration);
      return std::make_unique<X11ScreenStream>(std::move(capture), clock_, interval, std::move(delegate));
    } catch (const DesktopFailure&) {
      throw CaptureFailure();
    }
  }

 private:
  std::shared_ptr<const DisplayServer> server_;
  const HostClock& clock_;
};

} // namespace

std::unique_ptr<ScreenStreamFactory> makeScreenStreamFactory(std::shared_ptr<const DisplayServer> server,
                                                             const HostClock& clock) {
  return std::make_unique<X11ScreenStreamFactory>(std::move(server), clock);
}

} // namespace tessarin::x11
