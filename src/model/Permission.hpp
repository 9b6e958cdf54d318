#pragma once

#include "base/Json.hpp"

#include <cstdint>

namespace tessarin {

enum class PermissionStatus : std::uint8_t { granted, denied, notDetermined, restricted };
constexpr auto jsonNames(PermissionStatus) {
  return json::names<PermissionStatus>({{PermissionStatus::granted, "granted"},
                                        {PermissionStatus::denied, "denied"},
                                        {PermissionStatus::notDetermined, "notDetermined"},
                                        {PermissionStatus::restricted, "restricted"}});
}

struct PermissionPayload {
  PermissionStatus permission = PermissionStatus::notDetermined;

  static constexpr auto fields() {
    return json::table(json::field("permission", &PermissionPayload::permission));
  }
  bool operator==(const PermissionPayload&) const = default;
};

} // namespace tessarin
