#include "ClientServer.hpp"

#include <poll.h>

#include <chrono>
#include <stdexcept>

namespace tessarin::client {

Server::Server() : connection_(xcb_connect(nullptr, nullptr)), screen_(nullptr) {
  if (xcb_connection_has_error(connection_)) {
    throw std::runtime_error("no display");
  }
  screen_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data;
}

Server::~Server() {
  xcb_disconnect(connection_);
}

xcb_atom_t Server::atom(const std::string& name) {
  auto& atom = atoms_[name];
  if (atom == XCB_ATOM_NONE) {
    const auto cookie = xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(name.size()), name.data());
    const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(connection_, cookie, nullptr));
    if (!reply) {
      throw std::runtime_error("no atom");
    }
    atom = reply->atom;
  }
  return atom;
}

xcb_visualid_t Server::alphaVisual() const {
  for (auto depth = xcb_screen_allowed_depths_iterator(screen_); depth.rem > 0; xcb_depth_next(&depth)) {
    if (depth.data->depth == 32) {
      for (auto visual = xcb_depth_visuals_iterator(depth.data); visual.rem > 0;
           xcb_visualtype_next(&visual)) {
        if (visual.data->_class == XCB_VISUAL_CLASS_TRUE_COLOR) {
          return visual.data->visual_id;
        }
      }
    }
  }
  throw std::runtime_error("no visual with alpha");
}

void Server::setProperty(xcb_window_t window, xcb_atom_t property, xcb_atom_t type,
                         const std::string& bytes) {
  xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window, property, type, 8,
                      static_cast<std::uint32_t>(bytes.size()), bytes.data());
}

void Server::setProperty(xcb_window_t window, xcb_atom_t property, xcb_atom_t type,
                         const std::vector<std::uint32_t>& values) {
  xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window, property, type, 32,
                      static_cast<std::uint32_t>(values.size()), values.data());
}

std::uint32_t Server::property(xcb_window_t window, xcb_atom_t property) {
  const Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
      connection_, xcb_get_property(connection_, 0, window, property, XCB_ATOM_ANY, 0, 1), nullptr));
  return reply && xcb_get_property_value_length(reply.get()) >= 4
             ? *static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()))
             : 0;
}

xcb_window_t Server::selectionOwner(xcb_atom_t selection) {
  const Reply<xcb_get_selection_owner_reply_t> reply(
      xcb_get_selection_owner_reply(connection_, xcb_get_selection_owner(connection_, selection), nullptr));
  return reply ? reply->owner : XCB_NONE;
}

bool Server::hasWindowManager() {
  const auto check = atom("_NET_SUPPORTING_WM_CHECK");
  const auto window = property(root(), check);
  return window != XCB_NONE && property(window, check) == window;
}

bool Server::isViewable(xcb_window_t window) {
  const Reply<xcb_get_window_attributes_reply_t> reply(
      xcb_get_window_attributes_reply(connection_, xcb_get_window_attributes(connection_, window), nullptr));
  return reply && reply->map_state == XCB_MAP_STATE_VIEWABLE;
}

void Server::sync() {
  const Reply<xcb_get_input_focus_reply_t> reply(
      xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
  if (!reply) {
    throw std::runtime_error("the display is gone");
  }
}

Reply<xcb_generic_event_t> Server::waitForEvent(int milliseconds) {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
  xcb_flush(connection_);
  for (;;) {
    Reply<xcb_generic_event_t> event(xcb_poll_for_event(connection_));
    if (event) {
      return event;
    }
    if (xcb_connection_has_error(connection_)) {
      throw std::runtime_error("the display is gone");
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) {
      return nullptr;
    }
    pollfd entry{xcb_get_file_descriptor(connection_), POLLIN, 0};
    poll(&entry, 1, static_cast<int>(left));
  }
}

namespace {

// Window managers announce themselves before they listen, and may lose what is mapped in between: a window
// of no importance is mapped until it is managed, and is gone again when this returns.
void waitUntilManaging(Server& server) {
  // The next client gets the same range of numbers; none of its windows may be taken for this one.
  constexpr int unusedNumbers = 1000;
  for (int i = 0; i < unusedNumbers; ++i) {
    xcb_generate_id(server.get());
  }
  const auto probe = xcb_generate_id(server.get());
  const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY;
  xcb_create_window(server.get(), XCB_COPY_FROM_PARENT, probe, server.root(), 0, 0, 8, 8, 0,
                    XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &events);
  const auto state = server.atom("WM_STATE");
  for (int attempt = 0; server.property(probe, state) == 0; ++attempt) {
    if (attempt > 500) {
      throw std::runtime_error("the window manager does not manage");
    }
    xcb_map_window(server.get(), probe);
    server.waitForEvent(10);
  }
  xcb_destroy_window(server.get(), probe);
  const auto list = server.atom("_NET_CLIENT_LIST");
  for (int attempt = 0; server.property(server.root(), list) != 0; ++attempt) {
    if (attempt > 500) {
      throw std::runtime_error("the window manager keeps a window that is gone");
    }
    server.waitForEvent(10);
  }
}

} // namespace

void waitForManager(Server& server, const std::string& name) {
  const auto isThere = [&] {
    if (name == "window-manager") {
      return server.hasWindowManager();
    }
    if (name == "compositing-manager") {
      return server.selectionOwner(server.atom("_NET_WM_CM_S0")) != XCB_NONE;
    }
    if (name == "tray") {
      return server.selectionOwner(server.atom("_NET_SYSTEM_TRAY_S0")) != XCB_NONE;
    }
    throw std::runtime_error("unknown manager " + name);
  };
  // A window manager shows itself in a property of the root; the others need not, hence the look again.
  const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY;
  xcb_change_window_attributes(server.get(), server.root(), XCB_CW_EVENT_MASK, &events);
  constexpr int step = 10;
  for (int waited = 0; !isThere();) {
    waited += server.waitForEvent(step) ? 0 : step;
    if (waited > 8000) {
      throw std::runtime_error("no " + name);
    }
  }
  if (name == "window-manager") {
    waitUntilManaging(server);
  }
}

} // namespace tessarin::client
