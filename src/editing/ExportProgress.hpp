#pragma once

#include "base/Diagnostics.hpp"
#include "base/HostClock.hpp"

#include <functional>
#include <string>
#include <string_view>

namespace tessarin {

// Where the progress of long work is shown: on a terminal as a bar that is drawn again and again on one line,
// elsewhere as diagnostics lines.
struct ProgressOutput {
  DiagnosticsSink lines;
  std::function<void(std::string_view)> terminal; // takes text as it stands; null where there is no terminal
};

// Tells a person or a host how far an export is: "tessarin-native export-progress permille=420
// elapsedMs=3100", at most four times a second, and nothing at all of work that takes less than a second. For
// one thread at a time.
class ExportProgress {
 public:
  // The clock outlives the progress. The work begins now.
  ExportProgress(const HostClock& clock, ProgressOutput output);
  // Ends the bar's line.
  ~ExportProgress();
  ExportProgress(const ExportProgress&) = delete;
  ExportProgress& operator=(const ExportProgress&) = delete;

  // How much of the work is done, 0 to 1000.
  void report(int permille);

 private:
  const HostClock& clock_;
  const ProgressOutput output_;
  const MediaTime begin_;
  MediaTime next_;        // the earliest time at which something is told
  bool hasBar_ = false;   // is on the terminal
  int lastPermille_ = -1; // told
};

} // namespace tessarin
