#pragma once

#include "base/SerialQueue.hpp"
#include "desktop/WindowCaptureActivator.hpp"
#include "model/Errors.hpp"
#include "ports/Devices.hpp"
#include "ports/Permissions.hpp"

#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace tessarin {

struct CaptureSourceTerminalState {
  bool stopped = false; // also when it failed
  bool failedUnexpectedly = false;

  bool operator==(const CaptureSourceTerminalState&) const = default;
};

// What the microphone and the camera of a recording have in common: a device that is opened and started,
// waited for, and then stopped or lost for good. What it delivers hops from the device's thread to the
// source's own queue. Methods on one thread, which is not that queue, unless said otherwise.
class CaptureSource {
 public:
  CaptureSource(const CaptureSource&) = delete;
  CaptureSource& operator=(const CaptureSource&) = delete;

  // Returns when the device runs. A refusal that is on record is denied before anything is opened; whether
  // a device can be had in any other case the device itself tells. Throws NativeServiceError: the source's
  // error for a device that is unavailable, or for access that is denied.
  void start();
  // On return no handler is under way, and nothing is delivered any more. Idempotent.
  void stop();

  // Any thread.
  CaptureSourceTerminalState terminalState() const;

 protected:
  struct Character {
    MediaKind kind;
    std::string queueLabel;
    NativeServiceError unavailable;
    NativeServiceError denied;
  };

  // What the device's thread, the queue and all readers share; outlives the source where one of them holds
  // it.
  struct Shared {
    virtual ~Shared() = default;
    // The source has ended: drops what would still be handed out.
    virtual void clearLocked() {}

    mutable std::mutex lock;
    // Guarded by lock.
    CaptureSourceTerminalState terminalState;
    bool hasDelivered = false;
  };

  // The failure handler is called once, when the running device ends by itself, on a thread of the device;
  // it must not block. The authorization outlives the source.
  CaptureSource(Character character, CaptureAuthorization& authorization, const QueueFactory& makeQueue,
                Sleeper sleep, std::function<void()> failureHandler, std::shared_ptr<Shared> shared);
  // The source must have been stopped.
  ~CaptureSource() = default;

  // Opens the device, its end going to the handler. Throws Failure<CaptureDeviceError>.
  virtual std::unique_ptr<DeviceStream> open(DeviceEndHandler onEnd) = 0;

  // Returns when something has been delivered. Throws the error of an unavailable device when the source
  // has ended, or after 40 rounds that are 50 ms apart.
  void waitForFirstDelivery();

  SerialQueue& queue() { return *queue_; }
  const std::shared_ptr<Shared>& shared() const { return shared_; }

 private:
  // True once: the source has ended by this call.
  static bool endOnce(Shared& shared, bool failed);

  const Character character_;
  CaptureAuthorization& authorization_;
  const Sleeper sleep_;
  const std::function<void()> failureHandler_;
  const std::shared_ptr<Shared> shared_;
  const std::unique_ptr<SerialQueue> queue_;
  std::unique_ptr<DeviceStream> stream_; // the owner's thread; its handlers use the queue, so it goes first
};

} // namespace tessarin
