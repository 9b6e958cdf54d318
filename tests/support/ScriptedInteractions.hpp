#pragma once

#include "base/HostClock.hpp"
#include "ports/InteractionEvents.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

namespace tessarin {

// A pointer and a keyboard that a test moves. What it presses reaches the monitors at once, on the test's
// thread, and the next reading of the pointer. Any thread.
class ScriptedInteractions final : public InteractionSource {
 public:
  // Presses are stamped with this clock, which outlives the source.
  explicit ScriptedInteractions(const HostClock& clock);
  ~ScriptedInteractions() override;

  // How the source answers from now on.
  void refuseMonitors();
  void silencePointer(bool isSilent = true); // no reading is to be had
  void setSecureInput(bool isSecure);
  // Presses reach no monitor, only the readings.
  void muteMonitors(bool isMuted = true);
  // What a press is stamped with is that much older than the press.
  void setDelay(MediaTime delay);

  void moveTo(double x, double y);
  void press(InteractionMouseButton button);
  void release(InteractionMouseButton button);
  void click(InteractionMouseButton button = InteractionMouseButton::left); // press and release
  // A key of which nothing but its going down is told.
  void key(std::uint16_t evdevCode, KeyModifiers modifiers = {}, bool isRepeat = false);

  // Readings of the pointer so far, and monitors that watch.
  std::size_t readingCount() const;
  std::size_t monitorCount() const;
  bool watchesButtons() const;
  bool watchesKeys() const;

  std::optional<PointerState> pointer() override;
  bool isSecureInput() override;
  std::unique_ptr<InteractionMonitor> monitor(InteractionHandlers handlers) override;

 private:
  class Monitor;
  struct State;
  InteractionHandlers handlersNow() const;
  MediaTime stamp() const;

  const HostClock& clock_;
  const std::shared_ptr<State> state_; // shared with the monitors
};

} // namespace tessarin
