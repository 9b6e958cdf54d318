#pragma once

#include "model/Geometry.hpp"

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <vector>

// What the desktop can tell about itself. One backend serves it (src/backends/x11).
namespace tessarin {

// The desktop could not be read: no display server, a lost connection, a refused request.
class DesktopFailure : public std::exception {
 public:
  const char* what() const noexcept override { return "the desktop could not be read"; }
};

struct RunningApplication {
  std::string bundleIdentifier; // the window class of its windows; may be empty
  std::int32_t processID = 0;
  std::string applicationName;

  bool operator==(const RunningApplication&) const = default;
};

struct ShareableDisplay {
  std::uint32_t displayID = 0;
  RectDTO frame;              // points
  double pointPixelScale = 1; // pixels per point
  bool isMain = false;
};

struct ShareableWindow {
  std::uint32_t windowID = 0;       // the client window
  RectDTO frame;                    // points; with decoration, without client-drawn shadow
  std::optional<std::string> title; // UTF-8, repaired
  std::int64_t windowLayer = 0;
  bool isOnScreen = false;
  std::optional<RunningApplication> owningApplication;
};

// One entry of the front-to-back list, for stacking and desktop elements. What could not be read is absent.
struct WindowListEntry {
  std::optional<std::uint32_t> number;
  std::optional<std::int64_t> layer;
  std::optional<RectDTO> bounds; // points
  std::string ownerName;         // empty when unknown
  std::string name;              // empty when unknown
};

struct ShareableContent {
  std::vector<ShareableDisplay> displays;
  std::vector<ShareableWindow> windows;         // in the platform's own order
  std::vector<RunningApplication> applications; // each once
  // Front to back; nothing when the list could not be had.
  std::optional<std::vector<WindowListEntry>> windowList;
};

// Any thread, one call at a time.
class DesktopContent {
 public:
  virtual ~DesktopContent() = default;

  // Whether this session may read the screen: no prompt, nothing enumerated.
  virtual bool hasScreenCaptureAccess() = 0;
  // One consistent reading, never cached. Throws DesktopFailure.
  virtual ShareableContent content() = 0;
};

// Brings an application's windows forward before a still of one of them.
class ApplicationActivator {
 public:
  virtual ~ApplicationActivator() = default;

  // Nothing when no application of that process owns a window.
  virtual std::optional<bool> isActive(std::int32_t processID) = 0;
  virtual void activate(std::int32_t processID) = 0;
};

} // namespace tessarin
