#pragma once

#include "base/FileSystem.hpp"

#include <string>

namespace tessarin {

// What a session directory holds, as text for a person: the manifest, every segment up to its last whole
// fragment, the joined files, the trace and the camera's layout, and what does not belong there. Only reads.
// A file that cannot be read, or is not what it should be, is said to be so; nothing is thrown for it. A
// directory that cannot be listed yields a line that says so. A few lines a file, each with a line feed.
struct SessionReport {
  std::string text;
  bool isWhole = true; // nothing was found damaged, torn or missing
};
SessionReport reportOnSession(FileSystem& files, const std::string& directory);

} // namespace tessarin
