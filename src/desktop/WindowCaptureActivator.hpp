#pragma once

#include "ports/Desktop.hpp"

#include <chrono>
#include <cstdint>
#include <functional>

namespace tessarin {

// Blocks the calling thread for the time; handed in so that tests do not wait.
using Sleeper = std::function<void(std::chrono::milliseconds)>;

namespace WindowCaptureActivator {

// Brings the application forward, so that its windows are drawn current, and gives it at most 132 ms to
// come. That it does not come is no failure. Without such an application nothing happens.
void activate(ApplicationActivator& applications, const Sleeper& sleep, std::int32_t processIdentifier);

} // namespace WindowCaptureActivator

} // namespace tessarin
