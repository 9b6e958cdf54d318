#pragma once

#include <chrono>
#include <concepts>
#include <functional>
#include <string>
#include <string_view>

namespace tessarin {

// One diagnostics line: a head and blank-separated key=value items. No protocol, no levels.
//
//   DiagnosticsLine("tessarin-native recording-summary").item("startupMs", 12).item("screenFrames",
//   600).text()
class DiagnosticsLine {
 public:
  explicit DiagnosticsLine(std::string_view head) : text_(head) {}

  // Blanks and control characters of the value become underscores, so that items stay apart.
  DiagnosticsLine& item(std::string_view key, std::string_view value);
  template<std::integral T> DiagnosticsLine& item(std::string_view key, T value) {
    return item(key, std::string_view(std::to_string(value)));
  }

  // Without a line feed.
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

// Takes whole lines without their line feed; any thread.
using DiagnosticsSink = std::function<void(const std::string& line)>;

// How long a line waits for room in the pipe.
inline constexpr std::chrono::milliseconds diagnosticsPatience{1000};

// Writes the line and a line feed to standard error in one call; a failure to write, also of a pipe that
// nobody reads any more, is ignored. A line for which there is no room in time is lost, and those behind it
// do not wait until there is: a host that reads no diagnostics holds up nothing. Any thread.
void writeDiagnostics(const std::string& line);

} // namespace tessarin
