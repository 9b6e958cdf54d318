#include "desktop/CapturePreparationRequest.hpp"

#include "base/FileSystem.hpp"
#include "base/Text.hpp"
#include "model/Errors.hpp"

#include <cerrno>

namespace tessarin {

namespace {

constexpr std::size_t longestDirectory = 4096; // bytes of UTF-8

void require(bool condition) {
  if (!condition)
    throw serviceErrors::outputFailed();
}

// A link with a slash behind it would be looked through.
std::string withoutSlashesAtTheEnd(const std::string& path) {
  return path.substr(0, path.find_last_not_of('/') + 1); // npos + 1 is 0
}

} // namespace

std::string CapturePreparationRequest::validatedDirectory(FileSystem& files) const {
  require(schemaVersion == 1);
  require(isUuid(sessionID));
  require(directory.size() <= longestDirectory);
  require(isAbsolutePath(directory));
  require(!hasParentComponent(directory));
  require(lastPathComponent(directory) == sessionID);

  std::string path = withoutSlashesAtTheEnd(directory);
  const std::optional<FileInfo> info = files.info(path);
  if (!info)
    throw FileFailure(FileOperation::info, ENOENT);
  require(info->kind == FileKind::directory);
  require(files.list(path, 0).has_value());
  return path;
}

} // namespace tessarin
