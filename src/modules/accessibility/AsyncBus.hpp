#pragma once

#include "modules/accessibility/AccessibleObject.hpp"

#include <systemd/sd-bus.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>

namespace tessarin::accessibility {

struct EventDeleter {
  void operator()(sd_event* event) const noexcept { sd_event_unref(event); }
};
struct BusDeleter {
  void operator()(sd_bus* bus) const noexcept { sd_bus_close_unref(bus); }
};
struct SlotDeleter {
  void operator()(sd_bus_slot* slot) const noexcept { sd_bus_slot_unref(slot); }
};
struct MessageDeleter {
  void operator()(sd_bus_message* message) const noexcept { sd_bus_message_unref(message); }
};
using EventLoop = std::unique_ptr<sd_event, EventDeleter>;
using Bus = std::unique_ptr<sd_bus, BusDeleter>;
using Slot = std::unique_ptr<sd_bus_slot, SlotDeleter>;
using Message = std::unique_ptr<sd_bus_message, MessageDeleter>;

enum class Outcome : std::uint8_t {
  answered,
  refused, // an error, such as of an object that is gone
  late     // no answer within the patience, or none will come: the application or the bus is gone
};

// A connection to a bus that never waits: everything it does it does when the event loop is turned. Confined
// to the loop's thread. What is called back may make further calls, and must not destroy the connection.
class AsyncBus {
 public:
  // The reply is null unless the call was answered.
  using Answer = std::function<void(Outcome outcome, sd_bus_message* reply)>;
  using Signal = std::function<void(sd_bus_message* signal)>;

  // Null where there is no such bus. That it lets this process in shows later. The loop outlives it.
  static std::unique_ptr<AsyncBus> ofSession(sd_event* loop);
  static std::unique_ptr<AsyncBus> at(sd_event* loop, const std::string& address);

  ~AsyncBus();
  AsyncBus(const AsyncBus&) = delete;
  AsyncBus& operator=(const AsyncBus&) = delete;

  // A call to be filled in. Null when there is no memory, or the name or the path is none.
  Message methodCall(const AccessibleObject& object, const char* interface, const char* member) const;
  // Sends it. The call is answered once, in a later turn of the loop, or never when this is destroyed before.
  // False, and no answer, when it cannot be sent: it is null, or the bus is gone.
  bool send(const Message& call, std::chrono::microseconds patience, Answer answer);
  // Has the bus send the signals that the rule tells, from here on.
  void listen(const std::string& rule, Signal signal);

 private:
  struct Call {
    AsyncBus* owner;
    Answer answer;
    Slot slot;
    std::list<Call>::iterator self;
  };
  struct Listener {
    Signal signal;
    Slot slot;
  };

  explicit AsyncBus(Bus bus) : bus_(std::move(bus)) {}
  static std::unique_ptr<AsyncBus> attached(Bus bus, sd_event* loop);
  static int callAnswered(sd_bus_message* reply, void* call, sd_bus_error*);
  static int signalled(sd_bus_message* signal, void* listener, sd_bus_error*);

  Bus bus_;
  std::list<Call> calls_; // their slots refer to the bus
  std::list<Listener> listeners_;
};

} // namespace tessarin::accessibility
