#pragma once

#include <optional>
#include <string>

// Where the environment says that the user's files belong. Read at the moment of asking; no thread may change
// the environment meanwhile.
namespace tessarin {

// The user's caches directory: XDG_CACHE_HOME, else ".cache" in HOME; nothing when neither is an absolute
// path. It need not exist.
std::optional<std::string> userCachesDirectory();

// TMPDIR when that is an absolute path, else /tmp.
std::string temporaryFilesDirectory();

} // namespace tessarin
