#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tessarin {

enum class FileOperation : std::uint8_t {
  open,
  info,
  read,
  write,
  sync,
  truncate,
  copy,
  clone,
  rename,
  remove,
  makeDirectory,
  list,
  space
};

// An operation of the file layer failed; `errorNumber` is the platform's errno (0 for a short file).
class FileFailure : public std::exception {
 public:
  FileFailure(FileOperation operation, int errorNumber) : operation_(operation), errorNumber_(errorNumber) {}
  FileOperation operation() const noexcept { return operation_; }
  int errorNumber() const noexcept { return errorNumber_; }
  const char* what() const noexcept override { return "a file operation failed"; }

 private:
  FileOperation operation_;
  int errorNumber_;
};

enum class FileKind { regular, directory, symbolicLink, other };

struct FileInfo {
  FileKind kind = FileKind::other;
  std::int64_t sizeBytes = 0;
  std::uint32_t permissions = 0;
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t modifiedNanoseconds = 0;
  bool isOwn = false; // of the user as whom this process runs
};

enum class OpenMode {
  read,            // an existing file
  readWrite,       // an existing file
  createExclusive, // a new file, readable and writable; fails with EEXIST otherwise
  createTruncated  // a new file, or an existing one emptied
};

// One open regular file. Closed on destruction. Confined to one thread at a time. All failures are thrown
// as FileFailure; writes are whole or failed.
class OpenFile {
 public:
  virtual ~OpenFile() = default;

  virtual FileInfo info() const = 0;
  // Reads up to the span's size at the offset; fewer bytes only at the end of the file.
  virtual std::size_t read(std::uint64_t offset, std::span<std::byte> into) const = 0;
  virtual void write(std::uint64_t offset, std::span<const std::byte> bytes) = 0;
  virtual void truncate(std::uint64_t size) = 0;
  // Until the data is on the disk.
  virtual void sync() = 0;
  // Copies bytes of another file here without passing through this process where the system can do it; fails
  // with the error number 0 when the source ends before.
  virtual void copyFrom(const OpenFile& source, std::uint64_t sourceOffset, std::uint64_t offset,
                        std::uint64_t length) = 0;
  // Makes this (empty) file a copy-on-write clone of the source; false where the volume cannot.
  virtual bool cloneFrom(const OpenFile& source) = 0;
};

// The file layer behind which every file of the product stands, so that tests can fail, shorten, delay or
// refuse any operation. Every method may be called on any thread, and throws FileFailure; a path with a NUL
// inside fails with EINVAL.
class FileSystem {
 public:
  virtual ~FileSystem() = default;

  // Never follows a symbolic link in the last component, and neither opens nor blocks on a FIFO or device:
  // anything but a regular file fails with EINVAL. New files have the permissions given, less the umask.
  virtual std::unique_ptr<OpenFile> open(const std::string& path, OpenMode mode,
                                         std::uint32_t permissions = 0644) = 0;
  // Of the path itself, links not followed; nothing when it does not exist.
  virtual std::optional<FileInfo> info(const std::string& path) = 0;
  // Replaces the target as a whole.
  virtual void rename(const std::string& from, const std::string& to) = 0;
  // Fails with EEXIST when the target exists.
  virtual void renameExclusive(const std::string& from, const std::string& to) = 0;
  // A file, or a link itself; a directory fails with EISDIR.
  virtual void remove(const std::string& path) = 0;
  // With intermediate directories; an existing directory, or a link to one, is fine.
  virtual void makeDirectory(const std::string& path) = 0;
  // Makes entries of the directory itself durable.
  virtual void syncDirectory(const std::string& path) = 0;
  // Names of the entries without "." and "..", unordered; nothing when there are more than the limit. A
  // symbolic link to a directory fails with ENOTDIR.
  virtual std::optional<std::vector<std::string>> list(const std::string& path, std::size_t limit) = 0;
  // Bytes that an unprivileged process may still write on the volume of the path.
  virtual std::uint64_t availableBytes(const std::string& path) = 0;
};

// The machine's own file system; stateless, lives to the end of the process.
FileSystem& machineFileSystem();

} // namespace tessarin
