#pragma once

#include "base/Json.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace tessarin {

// One line that a host writes to a capture worker. Plain value.
struct CaptureWorkerRequest {
  std::int64_t schemaVersion = 1;
  std::string requestID;              // a UUID in any letter case, which the response repeats as it is
  std::vector<std::string> arguments; // without a program name

  static constexpr auto fields() {
    return json::table(json::field("schemaVersion", &CaptureWorkerRequest::schemaVersion),
                       json::field("requestId", &CaptureWorkerRequest::requestID),
                       json::field("arguments", &CaptureWorkerRequest::arguments));
  }
  bool operator==(const CaptureWorkerRequest&) const = default;

  // Whether a worker serves it: `list --exclude-parent-application` and `prepare-capture` alone. Pure. Throws
  // Failure<CommandParserError>.
  void validate() const;
};

} // namespace tessarin
