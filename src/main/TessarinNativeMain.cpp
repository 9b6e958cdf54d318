#include "command/NativeCLI.hpp"
#include "main/CompositionRoot.hpp"
#include "main/MainLoop.hpp"
#include "main/StandardStreams.hpp"

#include <string>
#include <thread>
#include <vector>

namespace tessarin {

namespace {

// The job of the process, on its own thread. Yields the exit code.
std::int32_t execute(const std::vector<std::string>& arguments, MainLoop& loop) {
  CompositionRoot root(loop, mainThreadMode(arguments));
  const NativeExecution execution = NativeCLI(root.services()).run(arguments);
  if (!execution.output.empty())
    standardStreams::writeReply(execution.output);
  return execution.exitCode;
}

// The job ends before the process does, so no thread is left when static objects go.
std::int32_t runToEnd(const std::vector<std::string>& arguments) {
  MainLoop loop;
  std::thread job([&] { loop.stop(execute(arguments, loop)); });
  const std::int32_t exitCode = loop.run();
  job.join();
  return exitCode;
}

} // namespace

} // namespace tessarin

int main(int count, char** values) {
  tessarin::standardStreams::occupy();
  tessarin::standardStreams::ignoreBrokenPipes();
  // Behind the program name, which a caller may leave out.
  return tessarin::runToEnd({values + (count > 0 ? 1 : 0), values + count});
}
