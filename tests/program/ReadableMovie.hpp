#pragma once

#include "base/FileSystem.hpp"
#include "container/Movie.hpp"

#include <cstdint>
#include <exception>
#include <string>

namespace tessarin {

// How much of a movie, which may be growing or torn, can be read now; 0 where there is nothing yet.
inline std::int64_t readableMs(const std::string& path) {
  try {
    return container::readMovie(*machineFileSystem().open(path, OpenMode::read)).duration.wholeMilliseconds();
  } catch (const std::exception&) {
    return 0;
  }
}

} // namespace tessarin
