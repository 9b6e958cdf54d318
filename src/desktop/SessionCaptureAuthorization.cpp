#include "desktop/SessionCaptureAuthorization.hpp"

namespace tessarin {

CaptureAuthorizationStatus SessionCaptureAuthorization::status(MediaKind kind) {
  if (!devices_.isReachable())
    return CaptureAuthorizationStatus::restricted;
  switch (portal_.storedAnswer(kind)) {
  case PortalAnswer::yes:
  case PortalAnswer::noPortal:
    return CaptureAuthorizationStatus::authorized;
  case PortalAnswer::no:
    return CaptureAuthorizationStatus::denied;
  case PortalAnswer::unset:
    break;
  }
  return CaptureAuthorizationStatus::notDetermined;
}

bool SessionCaptureAuthorization::requestAccess(MediaKind kind) {
  const CaptureAuthorizationStatus known = status(kind);
  if (known != CaptureAuthorizationStatus::notDetermined)
    return known == CaptureAuthorizationStatus::authorized;
  const std::optional<bool> answer = portal_.ask(kind);
  // A person may take long, and the server may have gone meanwhile.
  return answer.value_or(true) && devices_.isReachable();
}

} // namespace tessarin
