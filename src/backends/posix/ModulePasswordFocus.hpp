#pragma once

#include "backends/posix/ModuleLoader.hpp"
#include "ports/SecureInput.hpp"

#include <atomic>
#include <memory>
#include <mutex>

namespace tessarin {

// Serves the password focus by the module "accessibility", which is opened with begin(). Without the module
// nothing is ever focused; the loader has told why. Any thread.
class ModulePasswordFocus final : public PasswordFocus {
 public:
  // The loader outlives this.
  explicit ModulePasswordFocus(ModuleLoader& loader) : loader_(loader) {}

  void begin() override;
  bool isFocused() override;
  bool wasFocusedSince(MediaTime hostTime) override;

 private:
  ModuleLoader& loader_;
  std::mutex mutex_;
  std::unique_ptr<PasswordFocus> focus_;        // made under the mutex, then unchanged
  std::atomic<PasswordFocus*> opened_{nullptr}; // the same, for those who must not wait for the mutex
};

} // namespace tessarin
