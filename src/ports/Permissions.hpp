#pragma once

#include "ports/Devices.hpp"

#include <cstdint>
#include <optional>

// What this session may do, as the platform tells it at the moment of asking.
namespace tessarin {

enum class CaptureAuthorizationStatus : std::uint8_t { notDetermined, restricted, denied, authorized };

// Access to microphones (audio) and cameras (video). Any thread.
class CaptureAuthorization {
 public:
  virtual ~CaptureAuthorization() = default;

  // Asks nobody.
  virtual CaptureAuthorizationStatus status(MediaKind kind) = 0;
  // Asks the person where the platform has a way to, and waits for the answer.
  virtual bool requestAccess(MediaKind kind) = 0;
};

enum class SpeechAuthorizationStatus : std::uint8_t { notDetermined, denied, restricted, authorized };

// Recognition of speech. Any thread.
class SpeechAuthorization {
 public:
  virtual ~SpeechAuthorization() = default;
  virtual SpeechAuthorizationStatus status() = 0;
  virtual SpeechAuthorizationStatus requestAuthorization() = 0;
};

// Watching the keyboard and the pointer wherever they are used. Any thread.
class ListenEventAccess {
 public:
  virtual ~ListenEventAccess() = default;
  virtual bool preflight() = 0; // asks nobody
  virtual bool request() = 0;
};

// What a desktop portal knows about a device kind.
enum class PortalAnswer : std::uint8_t {
  noPortal, // there is none, or none that guards devices of the kind
  unset,    // nobody has answered yet, or the person wants to be asked each time
  yes,
  no
};

// The desktop portal, where the session has one. Any thread; every call but ask() returns in bounded time.
class DevicePortal {
 public:
  virtual ~DevicePortal() = default;

  // What is stored; asks nobody.
  virtual PortalAnswer storedAnswer(MediaKind kind) = 0;
  // Has the portal ask and waits for the answer, however long the person takes. Nothing when there was no
  // way to ask.
  virtual std::optional<bool> ask(MediaKind kind) = 0;
};

} // namespace tessarin
