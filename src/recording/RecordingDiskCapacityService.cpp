#include "recording/RecordingDiskCapacityService.hpp"

#include "base/FileSystem.hpp"
#include "model/Errors.hpp"

#include <limits>
#include <utility>

namespace tessarin {

namespace {

// An absolute path's directory; the root's is the root.
std::string parentOf(const std::string& path) {
  const std::size_t end = path.find_last_not_of('/');
  const std::size_t slash = end == std::string::npos ? 0 : path.rfind('/', end);
  return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

} // namespace

RecordingDiskCapacityService::RecordingDiskCapacityService(FileSystem& files,
                                                           std::optional<std::string> cachesDirectory,
                                                           std::string temporaryDirectory)
    : files_(files),
      directory_(cachesDirectory ? *std::move(cachesDirectory) : std::move(temporaryDirectory)) {}

std::uint64_t RecordingDiskCapacityService::availableBytes() const {
  constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  try {
    std::string existing = directory_;
    while (existing != "/" && !files_.info(existing))
      existing = parentOf(existing);
    const std::uint64_t available = files_.availableBytes(existing);
    // A volume on which more than its share is in use counts below zero.
    return available > largest ? 0 : available;
  } catch (const FileFailure&) {
    throw serviceErrors::outputFailed();
  }
}

} // namespace tessarin
