#pragma once

#include "desktop/CaptureModels.hpp"
#include "desktop/ContentService.hpp"
#include "desktop/WindowCaptureActivator.hpp"
#include "ports/Capture.hpp"
#include "ports/Desktop.hpp"

#include <cstdint>

namespace tessarin {

// Makes one PNG file of a region of a display, a whole display or one window. Any thread, one call at a
// time; a call blocks until the file is written.
class CaptureService {
 public:
  // What a capture needs of the machine; nothing is owned, all must outlive the service.
  struct Ports {
    DesktopContent& desktop;
    StillCapturer& stills;
    PngWriter& images;
    ApplicationActivator& applications;
    Sleeper sleep;
  };

  // The parent is the host: its windows are left out when a request asks for that.
  CaptureService(Ports ports, std::int32_t parentProcessIdentifier);

  // Against the desktop as it is now. Throws NativeServiceError, and nothing else.
  CapturedImagePayload capture(const CaptureRequestDTO& request) const;

  // Against a snapshot that the caller has already. Throws NativeServiceError, and nothing else.
  CapturedImagePayload capture(const CaptureRequestDTO& request, const ContentSnapshot& snapshot) const;

 private:
  CapturedImagePayload captureUnguarded(const CaptureRequestDTO& request,
                                        const ContentSnapshot& snapshot) const;

  Ports ports_;
  std::int32_t parentProcessIdentifier_;
};

} // namespace tessarin
