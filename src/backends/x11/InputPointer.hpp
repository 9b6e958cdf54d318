#pragma once

#include "backends/x11/Connection.hpp"
#include "ports/InteractionEvents.hpp"

#include <cstdint>
#include <memory>
#include <optional>

namespace tessarin::x11 {

// Readings of the pointer, of one round trip each, on a connection of its own. A reading that takes longer
// than 200 ms yields nothing, and so do those after it until the server has answered; a server that is lost
// is so for good. Confined to one thread at a time.
class InputPointer {
 public:
  // Throws DesktopFailure.
  explicit InputPointer(std::unique_ptr<Connection> connection);

  // Pixels per point, as it was in the beginning.
  double scale() const { return scale_; }
  std::optional<PointerState> read();
  // Whether any client has taken the keyboard.
  std::optional<bool> isKeyboardTaken();

 private:
  template<class Reply> Owned<Reply> answer(unsigned int sequence);
  bool isIdle();
  bool await(unsigned int sequence, void** reply);

  const std::unique_ptr<Connection> connection_;
  xcb_window_t unseen_ = XCB_NONE; // never mapped
  double scale_ = 1;
  std::uint16_t device_ = 0;               // the pointer's number in the input extension
  std::optional<unsigned int> unanswered_; // the request whose answer was not waited for
};

} // namespace tessarin::x11
