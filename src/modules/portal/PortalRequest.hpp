#pragma once

#include "modules/portal/BusConnection.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace tessarin::portal {

// One question that the portal puts to the person. The portal answers a call with the path of a request
// object at once, and later by that object's signal Response. Confined to the connection's thread.
class PortalRequest {
 public:
  // Listens to the portal from here on, so that no answer is missed, however soon it comes and whatever the
  // path that the portal chooses for it. The connection outlives the request; the portal by its unique name.
  PortalRequest(const BusConnection& bus, std::string portal);
  PortalRequest(const PortalRequest&) = delete;
  PortalRequest& operator=(const PortalRequest&) = delete;

  // Sends the call, complete but for its options, and waits for the person, without a limit. Nothing when
  // the call is not taken, or the portal or the bus goes away.
  std::optional<bool> answer(sd_bus_message* call);

 private:
  static int responded(sd_bus_message* signal, void* self, sd_bus_error*);
  static int ownerChanged(sd_bus_message* signal, void* self, sd_bus_error*);
  bool listen();
  std::optional<bool> awaitResponse(const std::string& handle);

  const BusConnection& bus_;
  const std::string portal_;
  const std::string token_;                        // the last component of the path that we ask for
  std::map<std::string, std::uint32_t> responses_; // by request path
  bool hasPortalGone_ = false;
  Slot responseSlot_; // last: their calls refer to what is above
  Slot ownerSlot_;
};

} // namespace tessarin::portal
