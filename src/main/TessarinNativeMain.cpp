#include "command/CaptureWorker.hpp"
#include "command/NativeCLI.hpp"
#include "main/CompositionRoot.hpp"
#include "main/EndSignals.hpp"
#include "main/MainLoop.hpp"
#include "main/ProcessLimits.hpp"
#include "main/StandardStreams.hpp"

#include <unistd.h>

#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace tessarin {

namespace {

// Every request has a dispatcher of its own; the backends, and with them the connection to the display, stay.
std::int32_t serveHost(CompositionRoot& root) {
  return CaptureWorker(
             {.input = descriptorSource(STDIN_FILENO),
              .output = descriptorSink(STDOUT_FILENO),
              .run = [&root](const auto& arguments) { return NativeCLI(root.services()).run(arguments); },
              .warmUp = [&root] { root.warmUp(); }})
      .run();
}

// The job of the process, on its own thread. Yields the exit code.
std::int32_t execute(const std::vector<std::string>& arguments, MainLoop& loop,
                     std::optional<int> endSignals) {
  CompositionRoot root(loop, mainThreadMode(arguments), endSignals);
  if (CaptureWorker::isAskedFor(arguments))
    return serveHost(root);
  const NativeExecution execution = NativeCLI(root.services()).run(arguments);
  if (!execution.output.empty())
    standardStreams::writeReply(execution.output);
  return execution.exitCode;
}

// A recording is finished before it ends, and an export removes what it has written so far; every other job
// ends at once.
std::optional<int> heldEndSignals(const std::vector<std::string>& arguments) {
  const bool endsInOrder =
      !arguments.empty() && (arguments.front() == "record" || arguments.front() == "export-edit");
  return endsInOrder ? endSignals::hold() : std::nullopt;
}

// The job ends before the process does, so no thread is left when static objects go.
std::int32_t runToEnd(const std::vector<std::string>& arguments) {
  const std::optional<int> endSignals = heldEndSignals(arguments);
  MainLoop loop;
  std::thread job([&] { loop.stop(execute(arguments, loop, endSignals)); });
  const std::int32_t exitCode = loop.run();
  job.join();
  return exitCode;
}

} // namespace

} // namespace tessarin

int main(int count, char** values) {
  tessarin::standardStreams::occupy();
  tessarin::standardStreams::ignoreBrokenPipes();
  tessarin::processLimits::allowManyFiles();
  tessarin::processLimits::failBeyondLargestFile();
  // Behind the program name, which a caller may leave out.
  return tessarin::runToEnd({values + (count > 0 ? 1 : 0), values + count});
}
