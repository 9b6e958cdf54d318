#include "desktop/WindowCaptureActivator.hpp"

namespace tessarin::WindowCaptureActivator {

namespace {

constexpr int activationPasses = 8;
constexpr std::chrono::milliseconds passInterval{12};
constexpr std::chrono::milliseconds settlingTime{36};

} // namespace

void activate(ApplicationActivator& applications, const Sleeper& sleep, std::int32_t processIdentifier) {
  if (processIdentifier < 1)
    return;
  const std::optional<bool> isActive = applications.isActive(processIdentifier);
  if (!isActive)
    return;
  if (!*isActive) {
    applications.activate(processIdentifier);
    for (int pass = 0; pass < activationPasses; ++pass)
      if (!applications.isActive(processIdentifier).value_or(false))
        sleep(passInterval);
  }
  sleep(settlingTime);
}

} // namespace tessarin::WindowCaptureActivator
