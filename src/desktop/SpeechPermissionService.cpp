#include "desktop/SpeechPermissionService.hpp"

namespace tessarin::SpeechPermissionService {

PermissionStatus permissionStatus(SpeechAuthorizationStatus status) {
  switch (status) {
  case SpeechAuthorizationStatus::authorized:
    return PermissionStatus::granted;
  case SpeechAuthorizationStatus::denied:
    return PermissionStatus::denied;
  case SpeechAuthorizationStatus::notDetermined:
    return PermissionStatus::notDetermined;
  case SpeechAuthorizationStatus::restricted:
    break;
  }
  return PermissionStatus::restricted;
}

PermissionStatus status(SpeechAuthorization& authorization) {
  return permissionStatus(authorization.status());
}

PermissionStatus request(SpeechAuthorization& authorization) {
  const SpeechAuthorizationStatus known = authorization.status();
  return permissionStatus(
      known == SpeechAuthorizationStatus::notDetermined ? authorization.requestAuthorization() : known);
}

} // namespace tessarin::SpeechPermissionService
