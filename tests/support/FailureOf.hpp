#pragma once

#include "base/Failure.hpp"

#include <optional>

namespace tessarin {

// The case of the Failure<Case> that a call throws, or nothing where it throws nothing. What else it throws
// passes through.
template<class Case, class Call> std::optional<Case> failureOf(const Call& call) {
  try {
    call();
    return std::nullopt;
  } catch (const Failure<Case>& failure) {
    return failure.value();
  }
}

} // namespace tessarin
