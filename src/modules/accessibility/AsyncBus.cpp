#include "modules/accessibility/AsyncBus.hpp"

#include <cerrno>
#include <utility>

namespace tessarin::accessibility {

std::unique_ptr<AsyncBus> AsyncBus::ofSession(sd_event* loop) {
  sd_bus* opened = nullptr;
  if (sd_bus_open_user(&opened) < 0)
    return nullptr;
  return attached(Bus(opened), loop);
}

std::unique_ptr<AsyncBus> AsyncBus::at(sd_event* loop, const std::string& address) {
  sd_bus* made = nullptr;
  if (sd_bus_new(&made) < 0)
    return nullptr;
  Bus bus(made);
  if (sd_bus_set_address(bus.get(), address.c_str()) < 0 || sd_bus_set_bus_client(bus.get(), 1) < 0 ||
      sd_bus_start(bus.get()) < 0)
    return nullptr;
  return attached(std::move(bus), loop);
}

std::unique_ptr<AsyncBus> AsyncBus::attached(Bus bus, sd_event* loop) {
  // The library would otherwise wait at the loop's end until the bus has taken all that was sent.
  if (sd_bus_set_close_on_exit(bus.get(), 0) < 0 ||
      sd_bus_attach_event(bus.get(), loop, SD_EVENT_PRIORITY_NORMAL) < 0)
    return nullptr;
  return std::unique_ptr<AsyncBus>(new AsyncBus(std::move(bus)));
}

// Closed first, so that nothing is sent for what is taken down with it.
AsyncBus::~AsyncBus() {
  sd_bus_close(bus_.get());
}

Message AsyncBus::methodCall(const AccessibleObject& object, const char* interface,
                             const char* member) const {
  sd_bus_message* message = nullptr;
  if (sd_bus_message_new_method_call(bus_.get(), &message, object.application.c_str(), object.path.c_str(),
                                     interface, member) < 0)
    return nullptr;
  return Message(message);
}

bool AsyncBus::send(const Message& call, std::chrono::microseconds patience, Answer answer) {
  if (!call)
    return false;
  const auto entry = calls_.insert(calls_.end(), Call{this, std::move(answer), nullptr, {}});
  entry->self = entry;
  sd_bus_slot* slot = nullptr;
  if (sd_bus_call_async(bus_.get(), &slot, call.get(), callAnswered, &*entry,
                        static_cast<std::uint64_t>(patience.count())) < 0) {
    calls_.erase(entry);
    return false;
  }
  entry->slot.reset(slot);
  return true;
}

int AsyncBus::callAnswered(sd_bus_message* reply, void* call, sd_bus_error*) {
  auto* const entry = static_cast<Call*>(call);
  const Answer answer = std::move(entry->answer);
  entry->owner->calls_.erase(entry->self);
  if (!sd_bus_message_is_method_error(reply, nullptr)) {
    answer(Outcome::answered, reply);
    return 0;
  }
  // One error number stands for what the library says of an answer that is overdue, and the bus of one that
  // will not come.
  const bool isLate = sd_bus_message_get_errno(reply) == ETIMEDOUT;
  answer(isLate ? Outcome::late : Outcome::refused, nullptr);
  return 0;
}

void AsyncBus::listen(const std::string& rule, Signal signal) {
  Listener& listener = listeners_.emplace_back(Listener{std::move(signal), nullptr});
  sd_bus_slot* slot = nullptr;
  if (sd_bus_add_match_async(bus_.get(), &slot, rule.c_str(), signalled, nullptr, &listener) >= 0)
    listener.slot.reset(slot);
}

int AsyncBus::signalled(sd_bus_message* signal, void* listener, sd_bus_error*) {
  static_cast<Listener*>(listener)->signal(signal);
  return 0;
}

} // namespace tessarin::accessibility
