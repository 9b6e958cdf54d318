#include "backends/x11/InputQuestions.hpp"

namespace tessarin::x11 {

xcb_window_t makeUnseenWindow(Connection& connection) {
  const xcb_window_t window = xcb_generate_id(connection.get());
  xcb_create_window(connection.get(), XCB_COPY_FROM_PARENT, window, connection.root(), 0, 0, 1, 1, 0,
                    XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
  return window;
}

xcb_grab_keyboard_cookie_t askForKeyboard(Connection& connection, xcb_window_t unseen) {
  return xcb_grab_keyboard(connection.get(), 1, unseen, XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC,
                           XCB_GRAB_MODE_ASYNC);
}

bool saysTaken(const xcb_grab_keyboard_reply_t& answer) {
  return answer.status != XCB_GRAB_STATUS_NOT_VIEWABLE;
}

} // namespace tessarin::x11
