// Another program that takes the keyboard or the pointer for itself. Says "ready <window>" when its window is
// to be seen, and then carries out the lines of standard input: "grab", "ungrab" (the keyboard), "grab-xi",
// "ungrab-xi" (the same by the input extension), "grab-pointer", "ungrab-pointer" (by the input extension),
// "grab-key KEYCODE", "ungrab-key KEYCODE" (with whatever modifiers), "freeze-key KEYCODE" (the same, and the
// keyboard stands still from the press on until "replay", which gives the press to whom it was for), "focus"
// (its window gets the focus), "pretend MODE" (sends the window with the focus an event that says so, but did
// not happen). Answers each with "done" or "refused".

#include <xcb/xcb.h>
#include <xcb/xinput.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

namespace {

struct FreeDeleter {
  void operator()(void* memory) const noexcept { std::free(memory); }
};
template<class T> std::unique_ptr<T, FreeDeleter> owned(T* memory) {
  return std::unique_ptr<T, FreeDeleter>(memory);
}

constexpr xcb_input_device_id_t pointerDevice = 2;
constexpr xcb_input_device_id_t keyboardDevice = 3;

class Holder {
 public:
  Holder() : connection_(xcb_connect(nullptr, nullptr)) {
    if (xcb_connection_has_error(connection_) != 0)
      std::exit(1);
    root_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
    owned(xcb_input_xi_query_version_reply(connection_, xcb_input_xi_query_version(connection_, 2, 1),
                                           nullptr));
    window_ = xcb_generate_id(connection_);
    const std::uint32_t unmanaged = 1;
    xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window_, root_, 0, 0, 40, 30, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_OVERRIDE_REDIRECT,
                      &unmanaged);
    xcb_map_window(connection_, window_);
    sync();
    std::cout << "ready " << window_ << std::endl;
  }
  ~Holder() { xcb_disconnect(connection_); }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;

  bool carryOut(const std::string& line) {
    std::istringstream words(line);
    std::string command;
    int number = 0;
    words >> command >> number;
    if (command == "grab")
      return grab();
    if (command == "grab-xi")
      return grabDevice(keyboardDevice);
    if (command == "grab-pointer")
      return grabDevice(pointerDevice);
    if (command == "ungrab")
      xcb_ungrab_keyboard(connection_, XCB_CURRENT_TIME);
    else if (command == "ungrab-xi")
      xcb_input_xi_ungrab_device(connection_, XCB_CURRENT_TIME, keyboardDevice);
    else if (command == "ungrab-pointer")
      xcb_input_xi_ungrab_device(connection_, XCB_CURRENT_TIME, pointerDevice);
    else if (command == "grab-key" || command == "freeze-key")
      xcb_grab_key(connection_, 1, root_, XCB_MOD_MASK_ANY, static_cast<xcb_keycode_t>(number),
                   XCB_GRAB_MODE_ASYNC, command == "grab-key" ? XCB_GRAB_MODE_ASYNC : XCB_GRAB_MODE_SYNC);
    else if (command == "replay")
      xcb_allow_events(connection_, XCB_ALLOW_REPLAY_KEYBOARD, XCB_CURRENT_TIME);
    else if (command == "ungrab-key")
      xcb_ungrab_key(connection_, static_cast<xcb_keycode_t>(number), root_, XCB_MOD_MASK_ANY);
    else if (command == "focus")
      xcb_set_input_focus(connection_, XCB_INPUT_FOCUS_POINTER_ROOT, window_, XCB_CURRENT_TIME);
    else if (command == "pretend")
      pretend(static_cast<std::uint8_t>(number));
    else
      return false;
    sync();
    return true;
  }

 private:
  bool grab() {
    const auto reply = owned(xcb_grab_keyboard_reply(
        connection_,
        xcb_grab_keyboard(connection_, 0, root_, XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
        nullptr));
    return reply && reply->status == XCB_GRAB_STATUS_SUCCESS;
  }

  bool grabDevice(xcb_input_device_id_t device) {
    const std::uint32_t mask = 0;
    const auto reply = owned(xcb_input_xi_grab_device_reply(
        connection_,
        xcb_input_xi_grab_device(connection_, window_, XCB_CURRENT_TIME, XCB_NONE, device,
                                 XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC, 0, 1, &mask),
        nullptr));
    return reply && reply->status == XCB_GRAB_STATUS_SUCCESS;
  }

  void pretend(std::uint8_t mode) {
    const auto focus =
        owned(xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
    xcb_focus_in_event_t event{};
    event.response_type = XCB_FOCUS_IN;
    event.event = focus->focus;
    event.mode = mode;
    xcb_send_event(connection_, 0, focus->focus, XCB_EVENT_MASK_FOCUS_CHANGE,
                   reinterpret_cast<const char*>(&event));
  }

  void sync() { owned(xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr)); }

  xcb_connection_t* connection_;
  xcb_window_t root_ = XCB_NONE;
  xcb_window_t window_ = XCB_NONE;
};

} // namespace

int main() {
  Holder holder;
  for (std::string line; std::getline(std::cin, line);)
    std::cout << (holder.carryOut(line) ? "done" : "refused") << std::endl;
  return 0;
}
