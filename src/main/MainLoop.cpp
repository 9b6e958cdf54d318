#include "main/MainLoop.hpp"

namespace tessarin {

void MainLoop::stop(std::int32_t exitCode) {
  async([this, exitCode] {
    if (!exitCode_)
      exitCode_ = exitCode;
  });
  end();
}

std::int32_t MainLoop::run() {
  runUntilEnded();
  return exitCode_.value();
}

} // namespace tessarin
