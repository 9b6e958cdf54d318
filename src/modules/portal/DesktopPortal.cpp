#include "modules/portal/DesktopPortal.hpp"

#include "modules/portal/PortalRequest.hpp"

#include <unistd.h>

#include <cstdint>
#include <string_view>

namespace tessarin::portal {

namespace {

constexpr char portalService[] = "org.freedesktop.portal.Desktop";
constexpr char portalPath[] = "/org/freedesktop/portal/desktop";

struct GuardedKind {
  const char* interface;
  const char* storedID; // in the table of devices
};

GuardedKind guarded(MediaKind kind) {
  return kind == MediaKind::audio ? GuardedKind{"org.freedesktop.portal.Device", "microphone"}
                                  : GuardedKind{"org.freedesktop.portal.Camera", "camera"};
}

// The unique name of the portal, which is started when it is not running; empty when none answers on the
// interface.
std::string portalFor(const BusConnection& bus, const GuardedKind& kind) {
  const Message question =
      bus.methodCall(portalService, portalPath, "org.freedesktop.DBus.Properties", "Get");
  if (!question || sd_bus_message_append(question.get(), "ss", kind.interface, "version") < 0)
    return {};
  const BusConnection::Reply reply = bus.call(question.get());
  const char* const sender = reply.message ? sd_bus_message_get_sender(reply.message.get()) : nullptr;
  return sender ? sender : "";
}

// The application's entry of a lookup's answer: one of "yes", "no" and "ask".
PortalAnswer answerOf(sd_bus_message* lookup, std::string_view application) {
  if (sd_bus_message_enter_container(lookup, 'a', "{sas}") < 0)
    return PortalAnswer::unset;
  while (sd_bus_message_enter_container(lookup, 'e', "sas") > 0) {
    const char* name = nullptr;
    if (sd_bus_message_read(lookup, "s", &name) < 0)
      return PortalAnswer::unset;
    if (name == application) {
      const char* permission = nullptr;
      if (sd_bus_message_enter_container(lookup, 'a', "s") < 0 ||
          sd_bus_message_read(lookup, "s", &permission) <= 0 || sd_bus_message_at_end(lookup, 0) <= 0)
        return PortalAnswer::unset;
      const std::string_view text = permission;
      return text == "yes" ? PortalAnswer::yes : text == "no" ? PortalAnswer::no : PortalAnswer::unset;
    }
    if (sd_bus_message_skip(lookup, "as") < 0 || sd_bus_message_exit_container(lookup) < 0)
      return PortalAnswer::unset;
  }
  return PortalAnswer::unset;
}

} // namespace

PortalAnswer DesktopPortal::storedAnswer(MediaKind kind) {
  const GuardedKind device = guarded(kind);
  const auto bus = BusConnection::open();
  if (!bus || portalFor(*bus, device).empty())
    return PortalAnswer::noPortal;
  const Message question = bus->methodCall("org.freedesktop.impl.portal.PermissionStore",
                                           "/org/freedesktop/impl/portal/PermissionStore",
                                           "org.freedesktop.impl.portal.PermissionStore", "Lookup");
  if (!question || sd_bus_message_append(question.get(), "ss", "devices", device.storedID) < 0)
    return PortalAnswer::unset;
  // Without a store, or an entry in it, nobody has answered.
  const BusConnection::Reply reply = bus->call(question.get());
  return reply.message ? answerOf(reply.message.get(), "") : PortalAnswer::unset;
}

std::optional<bool> DesktopPortal::ask(MediaKind kind) {
  const GuardedKind device = guarded(kind);
  const auto bus = BusConnection::open();
  const std::string portal = bus ? portalFor(*bus, device) : std::string();
  if (portal.empty())
    return std::nullopt;
  PortalRequest request(*bus, portal);
  // To the very portal that is listened to: another one that takes its place would not be heard.
  const Message question = bus->methodCall(portal.c_str(), portalPath, device.interface,
                                           kind == MediaKind::audio ? "AccessDevice" : "AccessCamera");
  if (!question)
    return std::nullopt;
  if (kind == MediaKind::audio &&
      (sd_bus_message_append(question.get(), "u", static_cast<std::uint32_t>(::getpid())) < 0 ||
       sd_bus_message_append(question.get(), "as", 1, device.storedID) < 0))
    return std::nullopt;
  return request.answer(question.get());
}

} // namespace tessarin::portal
