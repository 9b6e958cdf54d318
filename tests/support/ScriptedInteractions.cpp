#include "support/ScriptedInteractions.hpp"

#include <utility>

namespace tessarin {

struct ScriptedInteractions::State {
  std::recursive_mutex delivering; // held while a handler is called; taken before the lock
  mutable std::mutex lock;
  // Guarded by lock.
  PointerState pointer;
  InteractionHandlers handlers; // of the one monitor that watches
  std::size_t readings = 0;
  std::size_t monitors = 0;
  bool refuses = false;
  bool isSilent = false;
  bool isSecure = false;
  bool isMuted = false;
  MediaTime delay = MediaTime::zero();
};

class ScriptedInteractions::Monitor final : public InteractionMonitor {
 public:
  explicit Monitor(std::shared_ptr<State> state) : state_(std::move(state)) {}
  ~Monitor() override { stopOnce(); }

  void stop() override { stopOnce(); }

 private:
  void stopOnce() {
    const std::lock_guard noHandler(state_->delivering);
    const std::lock_guard guard(state_->lock);
    if (std::exchange(isStopped_, true))
      return;
    state_->handlers = {};
    --state_->monitors;
  }

  const std::shared_ptr<State> state_;
  bool isStopped_ = false;
};

ScriptedInteractions::ScriptedInteractions(const HostClock& clock)
    : clock_(clock), state_(std::make_shared<State>()) {}
ScriptedInteractions::~ScriptedInteractions() = default;

void ScriptedInteractions::refuseMonitors() {
  const std::lock_guard guard(state_->lock);
  state_->refuses = true;
}

void ScriptedInteractions::silencePointer(bool isSilent) {
  const std::lock_guard guard(state_->lock);
  state_->isSilent = isSilent;
}

void ScriptedInteractions::setSecureInput(bool isSecure) {
  const std::lock_guard guard(state_->lock);
  state_->isSecure = isSecure;
}

void ScriptedInteractions::muteMonitors(bool isMuted) {
  const std::lock_guard guard(state_->lock);
  state_->isMuted = isMuted;
}

void ScriptedInteractions::setDelay(MediaTime delay) {
  const std::lock_guard guard(state_->lock);
  state_->delay = delay;
}

void ScriptedInteractions::moveTo(double x, double y) {
  const std::lock_guard guard(state_->lock);
  state_->pointer.location = {x, y};
}

void ScriptedInteractions::press(InteractionMouseButton button) {
  const auto index = static_cast<std::size_t>(button);
  PointerLocation location;
  {
    const std::lock_guard guard(state_->lock);
    state_->pointer.isDown.at(index) = true;
    ++state_->pointer.pressCount.at(index);
    location = state_->pointer.location;
  }
  const std::lock_guard guard(state_->delivering);
  if (const auto handler = handlersNow().onButton)
    handler({button, location, stamp()});
}

void ScriptedInteractions::release(InteractionMouseButton button) {
  const std::lock_guard guard(state_->lock);
  state_->pointer.isDown.at(static_cast<std::size_t>(button)) = false;
}

void ScriptedInteractions::click(InteractionMouseButton button) {
  press(button);
  release(button);
}

void ScriptedInteractions::key(std::uint16_t evdevCode, KeyModifiers modifiers, bool isRepeat) {
  const std::lock_guard guard(state_->delivering);
  if (const auto handler = handlersNow().onKey)
    handler({evdevCode, modifiers, isRepeat, isSecureInput(), stamp()});
}

std::size_t ScriptedInteractions::readingCount() const {
  const std::lock_guard guard(state_->lock);
  return state_->readings;
}

std::size_t ScriptedInteractions::monitorCount() const {
  const std::lock_guard guard(state_->lock);
  return state_->monitors;
}

bool ScriptedInteractions::watchesButtons() const {
  const std::lock_guard guard(state_->lock);
  return state_->handlers.onButton != nullptr;
}

bool ScriptedInteractions::watchesKeys() const {
  const std::lock_guard guard(state_->lock);
  return state_->handlers.onKey != nullptr;
}

std::optional<PointerState> ScriptedInteractions::pointer() {
  const std::lock_guard guard(state_->lock);
  ++state_->readings;
  return state_->isSilent ? std::nullopt : std::optional(state_->pointer);
}

bool ScriptedInteractions::isSecureInput() {
  const std::lock_guard guard(state_->lock);
  return state_->isSecure;
}

std::unique_ptr<InteractionMonitor> ScriptedInteractions::monitor(InteractionHandlers handlers) {
  const std::lock_guard guard(state_->lock);
  if (state_->refuses)
    return nullptr;
  state_->handlers = std::move(handlers);
  ++state_->monitors;
  return std::make_unique<Monitor>(state_);
}

InteractionHandlers ScriptedInteractions::handlersNow() const {
  const std::lock_guard guard(state_->lock);
  return state_->isMuted ? InteractionHandlers{} : state_->handlers;
}

MediaTime ScriptedInteractions::stamp() const {
  const std::lock_guard guard(state_->lock);
  return clock_.now() - state_->delay;
}

} // namespace tessarin
