#pragma once

#include "model/Permission.hpp"
#include "ports/Permissions.hpp"

namespace tessarin {

// The platform's status in the words of the host; a value outside the enumeration is `restricted`.
PermissionStatus permissionStatus(CaptureAuthorizationStatus status);

// Permission for one kind of capture device. Keeps nothing: every answer is read at the moment of asking.
// Confined as the authorization is, which is not owned.
class CapturePermissionService {
 public:
  // Asks nobody.
  PermissionStatus status() const;
  // Asks the person when nobody has answered yet, and waits for the answer; a refusal is a status. Never
  // `notDetermined`.
  PermissionStatus request() const;

 protected:
  CapturePermissionService(CaptureAuthorization& authorization, MediaKind kind)
      : authorization_(authorization), kind_(kind) {}

 private:
  CaptureAuthorization& authorization_;
  MediaKind kind_;
};

class MicrophonePermissionService : public CapturePermissionService {
 public:
  explicit MicrophonePermissionService(CaptureAuthorization& authorization)
      : CapturePermissionService(authorization, MediaKind::audio) {}
};

class CameraPermissionService : public CapturePermissionService {
 public:
  explicit CameraPermissionService(CaptureAuthorization& authorization)
      : CapturePermissionService(authorization, MediaKind::video) {}
};

} // namespace tessarin
