#include "backends/x11/PanelWindow.hpp"

#include "backends/x11/PanelShape.hpp"

#include <unistd.h>

#include <algorithm>
#include <utility>

namespace tessarin::x11 {

namespace {

constexpr std::uint8_t lowestKeycode = 8; // below which the protocol has none; the kernel's codes begin there

std::string machineName() {
  char name[256] = {};
  gethostname(name, sizeof name - 1);
  return name;
}

// The instance and the class, each with its zero.
std::string windowClass() {
  const std::string name(ownWindowClass);
  return name + '\0' + name + '\0';
}

bool isFirstButtonDown(std::uint16_t state) {
  return (state & XCB_BUTTON_MASK_1) != 0;
}

} // namespace

PanelWindow::PanelWindow(PanelSurroundings& surroundings, PanelSetup setup)
    : surroundings_(surroundings), connection_(surroundings.connection), setup_(std::move(setup)),
      window_(xcb_generate_id(connection_.get())), pixels_(panelPixels(setup_.frame, surroundings.scale)) {
  create();
  setProperties();
  surface_.emplace(connection_, surroundings.reader, window_, surroundings.visual.depth,
                   !setup_.ignoresMouseEvents);
  surface_->setSize(pixels_.width, pixels_.height);
  xcb_map_window(connection_.get(), window_);
}

PanelWindow::~PanelWindow() {
  surroundings_.focus.letGo(window_);
  surface_.reset();
  xcb_destroy_window(connection_.get(), window_);
}

void PanelWindow::create() {
  const auto& visual = surroundings_.visual;
  constexpr std::uint32_t listening = XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_BUTTON_RELEASE |
                                      XCB_EVENT_MASK_BUTTON_1_MOTION | XCB_EVENT_MASK_ENTER_WINDOW |
                                      XCB_EVENT_MASK_LEAVE_WINDOW | XCB_EVENT_MASK_KEY_PRESS;
  xcb_create_window_value_list_t values{};
  values.background_pixel = 0;
  values.border_pixel = 0; // which a depth of its own asks for
  values.bit_gravity = XCB_GRAVITY_NORTH_WEST;
  values.override_redirect = 1;
  values.event_mask = setup_.ignoresMouseEvents ? 0 : listening;
  values.colormap = visual.colormap;
  // A window has a pixel at least; its shape is empty then.
  const auto width = static_cast<std::uint16_t>(std::max(1, pixels_.width));
  const auto height = static_cast<std::uint16_t>(std::max(1, pixels_.height));
  xcb_create_window_aux(connection_.get(), visual.depth, window_, connection_.root(),
                        static_cast<std::int16_t>(pixels_.x), static_cast<std::int16_t>(pixels_.y), width,
                        height, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, visual.visual,
                        XCB_CW_BACK_PIXEL | XCB_CW_BORDER_PIXEL | XCB_CW_BIT_GRAVITY |
                            XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK | XCB_CW_COLORMAP,
                        &values);
}

void PanelWindow::setText(xcb_atom_t property, xcb_atom_t type, const std::string& text) {
  xcb_change_property(connection_.get(), XCB_PROP_MODE_REPLACE, window_, property, type, 8,
                      static_cast<std::uint32_t>(text.size()), text.data());
}

// Nobody manages the window, but others ask whose and what it is.
void PanelWindow::setProperties() {
  const auto set = [this](xcb_atom_t property, xcb_atom_t type, std::uint32_t value) {
    xcb_change_property(connection_.get(), XCB_PROP_MODE_REPLACE, window_, property, type, 32, 1, &value);
  };
  const auto utf8 = connection_.atom(Atom::utf8String);
  setText(connection_.atom(Atom::netWmName), utf8, setup_.accessibilityLabel);
  setText(XCB_ATOM_WM_NAME, utf8, setup_.accessibilityLabel);
  setText(XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, windowClass());
  setText(XCB_ATOM_WM_CLIENT_MACHINE, XCB_ATOM_STRING, machineName());
  set(connection_.atom(Atom::netWmPid), XCB_ATOM_CARDINAL, static_cast<std::uint32_t>(getpid()));
  set(connection_.atom(Atom::netWmWindowType), XCB_ATOM_ATOM, connection_.atom(Atom::typeUtility));
  set(connection_.atom(Atom::netWmState), XCB_ATOM_ATOM, connection_.atom(Atom::netWmStateAbove));
  set(surroundings_.shadowProperty, XCB_ATOM_CARDINAL, 0);
}

void PanelWindow::setFrame(const RectDTO& frame) {
  const auto wanted = panelPixels(frame, surroundings_.scale);
  if (wanted == pixels_) {
    return;
  }
  pixels_ = wanted;
  if (pixels_.isEmpty()) {
    surroundings_.focus.giveBack(window_);
  } else {
    const std::int32_t values[] = {pixels_.x, pixels_.y, pixels_.width, pixels_.height};
    xcb_configure_window(connection_.get(), window_,
                         XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_WIDTH |
                             XCB_CONFIG_WINDOW_HEIGHT,
                         values);
  }
  // Behind the move, so that nothing new is seen at the old place.
  surface_->setSize(pixels_.width, pixels_.height);
}

void PanelWindow::setPicture(const Picture& picture) {
  picture_ = picture;
  noteMixing();
}

void PanelWindow::noteMixing() {
  surface_->show(picture_, surroundings_.visual.hasAlpha && surroundings_.isMixing);
}

void PanelWindow::raise() {
  constexpr std::uint32_t above = XCB_STACK_MODE_ABOVE;
  xcb_configure_window(connection_.get(), window_, XCB_CONFIG_WINDOW_STACK_MODE, &above);
}

void PanelWindow::handle(const xcb_generic_event_t& event) {
  if (surface_->handle(event)) {
    return;
  }
  switch (event.response_type & 0x7F) {
  case XCB_MOTION_NOTIFY:
    move(reinterpret_cast<const xcb_motion_notify_event_t&>(event));
    break;
  case XCB_BUTTON_PRESS:
    press(reinterpret_cast<const xcb_button_press_event_t&>(event));
    break;
  case XCB_BUTTON_RELEASE:
    release(reinterpret_cast<const xcb_button_release_event_t&>(event));
    break;
  case XCB_LEAVE_NOTIFY:
  case XCB_ENTER_NOTIFY:
    leave(reinterpret_cast<const xcb_leave_notify_event_t&>(event));
    break;
  case XCB_KEY_PRESS:
    pressKey(reinterpret_cast<const xcb_key_press_event_t&>(event));
    break;
  case XCB_UNMAP_NOTIFY:
  case XCB_DESTROY_NOTIFY:
    loseButton();
    break;
  default:
    break;
  }
}

void PanelWindow::finishHandling() {
  if (const auto motion = std::exchange(motion_, std::nullopt);
      motion && isButtonDown_ && setup_.handlers.onMouseDragged) {
    setup_.handlers.onMouseDragged(*motion);
  }
}

void PanelWindow::loseButton() {
  finishHandling();
  if (std::exchange(isButtonDown_, false) && setup_.handlers.onMouseUp) {
    setup_.handlers.onMouseUp();
  }
}

void PanelWindow::press(const xcb_button_press_event_t& event) {
  if (event.detail != XCB_BUTTON_INDEX_1) {
    return;
  }
  loseButton(); // whose release was never told
  surroundings_.focus.take(window_, event.time);
  isButtonDown_ = true;
  if (setup_.handlers.onMouseDown) {
    setup_.handlers.onMouseDown(location(event.root_x, event.root_y));
  }
}

// Beyond the panel, the pointer's leave is told behind it.
void PanelWindow::release(const xcb_button_release_event_t& event) {
  if (event.detail == XCB_BUTTON_INDEX_1) {
    loseButton();
  }
}

void PanelWindow::pressKey(const xcb_key_press_event_t& event) {
  finishHandling();
  const bool isForUs = event.detail >= lowestKeycode && setup_.handlers.onKeyDown &&
                       setup_.handlers.onKeyDown(static_cast<std::uint16_t>(event.detail - lowestKeycode));
  if (!isForUs && !isButtonDown_) {
    surroundings_.focus.giveBack(window_);
  }
}

void PanelWindow::move(const xcb_motion_notify_event_t& event) {
  if (!isFirstButtonDown(event.state)) {
    loseButton();
  } else if (isButtonDown_) {
    motion_ = location(event.root_x, event.root_y);
  }
}

// The pointer comes or goes.
void PanelWindow::leave(const xcb_leave_notify_event_t& event) {
  if (!isFirstButtonDown(event.state)) {
    loseButton();
  }
  if ((event.response_type & 0x7F) == XCB_LEAVE_NOTIFY && !isButtonDown_) {
    surroundings_.focus.giveBack(window_);
  }
}

PointerLocation PanelWindow::location(std::int16_t rootX, std::int16_t rootY) const {
  return {rootX / surroundings_.scale, rootY / surroundings_.scale};
}

} // namespace tessarin::x11
