#include "support/SmallVolume.hpp"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace tessarin {

namespace {

[[noreturn]] void throwErrno(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

void writeText(const char* path, const std::string& text) {
  std::ofstream file(path);
  file << text << std::flush;
  if (!file)
    throwErrno(path);
}

// Mounts of this thread, and of those that it starts, are its own from now on. Works for anybody where the
// system lets people have name spaces of their own, and for the super-user in any case.
void enterOwnMounts() {
  const uid_t user = ::geteuid();
  const gid_t group = ::getegid();
  if (::unshare(user == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) != 0)
    throwErrno("no name space of our own to mount a volume in");
  if (user != 0) {
    writeText("/proc/self/setgroups", "deny");
    writeText("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    writeText("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
  }
  if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    throwErrno("cannot keep mounts to ourselves");
}

std::string sizeOption(std::uint64_t bytes) {
  return "size=" + std::to_string(bytes);
}

} // namespace

SmallVolume::SmallVolume(std::uint64_t bytes) {
  enterOwnMounts();
  if (::mount("small-volume", path().c_str(), "tmpfs", 0, sizeOption(bytes).c_str()) != 0)
    throwErrno("no volume can be mounted for the test");
}

SmallVolume::~SmallVolume() {
  ::umount2(path().c_str(), MNT_DETACH);
}

void SmallVolume::setFreeBytes(std::uint64_t bytes) const {
  struct statvfs status {};
  if (::statvfs(path().c_str(), &status) != 0)
    throwErrno("statvfs");
  const std::uint64_t used = (status.f_blocks - status.f_bfree) * status.f_frsize;
  if (::mount("small-volume", path().c_str(), "tmpfs", MS_REMOUNT, sizeOption(used + bytes).c_str()) != 0)
    throwErrno("the volume cannot be made smaller");
}

void SmallVolume::fill(const std::string& name, std::uint64_t bytes) const {
  const int file = ::open((path() + "/" + name).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
  if (file < 0)
    throwErrno(name);
  const int error = ::posix_fallocate(file, 0, static_cast<off_t>(bytes));
  ::close(file);
  if (error != 0) {
    errno = error;
    throwErrno(name);
  }
}

} // namespace tessarin
