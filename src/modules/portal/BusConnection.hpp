#pragma once

#include <systemd/sd-bus.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace tessarin::portal {

struct BusDeleter {
  void operator()(sd_bus* bus) const noexcept { sd_bus_close_unref(bus); }
};
struct SlotDeleter {
  void operator()(sd_bus_slot* slot) const noexcept { sd_bus_slot_unref(slot); }
};
struct MessageDeleter {
  void operator()(sd_bus_message* message) const noexcept { sd_bus_message_unref(message); }
};
using Bus = std::unique_ptr<sd_bus, BusDeleter>;
using Slot = std::unique_ptr<sd_bus_slot, SlotDeleter>;
using Message = std::unique_ptr<sd_bus_message, MessageDeleter>;

// A connection of its own to the session's bus. Confined to one thread.
class BusConnection {
 public:
  // How long the bus, or what answers on it, may take for anything but a person's answer.
  static constexpr std::chrono::seconds patience{2};

  // Nothing without a session bus that lets this process in within the patience.
  static std::optional<BusConnection> open();

  sd_bus* get() const { return bus_.get(); }
  // As the bus knows this connection, such as ":1.42".
  std::string uniqueName() const;

  // A method call to be filled in. Null when there is no memory or the connection is lost.
  Message methodCall(const char* service, const char* path, const char* interface, const char* member) const;

  struct Reply {
    Message message;       // null when the call failed or was not answered in time
    std::string errorName; // of a call that failed
  };
  // Sends the call and waits for its answer, within the patience. Signals that come meanwhile are kept.
  Reply call(sd_bus_message* message) const;

 private:
  explicit BusConnection(Bus bus) : bus_(std::move(bus)) {}
  Bus bus_;
};

} // namespace tessarin::portal
