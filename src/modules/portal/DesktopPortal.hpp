#pragma once

#include "modules/portal/BusConnection.hpp"
#include "ports/Permissions.hpp"

#include <memory>

namespace tessarin::portal {

// The desktop portal on the session's bus. Every call opens a connection of its own, so nothing is shared
// between calls; any thread.
//
// A kind of device is guarded when org.freedesktop.portal.Desktop answers on the interface for it: Device
// for microphones, Camera for cameras. Answers are kept by org.freedesktop.impl.portal.PermissionStore in
// the table "devices", by application; a process that is in no sandbox, as this one, is the application "".
class DesktopPortal final : public DevicePortal {
 public:
  // A portal that says nothing within two seconds counts as none, an answer in a form that is not known as
  // unset.
  PortalAnswer storedAnswer(MediaKind kind) override;
  // True when access was granted. False when it was not, whether the person refused, closed the question, or
  // the portal refuses to ask. Nothing when there is no portal for the kind, it takes no request, or it
  // goes before it has answered.
  std::optional<bool> ask(MediaKind kind) override;
};

} // namespace tessarin::portal
