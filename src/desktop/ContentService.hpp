#pragma once

#include "desktop/CaptureModels.hpp"
#include "ports/Desktop.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tessarin {

// One consistent picture of what can be captured: the record for the host, and the platform's own view of
// the same things for those who capture. Plain value.
struct ContentSnapshot {
  CaptureContextPayload payload;                        // permission is always granted
  std::map<std::string, ShareableDisplay> displaysByID; // by DisplayInfoDTO.id
  std::map<std::string, ShareableWindow> windowsByID;   // by WindowInfoDTO.id
  std::vector<RunningApplication> excludedApplications; // those that the exclusion sets name
};

// Takes snapshots of the desktop: displays, eligible windows, menu bars and their items, applications to
// hide. Keeps no state between snapshots. Any thread, one call at a time.
class ContentService {
 public:
  // The desktop is not owned and must outlive the service. Applications are hidden by bundle identifier
  // or by process.
  explicit ContentService(DesktopContent& desktop,
                          std::set<std::string, std::less<>> excludedBundleIdentifiers = {},
                          std::set<std::int32_t> excludedProcessIdentifiers = {});

  // Throws NativeServiceError: permissionDenied without access to the screen, contentUnavailable when the
  // desktop cannot be read, has no display, or has one with impossible geometry.
  ContentSnapshot load() const;

  bool shouldExclude(std::string_view bundleIdentifier, std::int32_t processIdentifier) const;

 private:
  std::vector<WindowInfoDTO> eligibleWindows(const ShareableContent& content,
                                             ContentSnapshot& snapshot) const;

  DesktopContent& desktop_;
  std::set<std::string, std::less<>> excludedBundleIdentifiers_;
  std::set<std::int32_t> excludedProcessIdentifiers_;
};

} // namespace tessarin
