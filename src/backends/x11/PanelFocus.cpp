#include "backends/x11/PanelFocus.hpp"

namespace tessarin::x11 {

void PanelFocus::take(xcb_window_t panel, xcb_timestamp_t time) {
  const auto present =
      connection_.required(xcb_get_input_focus_reply, xcb_get_input_focus(connection_.get()));
  if (present->focus == panel) {
    panel_ = panel;
    return;
  }
  // From one panel to another it stays borrowed.
  if (!panel_ || present->focus != *panel_) {
    before_ = {present->focus, present->revert_to};
  }
  panel_ = panel;
  takenAt_ = time;
  xcb_set_input_focus(connection_.get(), XCB_INPUT_FOCUS_POINTER_ROOT, panel, time);
}

void PanelFocus::giveBack(xcb_window_t panel) {
  if (panel_ != panel) {
    return;
  }
  panel_.reset();
  const auto present =
      connection_.required(xcb_get_input_focus_reply, xcb_get_input_focus(connection_.get()));
  if (present->focus != panel) {
    return;
  }
  const auto give = [this](const Owner& owner) {
    return connection_.succeeded(
        xcb_set_input_focus_checked(connection_.get(), owner.revertTo, owner.window, XCB_CURRENT_TIME));
  };
  if (!give(before_)) {
    // Its window is gone: the keyboard goes where the pointer is.
    give({XCB_INPUT_FOCUS_POINTER_ROOT, XCB_INPUT_FOCUS_NONE});
  }
}

// By the time of our own taking, which the server passes over when somebody has taken the keyboard since. An
// owner that is gone is refused; then it goes where the pointer is, with the window's end.
void PanelFocus::letGo(xcb_window_t panel) {
  if (panel_ != panel) {
    return;
  }
  panel_.reset();
  xcb_set_input_focus(connection_.get(), before_.revertTo, before_.window, takenAt_);
}

} // namespace tessarin::x11
