#pragma once

#include "backends/x11/Connection.hpp"
#include "backends/x11/Windows.hpp"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

// What windows say of themselves, and what the server knows of their owners.
namespace tessarin::x11 {

struct WindowProperties {
  std::optional<std::string> title; // UTF-8; nothing when there is none or it is empty
  std::string instanceName;
  std::string className;
  std::vector<xcb_atom_t> types;
  bool isAbove = false;
  std::array<std::uint32_t, 4> shadow{}; // left, right, top, bottom
  std::optional<std::int32_t> processID; // told by the window itself, on this host
};

// Asks for the properties of one window on construction; result() takes the replies.
class PropertiesQuery {
 public:
  PropertiesQuery(Connection& connection, xcb_window_t window);
  // Once. Of a window that is gone nothing is told. Throws DesktopFailure.
  WindowProperties result();

 private:
  Connection* connection_;
  xcb_get_property_cookie_t netName_;
  xcb_get_property_cookie_t name_;
  xcb_get_property_cookie_t windowClass_;
  xcb_get_property_cookie_t type_;
  xcb_get_property_cookie_t state_;
  xcb_get_property_cookie_t shadow_;
  xcb_get_property_cookie_t processID_;
  xcb_get_property_cookie_t machine_;
};

// The processes behind the clients of some windows, as the server knows them, by one request.
class ProcessQuery {
 public:
  ProcessQuery(Connection& connection, const std::vector<xcb_window_t>& windows);
  // Once. By client base. Throws DesktopFailure.
  std::map<std::uint32_t, std::int32_t> result();

 private:
  Connection* connection_;
  std::optional<unsigned int> sequence_;
};

} // namespace tessarin::x11
