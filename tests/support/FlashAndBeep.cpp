#include "support/FlashAndBeep.hpp"

#include <chrono>

namespace tessarin {

std::int64_t flashAndBeep(TestClient& window, const std::vector<TestSource*>& sounds) {
  using namespace std::chrono;
  // Time enough for both to hear of it, also on a busy machine.
  const auto moment = steady_clock::now() + milliseconds(200);
  const auto asked = duration_cast<nanoseconds>(moment.time_since_epoch()).count();
  constexpr auto flash = "flash ";
  constexpr auto length = " 100";
  if (!window.process().writeLine(flash + std::to_string(asked) + length)) {
    throw std::runtime_error("the window is gone");
  }
  std::optional<std::int64_t> beeps;
  for (auto* sound : sounds) {
    const auto heard = sound->beep(asked);
    beeps = beeps.value_or(heard);
  }
  if (window.process().readLine() != "done") {
    throw std::runtime_error("the window did not flash");
  }
  return beeps.value_or(asked);
}

} // namespace tessarin
