#pragma once

#include "ports/Desktop.hpp"

#include <cstdint>
#include <map>
#include <vector>

namespace tessarin::WindowZOrderResolver {

// The position of each window number in the front-to-back list, 0 in front; the first occurrence counts,
// and entries without a number take their place without being listed. Pure, any thread.
std::map<std::uint32_t, std::int64_t> resolve(const std::vector<WindowListEntry>& frontToBack);

} // namespace tessarin::WindowZOrderResolver
