#pragma once

#include <string>

namespace tessarin {

// A random UUID (RFC 4122, version 4) in capitals. Any thread.
std::string randomUuid();

} // namespace tessarin
