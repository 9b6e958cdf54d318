#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tessarin {

class FileSystem;

// Tells how much may still be written where this program keeps what it makes for itself. Keeps no state
// between calls. Any thread.
class RecordingDiskCapacityService {
 public:
  // The user's caches directory, nothing where there is none to be told, and the one for temporary files,
  // both absolute. The file system is not owned.
  RecordingDiskCapacityService(FileSystem& files, std::optional<std::string> cachesDirectory,
                               std::string temporaryDirectory);

  // Bytes on the volume of the caches directory, or of the nearest directory above it that exists. Throws
  // NativeServiceError outputFailed when they cannot be read.
  std::uint64_t availableBytes() const;

 private:
  FileSystem& files_;
  std::string directory_;
};

} // namespace tessarin
