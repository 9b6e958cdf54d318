#pragma once

#include "backends/x11/Connection.hpp"

namespace tessarin::x11 {

// Whether somebody has taken the keyboard can be asked without taking it: a server refuses it for a window
// that is not to be seen, but only where no other client has it; that one it tells first. Confined to the
// connection's thread.

// A window that is never mapped. It goes with the connection.
xcb_window_t makeUnseenWindow(Connection& connection);
// Sends the question; the answer's status tells.
xcb_grab_keyboard_cookie_t askForKeyboard(Connection& connection, xcb_window_t unseen);
bool saysTaken(const xcb_grab_keyboard_reply_t& answer);

} // namespace tessarin::x11
