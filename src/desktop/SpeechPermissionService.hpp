#pragma once

#include "model/Permission.hpp"
#include "ports/Permissions.hpp"

namespace tessarin {

// Permission for the recognition of speech. Keeps nothing. Confined as the authorization is.
namespace SpeechPermissionService {

// The platform's status in the words of the host; a value outside the enumeration is `restricted`. A table
// of its own: the two enumerations of the platform do not number their cases alike.
PermissionStatus permissionStatus(SpeechAuthorizationStatus status);

// Asks nobody.
PermissionStatus status(SpeechAuthorization& authorization);
// Asks when nobody has answered yet, and tells what the platform says then, whatever it is.
PermissionStatus request(SpeechAuthorization& authorization);

} // namespace SpeechPermissionService

// Speech is recognised by this machine itself, in files that the host names. Nothing of a session stands in
// between, so there is nothing to ask. Stateless, any thread.
class LocalSpeechAuthorization final : public SpeechAuthorization {
 public:
  SpeechAuthorizationStatus status() override { return SpeechAuthorizationStatus::authorized; }
  SpeechAuthorizationStatus requestAuthorization() override { return status(); }
};

} // namespace tessarin
