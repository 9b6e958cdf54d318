#pragma once

#include "support/PrivateDesktop.hpp"
#include "support/PrivateSoundServer.hpp"

#include <cstdint>

namespace tessarin {

// A flash of light and a beep at the same moment, by a window and a player or microphone. Returns when both
// have begun. Yields the moment of both in nanoseconds on the monotonic clock; they are within a few
// milliseconds of it.
std::int64_t flashAndBeep(TestClient& window, TestSource& sound);

} // namespace tessarin
