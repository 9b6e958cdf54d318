#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tessarin {

// What the main thread is for while the job runs on its own.
enum class MainThreadMode : std::uint8_t {
  application, // holds windows of our own
  port         // only pumps work that has to run there
};

// Decided before anything is parsed, so that a malformed command may get an application too. Pure.
MainThreadMode mainThreadMode(const std::vector<std::string>& arguments);

} // namespace tessarin
