#pragma once

#include "backends/x11/Connection.hpp"

namespace tessarin::x11 {

// Stops all other clients for as long as it exists, also when that ends by a failure. Confined to the
// connection's thread.
class ServerGrab {
 public:
  explicit ServerGrab(Connection& connection) : connection_(connection) { xcb_grab_server(connection.get()); }
  ~ServerGrab() {
    xcb_ungrab_server(connection_.get());
    xcb_flush(connection_.get());
  }
  ServerGrab(const ServerGrab&) = delete;
  ServerGrab& operator=(const ServerGrab&) = delete;

 private:
  Connection& connection_;
};

} // namespace tessarin::x11
