#include "backends/posix/ModulePasswordFocus.hpp"

namespace tessarin {

void ModulePasswordFocus::begin() {
  const std::lock_guard lock(mutex_);
  if (!focus_) {
    try {
      const ModuleHeader& header = loader_.open("accessibility");
      focus_ = reinterpret_cast<const AccessibilityModule&>(header).makePasswordFocus();
    } catch (const Failure<ModuleFailure>&) {
      return;
    }
    opened_ = focus_.get();
  }
  focus_->begin();
}

bool ModulePasswordFocus::isFocused() {
  PasswordFocus* const focus = opened_;
  return focus != nullptr && focus->isFocused();
}

bool ModulePasswordFocus::wasFocusedSince(MediaTime hostTime) {
  PasswordFocus* const focus = opened_;
  return focus != nullptr && focus->wasFocusedSince(hostTime);
}

} // namespace tessarin
