#pragma once

namespace tessarin {

// Whether a field for secrets has the keyboard, as applications tell it to accessibility. One module serves
// it (src/modules/accessibility). Any thread.
class PasswordFocus {
 public:
  virtual ~PasswordFocus() = default;

  // Begins to watch, and returns when it is known what has the focus now; in bounded time. Idempotent.
  // Without accessibility nothing is watched.
  virtual void begin() = 0;
  // Whether the focus is in such a field; false before begin(), and where nothing is watched. Returns at
  // once.
  virtual bool isFocused() = 0;
};

} // namespace tessarin
