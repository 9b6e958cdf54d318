#include "desktop/CapturePermissionService.hpp"

namespace tessarin {

PermissionStatus permissionStatus(CaptureAuthorizationStatus status) {
  switch (status) {
  case CaptureAuthorizationStatus::authorized:
    return PermissionStatus::granted;
  case CaptureAuthorizationStatus::denied:
    return PermissionStatus::denied;
  case CaptureAuthorizationStatus::notDetermined:
    return PermissionStatus::notDetermined;
  case CaptureAuthorizationStatus::restricted:
    break;
  }
  return PermissionStatus::restricted;
}

PermissionStatus CapturePermissionService::status() const {
  return permissionStatus(authorization_.status(kind_));
}

PermissionStatus CapturePermissionService::request() const {
  const PermissionStatus known = status();
  if (known != PermissionStatus::notDetermined)
    return known;
  return authorization_.requestAccess(kind_) ? PermissionStatus::granted : PermissionStatus::denied;
}

} // namespace tessarin
