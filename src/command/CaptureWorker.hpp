#pragma once

#include "base/DescriptorStreams.hpp"
#include "command/CaptureWorkerLines.hpp"
#include "command/NativeResponse.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessarin {

// A process that was started in advance and answers requests that a user waits for, one JSON line for
// another, in their order. Each is run like the same command by itself, so that nothing of one request is
// left for the next; what is warm is the process, and what the commands' services keep open. One thread.
class CaptureWorker {
 public:
  static constexpr std::string_view readyLine = "{\"schemaVersion\":1,\"ready\":true}\n";
  // A response of so many bytes, its line feed not counted, is refused.
  static constexpr std::size_t tooLongResponse = 4'194'304;

  struct Ends {
    InputSource input;
    OutputSink output;
    // Runs one command. Never throws.
    std::function<NativeExecution(const std::vector<std::string>& arguments)> run;
    // Called once the host has been told that the worker is ready, for what need not wait for a request.
    std::function<void()> warmUp = [] {};
  };
  explicit CaptureWorker(Ends ends) : ends_(std::move(ends)) {}

  // Whether an argument vector asks for a worker rather than for a command.
  static bool isAskedFor(const std::vector<std::string>& arguments);

  // Serves the host until its input ends. Yields the exit status of the process: success when the input ended
  // behind a whole line, refused for a host that broke the protocol or has gone, failed for a response that
  // is too long or no object.
  std::int32_t run() const;

 private:
  // The exit status where it ends the worker.
  std::optional<std::int32_t> serve(CaptureWorkerLines& lines, std::string_view bytes) const;
  std::optional<std::int32_t> answer(const std::string& line) const;
  bool isWritten(std::string_view bytes) const;

  const Ends ends_;
};

} // namespace tessarin
