#include "backends/x11/InputFocus.hpp"

#include "backends/x11/WindowsProperties.hpp"

namespace tessarin::x11 {

namespace {

// While the focus moves from window to window it is followed so often at once.
constexpr int mostSteps = 4;

bool isWindow(xcb_window_t focus) {
  return focus != XCB_NONE && focus != XCB_INPUT_FOCUS_POINTER_ROOT;
}

} // namespace

// The root window is told when the focus goes to or comes from no window at all.
InputFocus::InputFocus(Connection& connection)
    : connection_(connection), process_(processOf(connection.setup().resource_id_base)) {
  watch(connection.root(), true);
}

void InputFocus::watch(xcb_window_t window, bool isWatched) {
  const std::uint32_t mask = isWatched ? XCB_EVENT_MASK_FOCUS_CHANGE : XCB_EVENT_MASK_NO_EVENT;
  xcb_change_window_attributes(connection_.get(), window, XCB_CW_EVENT_MASK, &mask);
}

xcb_window_t InputFocus::readFocus() {
  return connection_.required(xcb_get_input_focus_reply, xcb_get_input_focus(connection_.get()))->focus;
}

// A window is watched from before the reading on that finds it to have the focus, so that no change is
// missed.
void InputFocus::refresh() {
  if (!isStale_)
    return;
  xcb_window_t next = readFocus();
  for (int step = 0; step < mostSteps && next != focus_; ++step) {
    if (isWindow(focus_) && focus_ != connection_.root())
      watch(focus_, false);
    focus_ = next;
    if (isWindow(focus_))
      watch(focus_, true);
    next = readFocus();
  }
  isStale_ = next != focus_;
  isOurs_ = process_ && isWindow(focus_) && processOf(focus_) == process_;
}

bool InputFocus::isOurs(std::int16_t pointerX, std::int16_t pointerY) {
  refresh();
  if (focus_ != XCB_INPUT_FOCUS_POINTER_ROOT)
    return isOurs_;
  const xcb_window_t window = windowAt(pointerX, pointerY);
  return process_ && window != XCB_NONE && processOf(window) == process_;
}

bool InputFocus::isOurClient(std::uint32_t clientBase) {
  return process_ && processOf(clientBase) == process_;
}

xcb_window_t InputFocus::windowAt(std::int16_t x, std::int16_t y) {
  const xcb_window_t root = connection_.root();
  return connection_
      .required(xcb_translate_coordinates_reply,
                xcb_translate_coordinates(connection_.get(), root, root, x, y))
      ->child;
}

// A client's base stands for it as well as any of its windows. Processes that the server cannot number have
// none.
std::optional<std::int32_t> InputFocus::processOf(xcb_window_t window) {
  const auto processes = ProcessQuery(connection_, {window}).result();
  const auto found = processes.find(connection_.clientBase(window));
  return found == processes.end() ? std::nullopt : std::optional(found->second);
}

} // namespace tessarin::x11
