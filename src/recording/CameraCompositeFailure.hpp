#pragma once

#include "model/Errors.hpp"

#include <optional>
#include <string_view>

namespace tessarin {

// Why a track of a segment cannot go on.
struct CameraCompositeFailure {
  std::string_view stage;                  // as diagnostics name it; of static storage
  std::optional<NativeServiceError> error; // absent: the segment's own
};

} // namespace tessarin
