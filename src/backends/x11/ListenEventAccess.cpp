#include "backends/x11/ListenEventAccess.hpp"

#include <xcb/xinput.h>

#include <cstdint>
#include <utility>

namespace tessarin::x11 {

namespace {

bool hasExtension(Connection& connection, std::string_view name) {
  const auto reply = connection.required(
      xcb_query_extension_reply,
      xcb_query_extension(connection.get(), static_cast<std::uint16_t>(name.size()), name.data()));
  return reply->present != 0;
}

// From 2.1 on raw events come also while another client grabs the device.
bool hasRawEvents(Connection& connection) {
  if (!hasExtension(connection, "XInputExtension"))
    return false;
  const auto version =
      connection.reply(xcb_input_xi_query_version_reply, xcb_input_xi_query_version(connection.get(), 2, 1));
  return version &&
         (version->major_version > 2 || (version->major_version == 2 && version->minor_version >= 1));
}

bool hasNestedInputDevices(Connection& connection) {
  const auto reply = connection.required(xcb_input_xi_query_device_reply,
                                         xcb_input_xi_query_device(connection.get(), XCB_INPUT_DEVICE_ALL));
  for (auto device = xcb_input_xi_query_device_infos_iterator(reply.get()); device.rem > 0;
       xcb_input_xi_device_info_next(&device)) {
    const std::string_view name(xcb_input_xi_device_info_name(device.data),
                                static_cast<std::size_t>(xcb_input_xi_device_info_name_length(device.data)));
    if (isNestedInputDevice(name))
      return true;
  }
  return false;
}

// Asks for raw keys of every keyboard at the root window, and for none again.
bool takesWatchers(Connection& connection) {
  struct {
    xcb_input_event_mask_t head;
    std::uint32_t mask;
  } selection{{XCB_INPUT_DEVICE_ALL_MASTER, 1}, XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS};
  const auto select = [&] {
    return connection.succeeded(
        xcb_input_xi_select_events_checked(connection.get(), connection.root(), 1, &selection.head));
  };
  if (!select())
    return false;
  selection.mask = 0;
  return select();
}

class ServerListenEventAccess final : public ListenEventAccess {
 public:
  explicit ServerListenEventAccess(std::shared_ptr<DisplayServer> server) : server_(std::move(server)) {}

  bool preflight() override {
    try {
      return letsInputBeWatched(server_->connection());
    } catch (const DesktopFailure&) {
      return false;
    }
  }

  bool request() override { return preflight(); }

 private:
  const std::shared_ptr<DisplayServer> server_;
};

} // namespace

std::unique_ptr<ListenEventAccess> makeListenEventAccess(std::shared_ptr<DisplayServer> server) {
  return std::make_unique<ServerListenEventAccess>(std::move(server));
}

bool letsInputBeWatched(Connection& connection) {
  return hasExtension(connection, "RECORD") && hasRawEvents(connection) &&
         !hasExtension(connection, "XWAYLAND") && !hasNestedInputDevices(connection) &&
         takesWatchers(connection);
}

bool isNestedInputDevice(std::string_view name) {
  return name.starts_with("xwayland-");
}

} // namespace tessarin::x11
