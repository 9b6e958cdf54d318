#include "backends/posix/UserDirectories.hpp"

#include <cstdlib>

namespace tessarin {

namespace {

// A variable that holds an absolute path; others are as good as not set.
std::optional<std::string> directoryVariable(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr && value[0] == '/' ? std::optional<std::string>(value) : std::nullopt;
}

} // namespace

std::optional<std::string> userCachesDirectory() {
  if (auto caches = directoryVariable("XDG_CACHE_HOME"))
    return caches;
  const auto home = directoryVariable("HOME");
  return home ? std::optional(*home + "/.cache") : std::nullopt;
}

std::string temporaryFilesDirectory() {
  return directoryVariable("TMPDIR").value_or("/tmp");
}

} // namespace tessarin
