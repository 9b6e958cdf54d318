#pragma once

#include "base/JsonDocument.hpp"
#include "support/PrivateDesktop.hpp"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessarin {

// Stands for a request's identifier where a test needs just one.
inline constexpr std::string_view anyRequestID = "0b8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69";

// The line of a request without its line feed.
std::string workerRequest(const std::vector<std::string>& arguments,
                          std::string_view requestID = anyRequestID);
std::string workerListing(std::string_view requestID = anyRequestID);

// A `prepare-capture` into the directory, whose last component is the session's identifier.
std::vector<std::string> preparation(const std::string& directory);

// What the same command prints by itself: the response without its identifier, and with plain slashes.
std::string envelopeOf(const std::string& response, std::string_view requestID = anyRequestID);

// A running `capture-worker` of the built program, driven as a host does. One thread.
class WorkerProcess {
 public:
  // Returns when the worker is ready; throws std::runtime_error when it never is. Behind a shell, the shell
  // is its parent instead of this process.
  explicit WorkerProcess(const std::string& display, bool isBehindShell = false);

  // Sends a line, and yields the response without its line feed; throws std::runtime_error when none comes.
  std::string ask(const std::string& line, std::chrono::milliseconds limit = std::chrono::seconds(20));
  std::string list() { return ask(workerListing()); }
  std::string prepare(const std::string& directory) { return ask(workerRequest(preparation(directory))); }

  // The exit status once its input ends here.
  std::optional<int> end();
  ChildProcess& process() { return process_; }

 private:
  ChildProcess process_;
};

} // namespace tessarin
