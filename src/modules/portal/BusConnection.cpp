#include "modules/portal/BusConnection.hpp"

#include <cstdint>
#include <utility>

namespace tessarin::portal {

namespace {

std::uint64_t microseconds(std::chrono::nanoseconds time) {
  return static_cast<std::uint64_t>(std::chrono::ceil<std::chrono::microseconds>(time).count());
}

// Whether the bus has greeted before the patience was at its end; the library itself waits much longer.
bool becomesReady(sd_bus* bus) {
  const auto deadline = std::chrono::steady_clock::now() + BusConnection::patience;
  for (;;) {
    const int ready = sd_bus_is_ready(bus);
    if (ready != 0)
      return ready > 0;
    const int progress = sd_bus_process(bus, nullptr);
    if (progress < 0)
      return false;
    const auto left = deadline - std::chrono::steady_clock::now();
    if (left <= left.zero())
      return false;
    if (progress == 0 && sd_bus_wait(bus, microseconds(left)) < 0)
      return false;
  }
}

} // namespace

std::optional<BusConnection> BusConnection::open() {
  sd_bus* opened = nullptr;
  if (sd_bus_open_user(&opened) < 0)
    return std::nullopt;
  Bus bus(opened);
  if (sd_bus_set_method_call_timeout(bus.get(), microseconds(patience)) < 0 || !becomesReady(bus.get()))
    return std::nullopt;
  return BusConnection(std::move(bus));
}

std::string BusConnection::uniqueName() const {
  const char* name = nullptr;
  return sd_bus_get_unique_name(bus_.get(), &name) < 0 ? std::string() : std::string(name);
}

Message BusConnection::methodCall(const char* service, const char* path, const char* interface,
                                  const char* member) const {
  sd_bus_message* message = nullptr;
  if (sd_bus_message_new_method_call(bus_.get(), &message, service, path, interface, member) < 0)
    return nullptr;
  return Message(message);
}

BusConnection::Reply BusConnection::call(sd_bus_message* message) const {
  sd_bus_error error = SD_BUS_ERROR_NULL;
  sd_bus_message* reply = nullptr;
  Reply result;
  if (sd_bus_call(bus_.get(), message, microseconds(patience), &error, &reply) >= 0)
    result.message.reset(reply);
  else if (error.name != nullptr)
    result.errorName = error.name;
  sd_bus_error_free(&error);
  return result;
}

} // namespace tessarin::portal
