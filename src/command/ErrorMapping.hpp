#pragma once

#include "model/Errors.hpp"

#include <cstdint>
#include <exception>

namespace tessarin {

struct ErrorOutcome {
  NativeErrorPayload error;
  std::int32_t exitCode = 1;

  bool operator==(const ErrorOutcome&) const = default;
};

// How anything that a command throws is told to the host. Pure, any thread, never throws for the error.
ErrorOutcome outcomeOf(const std::exception_ptr& error);

} // namespace tessarin
