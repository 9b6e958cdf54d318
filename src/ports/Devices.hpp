#pragma once

#include "base/Failure.hpp"
#include "base/MediaTime.hpp"
#include "model/Picture.hpp"
#include "model/Sound.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// Microphones, cameras and the sound that the computer plays. One backend serves it (src/backends/pipewire).
namespace tessarin {

enum class MediaKind : std::uint8_t { audio, video };

struct CaptureDevice {
  std::string id;   // stays the same when the device is unplugged and plugged in again
  std::string name; // for people, UTF-8
  bool isDefault = false;

  bool operator==(const CaptureDevice&) const = default;
};

// Why a device does not deliver; thrown as Failure<CaptureDeviceError>.
enum class CaptureDeviceError : std::uint8_t {
  unavailable, // no such device, none at all, no server, or it does not begin to run
  denied       // it is there and this session may not use it
};

// A device, or the computer's sound, opened for capture. Methods on one thread at a time, which is none of
// the stream's own.
class DeviceStream {
 public:
  // As stop().
  virtual ~DeviceStream() = default;

  // Returns when the stream runs, in bounded time. To be called once. Throws Failure<CaptureDeviceError>.
  virtual void start() = 0;
  // No handler is under way or will be called once this has returned. Idempotent.
  virtual void stop() = 0;
};

// Samples in order of time, float32 in two channels at 48000 frames a second whatever the device has, with
// the host time at which their first frame was heard. Called on the stream's thread; must not block it.
using AudioSampleHandler = std::function<void(const AudioSample&)>;

// A camera's picture at its native size, opaque; immutable, and a copy of its own, so it may be held as long
// as needed. Called on the stream's thread with the host time at which the picture was taken.
struct CameraFrame {
  Picture picture;
  MediaTime presentationTime;
};
using CameraFrameHandler = std::function<void(const CameraFrame&)>;

// A running stream ended by itself: unplugged, or the server is gone. Called at most once, on the stream's
// thread; nothing is delivered behind it. Must not block, and must not destroy or stop the stream.
using DeviceEndHandler = std::function<void()>;

// Any thread. Every call returns in bounded time, also with a server that does not answer.
class CaptureDevices {
 public:
  virtual ~CaptureDevices() = default;

  // Whether there is a server of sound and cameras that lets this session in.
  virtual bool isReachable() = 0;

  // Microphones or cameras, in the server's order; monitors of outputs are no microphones. At most one is
  // the default. Empty without a server.
  virtual std::vector<CaptureDevice> devices(MediaKind kind) = 0;

  // The device of that id, or the default one. Throws Failure<CaptureDeviceError>: unavailable when there is
  // none. Not running yet.
  virtual std::unique_ptr<DeviceStream> openMicrophone(const std::optional<std::string>& deviceID,
                                                       AudioSampleHandler onSample,
                                                       DeviceEndHandler onEnd) = 0;
  virtual std::unique_ptr<DeviceStream> openCamera(const std::optional<std::string>& deviceID,
                                                   CameraFrameHandler onFrame, DeviceEndHandler onEnd) = 0;
  // What the computer plays on its default output, also when that changes; silence while nothing plays.
  virtual std::unique_ptr<DeviceStream> openSystemAudio(AudioSampleHandler onSample,
                                                        DeviceEndHandler onEnd) = 0;
};

} // namespace tessarin
