#include "project/VideoEditRequestFile.hpp"

#include "base/Failure.hpp"
#include "base/SafeFile.hpp"
#include "base/Text.hpp"
#include "model/MediaErrors.hpp"
#include "project/EditPaths.hpp"

#include <algorithm>
#include <cerrno>
#include <span>
#include <string_view>

namespace tessarin::VideoEditRequestFile {

namespace {

constexpr std::string_view namePrefix = ".tessarin-edit-request-";
constexpr std::string_view nameSuffix = ".json";
constexpr std::size_t mostBytes = 4 * 1024 * 1024;
constexpr std::size_t chunkBytes = 64 * 1024;

void require(bool condition) {
  if (!condition)
    fail(VideoEditExportError::invalidProject);
}

bool nameIsValid(std::string_view name) {
  if (!name.starts_with(namePrefix) || !name.ends_with(nameSuffix) ||
      name.size() < namePrefix.size() + nameSuffix.size())
    return false;
  name.remove_prefix(namePrefix.size());
  name.remove_suffix(nameSuffix.size());
  return isUuid(name);
}

// The directory of the file. Without slashes at the end, behind which a link would be followed.
std::string directoryPath(const std::string& path) {
  std::string directory = directoryOf(path);
  directory.resize(std::max<std::size_t>(1, directory.find_last_not_of('/') + 1));
  return directory;
}

void requireRealDirectory(FileSystem& files, const std::string& path) {
  const std::optional<FileInfo> info = files.info(path);
  if (!info)
    throw FileFailure(FileOperation::info, ENOENT);
  require(info->kind == FileKind::directory);
}

// Everything up to the end, which must come where the file's size says.
std::string contents(const OpenFile& file, std::size_t size) {
  std::string bytes;
  bytes.reserve(size);
  while (true) {
    const std::size_t filled = bytes.size();
    bytes.resize(filled + std::min(chunkBytes, mostBytes + 1 - filled));
    const std::size_t count = file.read(filled, std::as_writable_bytes(std::span(bytes)).subspan(filled));
    bytes.resize(filled + count);
    if (count == 0)
      break;
    require(bytes.size() <= mostBytes);
  }
  require(bytes.size() == size);
  return bytes;
}

std::string ownFile(FileSystem& files, const std::string& path) {
  try {
    const std::unique_ptr<OpenFile> file = files.open(path, OpenMode::read);
    const FileInfo info = file->info();
    require(info.kind == FileKind::regular && info.isOwn);
    require(info.sizeBytes >= 1 && info.sizeBytes <= static_cast<std::int64_t>(mostBytes));
    return contents(*file, static_cast<std::size_t>(info.sizeBytes));
  } catch (const FileFailure&) {
    fail(VideoEditExportError::invalidProject);
  }
}

} // namespace

VideoEditExportRequestDTO read(FileSystem& files, const std::string& path) {
  require(isPlainAbsolutePath(path));
  require(nameAbove(path, 1) == editExportsDirectoryName && nameIsValid(lastPathComponent(path)));
  requireRealDirectory(files, directoryPath(path));
  auto request = json::decode<VideoEditExportRequestDTO>(std::string_view(ownFile(files, path)));
  require(request.sessionID == nameAbove(path, 2));
  require(haveSameParent(request.outputPath, path));
  (void)request.validated();
  return request;
}

} // namespace tessarin::VideoEditRequestFile
