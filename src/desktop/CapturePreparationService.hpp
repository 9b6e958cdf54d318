#pragma once

#include "base/Json.hpp"
#include "desktop/CaptureModels.hpp"
#include "desktop/CapturePreparationRequest.hpp"
#include "desktop/CaptureService.hpp"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tessarin {

class FileSystem;
class HostClock;

struct PreparedDisplayCapture {
  std::string displayID;
  CapturedImagePayload image;

  static constexpr auto fields() {
    return json::table(json::field("displayId", &PreparedDisplayCapture::displayID),
                       json::field("image", &PreparedDisplayCapture::image));
  }
  bool operator==(const PreparedDisplayCapture&) const = default;
};

// The answer of `prepare-capture`. Plain value.
struct CapturePreparationPayload {
  CaptureContextPayload context;
  std::vector<PreparedDisplayCapture> captures; // in the displays' order
  double discoveryMs = 0;                       // the time that the snapshot took, in milliseconds
  double captureMs = 0;                         // and all the pictures

  static constexpr auto fields() {
    return json::table(json::field("context", &CapturePreparationPayload::context),
                       json::field("captures", &CapturePreparationPayload::captures),
                       json::field("discoveryMs", &CapturePreparationPayload::discoveryMs),
                       json::field("captureMs", &CapturePreparationPayload::captureMs));
  }
  bool operator==(const CapturePreparationPayload&) const = default;
};

// Freezes the desktop: one snapshot, and a PNG file of each display in it, "0.png" and so on, which appears
// under its name only when it is finished. Any thread, one call at a time; a call blocks until all files are
// there.
class CapturePreparationService {
 public:
  static constexpr std::size_t mostDisplays = 16;

  // Nothing is owned, all must outlive the service. The parent is the host: its windows are not offered as
  // targets, though they are in the pictures. It is asked for anew at each window, since a parent may end.
  struct Ports {
    CaptureService::Ports capture;
    FileSystem& files;
    const HostClock& clock;
    std::function<std::int32_t()> parentProcessIdentifier;
  };
  explicit CapturePreparationService(Ports ports) : ports_(std::move(ports)) {}

  // Throws NativeServiceError, and FileFailure where the directory cannot be looked at or a finished file not
  // be moved. The first failure ends it: what is finished by then stays, and nothing unfinished does.
  CapturePreparationPayload prepare(const CapturePreparationRequest& request) const;

 private:
  std::vector<PreparedDisplayCapture> captures(const ContentSnapshot& snapshot,
                                               const std::string& directory) const;

  Ports ports_;
};

} // namespace tessarin
