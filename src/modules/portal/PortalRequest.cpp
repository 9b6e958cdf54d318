#include "modules/portal/PortalRequest.hpp"

#include <random>
#include <string_view>
#include <utility>

namespace tessarin::portal {

namespace {

constexpr std::uint64_t withoutLimit = UINT64_MAX;

// Not to be guessed by another process of the session.
std::string makeToken() {
  std::random_device random;
  return "tessarin" + std::to_string(random()) + "x" + std::to_string(random());
}

bool appendOptions(sd_bus_message* call, const std::string& token) {
  return sd_bus_message_append(call, "a{sv}", 1, "handle_token", "s", token.c_str()) >= 0;
}

} // namespace

PortalRequest::PortalRequest(const BusConnection& bus, std::string portal)
    : bus_(bus), portal_(std::move(portal)), token_(makeToken()) {}

int PortalRequest::responded(sd_bus_message* signal, void* self, sd_bus_error*) {
  std::uint32_t response = 0;
  if (sd_bus_message_read(signal, "u", &response) > 0)
    static_cast<PortalRequest*>(self)->responses_.emplace(sd_bus_message_get_path(signal), response);
  return 0;
}

int PortalRequest::ownerChanged(sd_bus_message* signal, void* self, sd_bus_error*) {
  const char* name = nullptr;
  const char* before = nullptr;
  const char* after = nullptr;
  if (sd_bus_message_read(signal, "sss", &name, &before, &after) > 0 && std::string_view(after).empty())
    static_cast<PortalRequest*>(self)->hasPortalGone_ = true;
  return 0;
}

// The rules name the portal's connection, so that nobody else's word counts.
bool PortalRequest::listen() {
  sd_bus_slot* slot = nullptr;
  if (sd_bus_match_signal(bus_.get(), &slot, portal_.c_str(), nullptr, "org.freedesktop.portal.Request",
                          "Response", responded, this) < 0)
    return false;
  responseSlot_.reset(slot);
  const std::string rule = "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
                           "member='NameOwnerChanged',arg0='" +
                           portal_ + "'";
  if (sd_bus_add_match(bus_.get(), &slot, rule.c_str(), ownerChanged, this) < 0)
    return false;
  ownerSlot_.reset(slot);
  return true;
}

std::optional<bool> PortalRequest::answer(sd_bus_message* call) {
  if (!appendOptions(call, token_) || !listen())
    return std::nullopt;
  const BusConnection::Reply reply = bus_.call(call);
  if (reply.errorName == "org.freedesktop.portal.Error.NotAllowed")
    return false;
  const char* handle = nullptr;
  if (!reply.message || sd_bus_message_read(reply.message.get(), "o", &handle) <= 0)
    return std::nullopt;
  return awaitResponse(handle);
}

std::optional<bool> PortalRequest::awaitResponse(const std::string& handle) {
  constexpr std::uint32_t granted = 0;
  for (;;) {
    if (const auto response = responses_.find(handle); response != responses_.end())
      return response->second == granted;
    if (hasPortalGone_)
      return std::nullopt;
    const int progress = sd_bus_process(bus_.get(), nullptr);
    if (progress < 0 || (progress == 0 && sd_bus_wait(bus_.get(), withoutLimit) < 0))
      return std::nullopt;
  }
}

} // namespace tessarin::portal
