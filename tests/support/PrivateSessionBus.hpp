#pragma once

#include "support/PrivateDesktop.hpp"
#include "support/TemporaryDirectory.hpp"

#include <csignal>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tessarin {

// A session bus of a test's own, on which nothing is started by asking for it. Ended when destroyed.
class PrivateSessionBus {
 public:
  // Returns when the bus answers. Throws std::runtime_error.
  PrivateSessionBus() {
    bus_ = std::make_unique<ChildProcess>(
        std::vector<std::string>{"dbus-daemon",
                                 "--config-file=" + directory_.write("bus.conf", configuration()), "--nofork",
                                 "--print-address"},
        ChildProcess::Settings{});
    if (!bus_->readLine())
      throw std::runtime_error("the session bus did not start");
  }

  ~PrivateSessionBus() { kill(); }
  PrivateSessionBus(const PrivateSessionBus&) = delete;
  PrivateSessionBus& operator=(const PrivateSessionBus&) = delete;

  std::string address() const { return "unix:path=" + (directory_ / "bus"); }
  // What a process needs to find this bus, and to find no other.
  std::vector<std::pair<std::string, std::string>> environment() const {
    return {{"DBUS_SESSION_BUS_ADDRESS", address()}};
  }
  // Ends it at once.
  void kill() { bus_->end(SIGKILL); }
  // It accepts connections and answers nothing.
  void stopAnswering() const { ::kill(bus_->pid(), SIGSTOP); }

 private:
  std::string configuration() const {
    return "<busconfig><type>session</type><listen>" + address() +
           "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow send_destination=\"*\"/>"
           "<allow receive_sender=\"*\"/><allow own=\"*\"/></policy></busconfig>\n";
  }

  const TemporaryDirectory directory_;
  std::unique_ptr<ChildProcess> bus_;
};

} // namespace tessarin
