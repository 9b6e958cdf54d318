#pragma once

#include "base/FileSystem.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

// Whole-file work on the file layer. Stateless, any thread; failures are FileFailure.
namespace tessarin {

// The directory that holds the file of this path, for syncing its entry: what stands before the last slash;
// "." where there is none.
std::string directoryOf(const std::string& path);

// The size of a regular file (no link); nothing otherwise.
std::optional<std::int64_t> regularFileSize(FileSystem& files, const std::string& path);

// True for a directory that is itself no symbolic link.
bool isRealDirectory(FileSystem& files, const std::string& path);

bool exists(FileSystem& files, const std::string& path);

// The whole of a regular file of at most `limit` bytes; a longer one fails with EFBIG. The file is held
// open once, so a change of the path meanwhile does not mix two files.
std::string readWholeFile(FileSystem& files, const std::string& path, std::size_t limit);

// Writes to a hidden temporary name in the target's directory, makes the bytes durable, reads them back,
// and moves the file into place as a whole. On failure the temporary file is gone and the target is as it
// was. After a crash of the machine the target is one of the two whole files; the directory entry is made
// durable where the volume can do it.
void writeFileAtomically(FileSystem& files, const std::string& path, std::string_view bytes,
                         std::uint32_t permissions = 0644);

// A hidden name beside the target that no other call yields: ".name.XXXXXXXXXXXXXXXX.tmp" with random
// hexadecimal digits and at most 200 bytes of the name.
std::string hiddenTemporaryName(const std::string& path);

// Removes what processes that were killed have left of the files named, which all lie in the directory:
// regular files under hidden temporary names of theirs. Failures are dropped, since nothing takes such a file
// for a finished one. Nobody may be writing any of the files meanwhile.
void removeStaleTemporaries(FileSystem& files, const std::string& directory,
                            std::span<const std::string> paths) noexcept;

// Removes a file, and drops a failure: for clean-up on paths that report another failure already.
void removeQuietly(FileSystem& files, const std::string& path) noexcept;

// Makes the entries of a directory durable where the volume can do it; a failure is dropped, for directories
// in which everything is in place already.
void syncDirectoryQuietly(FileSystem& files, const std::string& path) noexcept;

// A file that is removed on destruction unless it was kept.
class TemporaryFile {
 public:
  TemporaryFile(FileSystem& files, std::string path) : files_(files), path_(std::move(path)) {}
  ~TemporaryFile() {
    if (!kept_)
      removeQuietly(files_, path_);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  const std::string& path() const { return path_; }
  void keep() { kept_ = true; }

 private:
  FileSystem& files_;
  std::string path_;
  bool kept_ = false;
};

} // namespace tessarin
