// Volumes that know fewer ways of renaming, such as those of networks and virtual machines.

#include "base/FileSystem.hpp"

#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace tessarin {
namespace {

// Has system calls of this process fail from now on, as on a volume that does not know them.
struct FailingCall {
  unsigned int number;
  unsigned int error;
};
bool refuse(const std::vector<FailingCall>& calls) {
  std::vector<sock_filter> program{BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  for (const FailingCall& call : calls) {
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call.number, 0, 1));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | call.error));
  }
  program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

TEST(PlainVolume, RenamesExclusivelyOnlyToAFreeName) {
  const TemporaryDirectory directory;
  FileSystem& files = machineFileSystem();
  const auto errorOfRename = [&](const char* from, const char* to) {
    try {
      files.renameExclusive(directory / from, directory / to);
    } catch (const FileFailure& failure) {
      return failure.operation() == FileOperation::rename ? failure.errorNumber() : -1;
    }
    return 0;
  };
  ASSERT_EQ(::symlink("nowhere", (directory / "dangling").c_str()), 0);
  std::vector<FailingCall> links{{SYS_linkat, EPERM}};
#ifdef SYS_link
  links.push_back({SYS_link, EPERM});
#endif
  for (const unsigned int linkError :
       {0U, static_cast<unsigned int>(EPERM), static_cast<unsigned int>(ENOSYS),
        static_cast<unsigned int>(EOPNOTSUPP)}) {
    SCOPED_TRACE(linkError);
    for (const char* const name : {"a", "c"})
      ::unlink((directory / name).c_str());
    directory.write("a", "new");
    directory.write("b", "old");
    std::vector<FailingCall> calls{{SYS_renameat2, EINVAL}};
    for (FailingCall link : links) {
      link.error = linkError;
      if (linkError != 0)
        calls.push_back(link);
    }
    // In a process of its own, since nobody gets a call back.
    const pid_t child = ::fork();
    if (child == 0) {
      const bool isPlain = refuse(calls) &&
                           ::renameat2(AT_FDCWD, "/a", AT_FDCWD, "/b", RENAME_NOREPLACE) == -1 &&
                           errno == EINVAL;
      const bool isGood = isPlain && errorOfRename("a", "b") == EEXIST &&
                          errorOfRename("a", "dangling") == EEXIST &&
                          errorOfRename("missing", "d") == ENOENT && errorOfRename("a", "none/a") == ENOENT &&
                          errorOfRename("a", "c") == 0;
      ::_exit(isGood ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(directory.read("b"), "old");
    EXPECT_EQ(directory.read("c"), "new");
    EXPECT_FALSE(files.info(directory / "a"));
    EXPECT_EQ(files.info(directory / "dangling")->kind, FileKind::symbolicLink);
  }
}

} // namespace
} // namespace tessarin
