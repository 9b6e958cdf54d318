#include "backends/x11/Activator.hpp"

#include "backends/x11/Displays.hpp"
#include "backends/x11/Windows.hpp"

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace tessarin::x11 {

namespace {

std::optional<xcb_window_t> windowProperty(Connection& connection, xcb_window_t window, Atom property) {
  const auto reply = connection.reply(
      xcb_get_property_reply,
      xcb_get_property(connection.get(), 0, window, connection.atom(property), XCB_ATOM_WINDOW, 0, 1));
  return reply && xcb_get_property_value_length(reply.get()) == 4
             ? std::optional(*static_cast<const xcb_window_t*>(xcb_get_property_value(reply.get())))
             : std::nullopt;
}

// The property survives a window manager that is gone; its window doesn't.
bool hasWindowManager(Connection& connection) {
  const auto check = windowProperty(connection, connection.root(), Atom::netSupportingWmCheck);
  return check && windowProperty(connection, *check, Atom::netSupportingWmCheck) == check;
}

// The window that the user works in, which need not be a top-level one.
xcb_window_t activeWindow(Connection& connection) {
  if (hasWindowManager(connection)) {
    return windowProperty(connection, connection.root(), Atom::netActiveWindow).value_or(XCB_NONE);
  }
  const auto focus = connection.reply(xcb_get_input_focus_reply, xcb_get_input_focus(connection.get()));
  return focus ? focus->focus : static_cast<xcb_window_t>(XCB_NONE);
}

class Activator final : public ApplicationActivator {
 public:
  explicit Activator(std::shared_ptr<DisplayServer> server) : server_(std::move(server)) {}

  std::optional<bool> isActive(std::int32_t processID) override {
    try {
      auto& connection = server_->connection();
      const auto windows = windowsOf(connection, processID);
      if (windows.empty()) {
        return std::nullopt;
      }
      const auto active = connection.clientBase(activeWindow(connection));
      for (const auto& window : windows) {
        if (active != 0 && connection.clientBase(window.client) == active) {
          return true;
        }
      }
      return false;
    } catch (const DesktopFailure&) {
      return std::nullopt;
    }
  }

  void activate(std::int32_t processID) override {
    try {
      auto& connection = server_->connection();
      if (const auto window = mainWindow(windowsOf(connection, processID))) {
        hasWindowManager(connection) ? ask(connection, *window) : raise(connection, *window);
        connection.sync();
      }
    } catch (const DesktopFailure&) {
      // The capture that follows will tell.
    }
  }

 private:
  static std::vector<TopLevelWindow> windowsOf(Connection& connection, std::int32_t processID) {
    auto windows = readWindows(connection, DisplayQuery(connection).result().root);
    std::erase_if(windows, [&](const TopLevelWindow& each) { return each.owner.processID != processID; });
    return windows;
  }

  // The frontmost one that can take the focus; docks, menus and the like only where there is nothing else.
  static std::optional<TopLevelWindow> mainWindow(const std::vector<TopLevelWindow>& windows) {
    for (const bool isChoosy : {true, false}) {
      for (auto window = windows.rbegin(); window != windows.rend(); ++window) {
        const bool isOrdinary = !window->isOverrideRedirect && (window->layer == WindowLayer::ordinary ||
                                                                window->layer == WindowLayer::raised);
        if (isOrdinary || !isChoosy) {
          return *window;
        }
      }
    }
    return std::nullopt;
  }

  static void ask(Connection& connection, const TopLevelWindow& window) {
    constexpr std::uint32_t pager = 2; // asked for by the user, as a task list does
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = window.client;
    message.type = connection.atom(Atom::netActiveWindow);
    message.data.data32[0] = pager;
    message.data.data32[1] = XCB_CURRENT_TIME;
    xcb_send_event(connection.get(), 0, connection.root(),
                   XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                   reinterpret_cast<const char*>(&message));
  }

  static void raise(Connection& connection, const TopLevelWindow& window) {
    const std::uint32_t above = XCB_STACK_MODE_ABOVE;
    const auto raised =
        xcb_configure_window_checked(connection.get(), window.top, XCB_CONFIG_WINDOW_STACK_MODE, &above);
    const auto focused = xcb_set_input_focus_checked(connection.get(), XCB_INPUT_FOCUS_PARENT, window.client,
                                                     XCB_CURRENT_TIME);
    connection.succeeded(raised);
    connection.succeeded(focused);
  }

  std::shared_ptr<DisplayServer> server_;
};

} // namespace

std::unique_ptr<ApplicationActivator> makeApplicationActivator(std::shared_ptr<DisplayServer> server) {
  return std::make_unique<Activator>(std::move(server));
}

} // namespace tessarin::x11
