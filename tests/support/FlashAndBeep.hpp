#pragma once

#include "support/PrivateDesktop.hpp"
#include "support/PrivateSoundServer.hpp"

#include <cstdint>
#include <vector>

namespace tessarin {

// A flash of light and beeps at the same moment, by a window and by players and microphones. Returns when all
// have begun. Yields their moment in nanoseconds on the monotonic clock, as the first source tells it; they
// are within a few milliseconds of it.
std::int64_t flashAndBeep(TestClient& window, const std::vector<TestSource*>& sounds);

} // namespace tessarin
