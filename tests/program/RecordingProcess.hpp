#pragma once

#include "base/JsonDocument.hpp"
#include "support/PrivateDesktop.hpp"

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tessarin {

// A running `record` of the built program, driven as a host does. One thread.
class RecordingProcess {
 public:
  using Environment = std::vector<std::pair<std::string, std::string>>;

  // The request as JSON; its session identifier goes into every control line. What the program says on
  // standard error is written to the file. The signals named ("HUP,INT") are ignored as it starts; by default
  // those that ask a process to end have their effect, whatever they have here.
  RecordingProcess(const std::string& sessionID, const std::string& requestJSON,
                   const Environment& environment, const std::string& diagnosticsPath = "/dev/null",
                   const std::string& ignoredSignals = "");

  // The next event; throws std::runtime_error when there is none within the time.
  json::Document nextEvent(std::chrono::milliseconds limit = std::chrono::seconds(20));
  // Reads events until the session says that it is in the phase. Throws std::runtime_error when it ends
  // before.
  void waitFor(const std::string& phase);
  // Reads events until one of that name comes; throws when none does.
  json::Document waitForEvent(const std::string& name);
  void send(const std::string& command);
  // Reads events until it records, and lets it do so for a while.
  void recordFor(std::chrono::milliseconds time);
  // The exit status, once it has ended; nothing when it has not within the time, and when a process that it
  // has started stays behind it.
  std::optional<int> waitForEnd(std::chrono::milliseconds limit = std::chrono::seconds(10));
  // All events so far that have been read, a line each.
  const std::string& output() const { return output_; }
  ChildProcess& process() { return process_; }

 private:
  const std::string sessionID_;
  std::string output_;
  ChildProcess process_;
};

} // namespace tessarin
