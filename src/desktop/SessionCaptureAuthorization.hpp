#pragma once

#include "ports/Devices.hpp"
#include "ports/Permissions.hpp"

namespace tessarin {

// Access to microphones and cameras as this session really has it: a server of sound and cameras that lets
// it in, and what the desktop portal knows, where there is one. Keeps nothing; any thread.
//
//   server out of reach                 restricted: nobody could grant what is not there
//   the portal's stored answer          authorized or denied
//   a portal, but no answer             notDetermined
//   no portal for the kind of device    authorized: nothing stands between the session and the server
class SessionCaptureAuthorization final : public CaptureAuthorization {
 public:
  // Neither is owned.
  SessionCaptureAuthorization(CaptureDevices& devices, DevicePortal& portal)
      : devices_(devices), portal_(portal) {}

  CaptureAuthorizationStatus status(MediaKind kind) override;
  // Has the portal ask where it has no answer. Where it turns out to have no way to ask, the answer is
  // whether the server can be reached.
  bool requestAccess(MediaKind kind) override;

 private:
  CaptureDevices& devices_;
  DevicePortal& portal_;
};

} // namespace tessarin
