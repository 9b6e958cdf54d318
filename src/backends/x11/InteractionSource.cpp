#include "backends/x11/InteractionSource.hpp"

#include "backends/x11/InputPointer.hpp"
#include "backends/x11/InputWatch.hpp"
#include "backends/x11/ListenEventAccess.hpp"

#include <mutex>
#include <system_error>
#include <utility>

namespace tessarin::x11 {

namespace {

// Readings are made one after the other on a connection that is opened with the first. Presses are not
// counted for them: where there is a monitor it tells each when and where it was, and a reading that comes
// late, or of a pointer that has moved on, would tell it as another one; where there is none nothing could
// count.
class ServerInteractionSource final : public InteractionSource {
 public:
  ServerInteractionSource(std::shared_ptr<const DisplayServer> server, const HostClock& clock,
                          PasswordFocus& passwords)
      : server_(std::move(server)), clock_(clock), passwords_(passwords) {}

  std::optional<PointerState> pointer() override {
    const std::lock_guard guard(mutex_);
    InputPointer* const reader = readerLocked();
    return reader ? reader->read() : std::nullopt;
  }

  // What a monitor of the keyboard knows is better than an answer, which cannot tell a grab for a shortcut
  // from one for a password. Who cannot be asked may have either.
  bool isSecureInput() override {
    if (passwords_.isFocused())
      return true;
    if (const auto keyboard = watchedKeyboard())
      return keyboard->isTaken;
    const std::lock_guard guard(mutex_);
    InputPointer* const reader = readerLocked();
    return !reader || reader->isKeyboardTaken().value_or(true);
  }

  std::unique_ptr<InteractionMonitor> monitor(InteractionHandlers handlers) override {
    const bool watchesKeys = handlers.onKey != nullptr;
    std::unique_ptr<InputWatch> watch = makeWatch(std::move(handlers));
    if (watch && watchesKeys) {
      const std::lock_guard guard(keyboardMutex_);
      keyboard_ = watch->keyboardState();
    }
    return watch;
  }

 private:
  std::unique_ptr<InputWatch> makeWatch(InteractionHandlers handlers) {
    try {
      if (!letsInputBeWatched(*server_->open()))
        return nullptr;
      if (handlers.onKey)
        passwords_.begin();
      return std::make_unique<InputWatch>(*server_, scale(), clock_, passwords_, std::move(handlers));
    } catch (const DesktopFailure&) {
      return nullptr;
    } catch (const std::system_error&) {
      return nullptr; // no thread is to be had
    }
  }

  // Null when no monitor of the keyboard goes.
  std::shared_ptr<KeyboardState> watchedKeyboard() {
    const std::lock_guard guard(keyboardMutex_);
    return keyboard_ && keyboard_->isWatched ? keyboard_ : nullptr;
  }

  // Readings and monitors have one scale, also when it is changed between them.
  double scale() {
    const std::lock_guard guard(mutex_);
    const InputPointer* const reader = readerLocked();
    if (!reader)
      throw DesktopFailure();
    return reader->scale();
  }

  // Null when the server could not be reached at the first time.
  InputPointer* readerLocked() {
    if (!std::exchange(hasOpened_, true)) {
      try {
        reader_ = std::make_unique<InputPointer>(server_->open());
      } catch (const DesktopFailure&) {
        reader_ = nullptr; // there is no reading in this source's life
      }
    }
    return reader_.get();
  }

  const std::shared_ptr<const DisplayServer> server_;
  const HostClock& clock_;
  PasswordFocus& passwords_;

  std::mutex mutex_;
  // Guarded by mutex_.
  bool hasOpened_ = false;
  std::unique_ptr<InputPointer> reader_;

  std::mutex keyboardMutex_;
  // Guarded by keyboardMutex_.
  std::shared_ptr<KeyboardState> keyboard_; // of the latest monitor of the keyboard
};

} // namespace

std::unique_ptr<InteractionSource> makeInteractionSource(std::shared_ptr<DisplayServer> server,
                                                         const HostClock& clock, PasswordFocus& passwords) {
  return std::make_unique<ServerInteractionSource>(std::move(server), clock, passwords);
}

} // namespace tessarin::x11
