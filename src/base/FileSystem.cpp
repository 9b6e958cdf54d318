#include "base/FileSystem.hpp"

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <limits>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <utility>

namespace tessarin {

namespace {

constexpr std::uint64_t largestOffset = std::numeric_limits<std::int64_t>::max();

[[noreturn]] void failWith(FileOperation operation, int errorNumber = errno) {
  throw FileFailure(operation, errorNumber);
}

template<class Call> auto retrying(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR)
    result = call();
  return result;
}

// A path with a NUL inside would reach the system as another, shorter one.
const char* systemPath(const std::string& path, FileOperation operation) {
  if (path.find('\0') != std::string::npos)
    failWith(operation, EINVAL);
  return path.c_str();
}

class Descriptor {
 public:
  explicit Descriptor(int value) : value_(value) {}
  ~Descriptor() {
    if (value_ >= 0)
      ::close(value_);
  }
  Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
  Descriptor& operator=(Descriptor&&) = delete;

  int get() const { return value_; }
  int release() { return std::exchange(value_, -1); }

 private:
  int value_;
};

FileKind kindOf(mode_t mode) {
  if (S_ISREG(mode))
    return FileKind::regular;
  if (S_ISDIR(mode))
    return FileKind::directory;
  return S_ISLNK(mode) ? FileKind::symbolicLink : FileKind::other;
}

FileInfo infoOf(const struct stat& status) {
  FileInfo info;
  info.kind = kindOf(status.st_mode);
  info.sizeBytes = status.st_size;
  info.permissions = status.st_mode & 07777;
  info.device = status.st_dev;
  info.inode = status.st_ino;
  info.modifiedNanoseconds = std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec;
  info.isOwn = status.st_uid == ::geteuid();
  return info;
}

// Whether a call that the kernel or the volume does not know is to be replaced by plainer ones.
bool isUnsupported(int errorNumber) {
  return errorNumber == ENOSYS || errorNumber == EOPNOTSUPP || errorNumber == EINVAL ||
         errorNumber == EXDEV || errorNumber == ENOTTY;
}

class MachineFile final : public OpenFile {
 public:
  explicit MachineFile(Descriptor descriptor) : descriptor_(std::move(descriptor)) {}

  FileInfo info() const override {
    struct stat status {};
    if (::fstat(descriptor_.get(), &status) == -1)
      failWith(FileOperation::info);
    return infoOf(status);
  }

  std::size_t read(std::uint64_t offset, std::span<std::byte> into) const override {
    if (offset > largestOffset || into.size() > largestOffset - offset)
      return 0; // no file reaches this far
    std::size_t done = 0;
    while (done < into.size()) {
      const ssize_t count = retrying([&] {
        return ::pread(descriptor_.get(), into.data() + done, into.size() - done,
                       static_cast<off_t>(offset + done));
      });
      if (count == -1)
        failWith(FileOperation::read);
      if (count == 0)
        break;
      done += static_cast<std::size_t>(count);
    }
    return done;
  }

  void write(std::uint64_t offset, std::span<const std::byte> bytes) override {
    requireOffset(FileOperation::write, offset, bytes.size());
    while (!bytes.empty()) {
      const ssize_t count = retrying([&] {
        return ::pwrite(descriptor_.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset));
      });
      if (count <= 0)
        failWith(FileOperation::write, count == 0 ? ENOSPC : errno);
      offset += static_cast<std::uint64_t>(count);
      bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
  }

  void truncate(std::uint64_t size) override {
    requireOffset(FileOperation::truncate, size, 0);
    if (retrying([&] { return ::ftruncate(descriptor_.get(), static_cast<off_t>(size)); }) == -1)
      failWith(FileOperation::truncate);
  }

  void sync() override {
    if (retrying([&] { return ::fdatasync(descriptor_.get()); }) == -1)
      failWith(FileOperation::sync);
  }

  void copyFrom(const OpenFile& source, std::uint64_t sourceOffset, std::uint64_t offset,
                std::uint64_t length) override {
    requireOffset(FileOperation::copy, sourceOffset, length);
    requireOffset(FileOperation::copy, offset, length);
    std::uint64_t done = 0;
    if (const auto* machine = dynamic_cast<const MachineFile*>(&source))
      done = copyInKernel(*machine, sourceOffset, offset, length);
    if (done < length)
      copyThroughMemory(source, sourceOffset + done, offset + done, length - done);
  }

  bool cloneFrom(const OpenFile& source) override {
    const auto* machine = dynamic_cast<const MachineFile*>(&source);
    if (machine == nullptr)
      return false;
    if (retrying([&] { return ::ioctl(descriptor_.get(), FICLONE, machine->descriptor_.get()); }) != -1)
      return true;
    if (!isUnsupported(errno))
      failWith(FileOperation::clone);
    return false;
  }

 private:
  static void requireOffset(FileOperation operation, std::uint64_t offset, std::uint64_t length) {
    if (offset > largestOffset || length > largestOffset - offset)
      failWith(operation, EFBIG);
  }

  // The number of bytes that the kernel has copied; fewer where it cannot, or at the source's end.
  std::uint64_t copyInKernel(const MachineFile& source, std::uint64_t sourceOffset, std::uint64_t offset,
                             std::uint64_t length) {
    auto from = static_cast<off_t>(sourceOffset);
    auto to = static_cast<off_t>(offset);
    std::uint64_t done = 0;
    while (done < length) {
      const auto step = static_cast<std::size_t>(std::min<std::uint64_t>(length - done, 1U << 30));
      const ssize_t count = retrying([&] {
        return ::copy_file_range(source.descriptor_.get(), &from, descriptor_.get(), &to, step, 0);
      });
      if (count == -1 && !isUnsupported(errno))
        failWith(FileOperation::copy);
      if (count <= 0)
        break;
      done += static_cast<std::uint64_t>(count);
    }
    return done;
  }

  void copyThroughMemory(const OpenFile& source, std::uint64_t sourceOffset, std::uint64_t offset,
                         std::uint64_t length) {
    std::vector<std::byte> buffer(static_cast<std::size_t>(std::min<std::uint64_t>(length, 256 * 1024)));
    while (length > 0) {
      const std::span<std::byte> piece =
          std::span(buffer).first(static_cast<std::size_t>(std::min<std::uint64_t>(length, buffer.size())));
      if (source.read(sourceOffset, piece) != piece.size())
        failWith(FileOperation::copy, 0);
      write(offset, piece);
      sourceOffset += piece.size();
      offset += piece.size();
      length -= piece.size();
    }
  }

  Descriptor descriptor_;
};

int openFlags(OpenMode mode) {
  switch (mode) {
  case OpenMode::read:
    return O_RDONLY;
  case OpenMode::readWrite:
    return O_RDWR;
  case OpenMode::createExclusive:
    return O_RDWR | O_CREAT | O_EXCL;
  case OpenMode::createTruncated:
    return O_RDWR | O_CREAT | O_TRUNC;
  }
  return O_RDONLY;
}

// Opening something else than a file may have an effect of its own: it wakes whoever waits at the other end
// of a FIFO, and rewinds a tape. So that is looked for before, and again once it is open.
void refuseWhatIsNoFile(const char* name) {
  struct stat status {};
  if (::lstat(name, &status) == 0 && kindOf(status.st_mode) != FileKind::regular)
    failWith(FileOperation::open, EINVAL);
}

bool isWithoutSecondNames(int errorNumber) {
  return errorNumber == EPERM || errorNumber == ENOSYS || errorNumber == EOPNOTSUPP;
}

// For volumes that know neither way of doing both in one, such as folders that a virtual machine shares with
// its host: somebody who makes the target right between the two calls loses it. A placeholder would not, but
// a kill would leave it behind as an empty file.
void renameToFreeName(const char* source, const char* target) {
  struct stat status {};
  if (::lstat(target, &status) == 0)
    failWith(FileOperation::rename, EEXIST);
  if (errno != ENOENT || ::rename(source, target) == -1)
    failWith(FileOperation::rename);
}

class MachineFileSystem final : public FileSystem {
 public:
  std::unique_ptr<OpenFile> open(const std::string& path, OpenMode mode, std::uint32_t permissions) override {
    const char* name = systemPath(path, FileOperation::open);
    if (mode != OpenMode::createExclusive)
      refuseWhatIsNoFile(name);
    const int flags = openFlags(mode) | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
    Descriptor descriptor(retrying([&] { return ::open(name, flags, permissions); }));
    if (descriptor.get() == -1) {
      // What these say of the last component is that it is a link, a directory or a socket.
      const bool isNoFile = errno == ELOOP || errno == EISDIR || errno == ENXIO || errno == ENODEV;
      failWith(FileOperation::open, isNoFile ? EINVAL : errno);
    }
    auto file = std::make_unique<MachineFile>(std::move(descriptor));
    if (file->info().kind != FileKind::regular)
      failWith(FileOperation::open, EINVAL);
    return file;
  }

  std::optional<FileInfo> info(const std::string& path) override {
    struct stat status {};
    if (::lstat(systemPath(path, FileOperation::info), &status) == -1) {
      if (errno == ENOENT || errno == ENOTDIR)
        return std::nullopt;
      failWith(FileOperation::info);
    }
    return infoOf(status);
  }

  void rename(const std::string& from, const std::string& to) override {
    if (::rename(systemPath(from, FileOperation::rename), systemPath(to, FileOperation::rename)) == -1)
      failWith(FileOperation::rename);
  }

  void renameExclusive(const std::string& from, const std::string& to) override {
    const char* source = systemPath(from, FileOperation::rename);
    const char* target = systemPath(to, FileOperation::rename);
    if (::renameat2(AT_FDCWD, source, AT_FDCWD, target, RENAME_NOREPLACE) != -1)
      return;
    if (errno != ENOSYS && errno != EINVAL)
      failWith(FileOperation::rename);
    // A volume without the exclusive form: a second name never replaces anything either.
    if (::link(source, target) == -1) {
      if (!isWithoutSecondNames(errno))
        failWith(FileOperation::rename);
      renameToFreeName(source, target);
    } else if (::unlink(source) == -1) {
      const int errorNumber = errno;
      ::unlink(target);
      failWith(FileOperation::rename, errorNumber);
    }
  }

  void remove(const std::string& path) override {
    if (::unlink(systemPath(path, FileOperation::remove)) == -1)
      failWith(FileOperation::remove);
  }

  void makeDirectory(const std::string& path) override {
    // Up to the first ancestor that is there, then down again.
    std::vector<std::string> missing{path};
    while (!missing.empty()) {
      const std::string& next = missing.back();
      if (::mkdir(systemPath(next, FileOperation::makeDirectory), 0777) == 0) {
        missing.pop_back();
      } else if (errno == EEXIST) {
        requireDirectory(next);
        missing.pop_back();
      } else {
        const std::size_t end = next.find_last_not_of('/');
        const std::size_t slash = end == std::string::npos ? end : next.rfind('/', end);
        if (errno != ENOENT || slash == std::string::npos || slash == 0)
          failWith(FileOperation::makeDirectory);
        missing.push_back(next.substr(0, slash));
      }
    }
  }

  void syncDirectory(const std::string& path) override {
    const Descriptor directory = openDirectory(path, FileOperation::sync, 0);
    // Some volumes have nothing to do here and say so by EINVAL.
    if (retrying([&] { return ::fsync(directory.get()); }) == -1 && errno != EINVAL)
      failWith(FileOperation::sync);
  }

  std::optional<std::vector<std::string>> list(const std::string& path, std::size_t limit) override {
    Descriptor descriptor = openDirectory(path, FileOperation::list, O_NOFOLLOW);
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(::fdopendir(descriptor.get()), ::closedir);
    if (!directory)
      failWith(FileOperation::list);
    descriptor.release();
    std::vector<std::string> names;
    errno = 0;
    while (const dirent* entry = ::readdir(directory.get())) {
      std::string name = entry->d_name;
      if (name != "." && name != "..") {
        if (names.size() == limit)
          return std::nullopt;
        names.push_back(std::move(name));
      }
      errno = 0;
    }
    if (errno != 0)
      failWith(FileOperation::list);
    return names;
  }

  std::uint64_t availableBytes(const std::string& path) override {
    struct statvfs status {};
    const char* name = systemPath(path, FileOperation::space);
    if (retrying([&] { return ::statvfs(name, &status); }) == -1)
      failWith(FileOperation::space);
    return std::uint64_t{status.f_bavail} * status.f_frsize;
  }

 private:
  static void requireDirectory(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == -1)
      failWith(FileOperation::makeDirectory);
    if (!S_ISDIR(status.st_mode))
      failWith(FileOperation::makeDirectory, ENOTDIR);
  }

  static Descriptor openDirectory(const std::string& path, FileOperation operation, int flags) {
    const char* name = systemPath(path, operation);
    Descriptor directory(retrying([&] { return ::open(name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags); }));
    if (directory.get() == -1)
      failWith(operation);
    return directory;
  }
};

} // namespace

FileSystem& machineFileSystem() {
  static MachineFileSystem files;
  return files;
}

} // namespace tessarin
