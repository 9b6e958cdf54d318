#pragma once

#include "base/MediaTime.hpp"

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
  // The same, or whether it was in one that is known to be such a field at some moment since the host time: a
  // press that is heard of late went there all the same. A time that is not numeric asks for now alone.
  virtual bool wasFocusedSince(MediaTime hostTime) = 0;
};

} // namespace tessarin
