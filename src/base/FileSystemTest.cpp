#include "base/FileSystem.hpp"

#include "support/TemporaryDirectory.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace tessarin {
namespace {

using namespace std::string_literals;
using testing::IsEmpty;
using testing::Optional;
using testing::UnorderedElementsAre;

std::span<const std::byte> bytesOf(std::string_view text) {
  return std::as_bytes(std::span(text));
}

std::string readText(const OpenFile& file, std::uint64_t offset, std::size_t count) {
  std::string text(count, '?');
  text.resize(file.read(offset, std::as_writable_bytes(std::span(text))));
  return text;
}

class MachineFiles : public testing::Test {
 protected:
  // The error number of the failure, or -1 when nothing failed.
  template<class Call> static int errorOf(FileOperation operation, Call call) {
    try {
      call();
    } catch (const FileFailure& failure) {
      EXPECT_EQ(failure.operation(), operation);
      return failure.errorNumber();
    }
    return -1;
  }

  int openError(const std::string& path, OpenMode mode) {
    return errorOf(FileOperation::open, [&] { files.open(path, mode); });
  }

  static constexpr OpenMode everyMode[] = {OpenMode::read, OpenMode::readWrite, OpenMode::createExclusive,
                                           OpenMode::createTruncated};

  TemporaryDirectory directory;
  FileSystem& files = machineFileSystem();
};

TEST_F(MachineFiles, OpensAnExistingFileToRead) {
  const auto file = files.open(directory.write("a", "hello"), OpenMode::read);
  EXPECT_EQ(readText(*file, 0, 5), "hello");
  EXPECT_EQ(readText(*file, 1, 3), "ell");
  EXPECT_EQ(errorOf(FileOperation::write, [&] { file->write(0, bytesOf("x")); }), EBADF);
  EXPECT_EQ(openError(directory / "b", OpenMode::read), ENOENT);
  EXPECT_EQ(openError(directory / "b", OpenMode::readWrite), ENOENT);
}

TEST_F(MachineFiles, TellsWhoseAFileIs) {
  const std::string path = directory.write("a", "hello");
  EXPECT_TRUE(files.info(path)->isOwn);
  EXPECT_TRUE(files.open(path, OpenMode::read)->info().isOwn);
  // Only the superuser may give a file away; anybody else is not the owner of what is the superuser's.
  std::string foreign = "/etc/passwd";
  if (::geteuid() == 0) {
    ASSERT_EQ(::chown(path.c_str(), 65534, static_cast<gid_t>(-1)), 0);
    foreign = path;
  }
  EXPECT_FALSE(files.info(foreign)->isOwn);
  EXPECT_FALSE(files.open(foreign, OpenMode::read)->info().isOwn);
}

TEST_F(MachineFiles, ReadsUpToTheEndAndNotBeyond) {
  const auto file = files.open(directory.write("a", "hello"), OpenMode::read);
  EXPECT_EQ(readText(*file, 3, 10), "lo");
  EXPECT_EQ(readText(*file, 5, 10), "");
  EXPECT_EQ(readText(*file, 6, 10), "");
  EXPECT_EQ(readText(*file, 0, 0), "");
  for (const std::uint64_t offset :
       {std::uint64_t{1} << 62, (std::uint64_t{1} << 63) - 1, std::uint64_t{1} << 63, ~std::uint64_t{0}})
    EXPECT_EQ(readText(*file, offset, 10), "");
}

TEST_F(MachineFiles, WritesWhereItIsTold) {
  const auto file = files.open(directory.write("a", "hello"), OpenMode::readWrite);
  file->write(1, bytesOf("EL"));
  file->write(7, bytesOf("!"));
  file->write(3, {});
  file->sync();
  EXPECT_EQ(directory.read("a"), "hELlo\0\0!"s);
  EXPECT_EQ(file->info().sizeBytes, 8);
  file->truncate(2);
  EXPECT_EQ(directory.read("a"), "hE");
  file->truncate(3);
  EXPECT_EQ(directory.read("a"), "hE\0"s);
  EXPECT_EQ(errorOf(FileOperation::write, [&] { file->write(std::uint64_t{1} << 63, bytesOf("x")); }), EFBIG);
  EXPECT_EQ(errorOf(FileOperation::truncate, [&] { file->truncate(std::uint64_t{1} << 63); }), EFBIG);
}

TEST_F(MachineFiles, CreatesExclusively) {
  const auto file = files.open(directory / "a", OpenMode::createExclusive, 0600);
  file->write(0, bytesOf("new"));
  EXPECT_EQ(readText(*file, 0, 9), "new");
  EXPECT_EQ(file->info().permissions, 0600U);
  EXPECT_EQ(openError(directory / "a", OpenMode::createExclusive), EEXIST);
  EXPECT_EQ(directory.read("a"), "new");
  EXPECT_EQ(openError(directory / "no/a", OpenMode::createExclusive), ENOENT);
}

TEST_F(MachineFiles, CreatesOrEmpties) {
  files.open(directory / "a", OpenMode::createTruncated)->write(0, bytesOf("one"));
  EXPECT_EQ(directory.read("a"), "one");
  files.open(directory / "a", OpenMode::createTruncated);
  EXPECT_EQ(directory.read("a"), "");
}

TEST_F(MachineFiles, NeverFollowsASymbolicLink) {
  const std::string target = directory.write("target", "secret");
  ASSERT_EQ(::symlink(target.c_str(), (directory / "link").c_str()), 0);
  ASSERT_EQ(::symlink((directory / "missing").c_str(), (directory / "dangling").c_str()), 0);
  for (const OpenMode mode : everyMode) {
    const int expected = mode == OpenMode::createExclusive ? EEXIST : EINVAL;
    EXPECT_EQ(openError(directory / "link", mode), expected);
    EXPECT_EQ(openError(directory / "dangling", mode), expected);
  }
  EXPECT_EQ(directory.read("target"), "secret");
  EXPECT_FALSE(files.info(directory / "missing"));
}

TEST_F(MachineFiles, OpensNothingButRegularFilesAndNeverBlocks) {
  ASSERT_EQ(::mkfifo((directory / "fifo").c_str(), 0600), 0);
  ASSERT_EQ(::mkdir((directory / "folder").c_str(), 0700), 0);
  const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  const std::string socketPath = directory / "socket";
  ASSERT_LT(socketPath.size(), sizeof address.sun_path);
  socketPath.copy(address.sun_path, socketPath.size());
  ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  for (const OpenMode mode : {OpenMode::read, OpenMode::readWrite, OpenMode::createTruncated})
    for (const std::string& path :
         {directory / "fifo", directory / "folder", directory / "socket", "/dev/null"s})
      EXPECT_EQ(openError(path, mode), EINVAL) << path;
  ::close(socket);
}

TEST_F(MachineFiles, WhoeverWaitsAtAFifoIsNotWoken) {
  const std::string path = directory / "fifo";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_NE(reader, -1);
  for (const OpenMode mode : everyMode)
    EXPECT_NE(openError(path, mode), 0);
  pollfd entry{reader, POLLIN, 0};
  EXPECT_EQ(::poll(&entry, 1, 0), 0) << "a writer that came and went would be seen here";
  ::close(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  EXPECT_EQ(::poll(&entry, 1, 0), 1);
  ::close(reader);
}

TEST_F(MachineFiles, APathWithANulInsideIsRefused) {
  directory.write("a", "");
  const std::string path = directory / "a\0.png"s;
  EXPECT_EQ(openError(path, OpenMode::read), EINVAL);
  EXPECT_EQ(openError(path, OpenMode::createTruncated), EINVAL);
  EXPECT_EQ(errorOf(FileOperation::info, [&] { files.info(path); }), EINVAL);
  EXPECT_EQ(errorOf(FileOperation::remove, [&] { files.remove(path); }), EINVAL);
  EXPECT_EQ(errorOf(FileOperation::rename, [&] { files.rename(directory / "a", path); }), EINVAL);
  EXPECT_EQ(errorOf(FileOperation::rename, [&] { files.renameExclusive(path, directory / "b"); }), EINVAL);
  EXPECT_EQ(errorOf(FileOperation::makeDirectory, [&] { files.makeDirectory(path); }), EINVAL);
  EXPECT_EQ(errorOf(FileOperation::list, [&] { files.list(path, 1); }), EINVAL);
  EXPECT_EQ(errorOf(FileOperation::sync, [&] { files.syncDirectory(path); }), EINVAL);
  EXPECT_EQ(errorOf(FileOperation::space, [&] { files.availableBytes(path); }), EINVAL);
}

TEST_F(MachineFiles, TellsWhatAPathIs) {
  const std::string path = directory.write("a", "hello");
  ::chmod(path.c_str(), 0640);
  ASSERT_EQ(::symlink("a", (directory / "link").c_str()), 0);
  ASSERT_EQ(::mkfifo((directory / "fifo").c_str(), 0600), 0);
  const std::optional<FileInfo> info = files.info(path);
  ASSERT_TRUE(info);
  EXPECT_EQ(info->kind, FileKind::regular);
  EXPECT_EQ(info->sizeBytes, 5);
  EXPECT_EQ(info->permissions, 0640U);
  EXPECT_GT(info->modifiedNanoseconds, 1'500'000'000'000'000'000);
  EXPECT_EQ(files.open(path, OpenMode::read)->info().inode, info->inode);
  EXPECT_EQ(files.open(path, OpenMode::read)->info().device, info->device);
  EXPECT_EQ(files.info(directory.path())->kind, FileKind::directory);
  EXPECT_EQ(files.info(directory / "link")->kind, FileKind::symbolicLink);
  EXPECT_EQ(files.info(directory / "fifo")->kind, FileKind::other);
  EXPECT_FALSE(files.info(directory / "b"));
  EXPECT_FALSE(files.info(directory / "a/b"));
  EXPECT_EQ(errorOf(FileOperation::info, [&] { files.info(directory / std::string(256, 'x')); }),
            ENAMETOOLONG);
}

TEST_F(MachineFiles, RenamesOverAnExistingFile) {
  directory.write("a", "new");
  directory.write("b", "old");
  files.rename(directory / "a", directory / "b");
  EXPECT_EQ(directory.read("b"), "new");
  EXPECT_FALSE(files.info(directory / "a"));
  EXPECT_EQ(errorOf(FileOperation::rename, [&] { files.rename(directory / "a", directory / "b"); }), ENOENT);
}

TEST_F(MachineFiles, RenamesExclusivelyOnlyToAFreeName) {
  directory.write("a", "new");
  directory.write("b", "old");
  EXPECT_EQ(errorOf(FileOperation::rename, [&] { files.renameExclusive(directory / "a", directory / "b"); }),
            EEXIST);
  EXPECT_EQ(directory.read("a"), "new");
  EXPECT_EQ(directory.read("b"), "old");
  ASSERT_EQ(::symlink("nowhere", (directory / "dangling").c_str()), 0);
  EXPECT_EQ(
      errorOf(FileOperation::rename, [&] { files.renameExclusive(directory / "a", directory / "dangling"); }),
      EEXIST);
  files.renameExclusive(directory / "a", directory / "c");
  EXPECT_EQ(directory.read("c"), "new");
  EXPECT_FALSE(files.info(directory / "a"));
}

TEST_F(MachineFiles, RemovesFilesAndLinksButNoDirectories) {
  directory.write("a", "kept");
  ASSERT_EQ(::symlink("a", (directory / "link").c_str()), 0);
  files.remove(directory / "link");
  EXPECT_EQ(directory.read("a"), "kept");
  files.remove(directory / "a");
  EXPECT_FALSE(files.info(directory / "a"));
  EXPECT_EQ(errorOf(FileOperation::remove, [&] { files.remove(directory / "a"); }), ENOENT);
  EXPECT_EQ(errorOf(FileOperation::remove, [&] { files.remove(directory.path()); }), EISDIR);
}

TEST_F(MachineFiles, MakesDirectoriesWithTheirAncestors) {
  files.makeDirectory(directory / "a/b//c/");
  EXPECT_EQ(files.info(directory / "a/b/c")->kind, FileKind::directory);
  files.makeDirectory(directory / "a/b/c");
  ASSERT_EQ(::symlink("a", (directory / "link").c_str()), 0);
  files.makeDirectory(directory / "link");
  files.makeDirectory(directory / "link/d");
  EXPECT_EQ(files.info(directory / "a/d")->kind, FileKind::directory);
  files.makeDirectory("/");
  directory.write("file", "");
  EXPECT_EQ(errorOf(FileOperation::makeDirectory, [&] { files.makeDirectory(directory / "file"); }), ENOTDIR);
  EXPECT_EQ(errorOf(FileOperation::makeDirectory, [&] { files.makeDirectory(directory / "file/x"); }),
            ENOTDIR);
  EXPECT_EQ(errorOf(FileOperation::makeDirectory, [&] { files.makeDirectory(""); }), ENOENT);
}

TEST_F(MachineFiles, ListsUpToTheLimit) {
  EXPECT_THAT(files.list(directory.path(), 0), Optional(IsEmpty()));
  directory.write("a", "");
  directory.write(".hidden", "");
  ASSERT_EQ(::mkdir((directory / "folder").c_str(), 0700), 0);
  EXPECT_THAT(files.list(directory.path(), 3), Optional(UnorderedElementsAre("a", ".hidden", "folder")));
  EXPECT_THAT(files.list(directory.path(), 4), Optional(UnorderedElementsAre("a", ".hidden", "folder")));
  EXPECT_EQ(files.list(directory.path(), 2), std::nullopt);
  EXPECT_EQ(files.list(directory.path(), 0), std::nullopt);
  EXPECT_EQ(errorOf(FileOperation::list, [&] { files.list(directory / "none", 9); }), ENOENT);
  EXPECT_EQ(errorOf(FileOperation::list, [&] { files.list(directory / "a", 9); }), ENOTDIR);
  ASSERT_EQ(::symlink("folder", (directory / "link").c_str()), 0);
  EXPECT_EQ(errorOf(FileOperation::list, [&] { files.list(directory / "link", 9); }), ENOTDIR);
}

TEST_F(MachineFiles, CopiesARangeIntoAnotherFile) {
  const auto source = files.open(directory.write("a", "0123456789"), OpenMode::read);
  const auto target = files.open(directory / "b", OpenMode::createExclusive);
  target->copyFrom(*source, 2, 0, 5);
  EXPECT_EQ(directory.read("b"), "23456");
  target->copyFrom(*source, 0, 3, 2);
  EXPECT_EQ(directory.read("b"), "23401");
  target->copyFrom(*source, 10, 0, 0);
  EXPECT_EQ(errorOf(FileOperation::copy, [&] { target->copyFrom(*source, 8, 0, 3); }), 0);
  EXPECT_EQ(errorOf(FileOperation::copy, [&] { target->copyFrom(*source, std::uint64_t{1} << 63, 0, 1); }),
            EFBIG);
  EXPECT_EQ(errorOf(FileOperation::copy, [&] { target->copyFrom(*source, 0, ~std::uint64_t{0}, 1); }), EFBIG);
}

TEST_F(MachineFiles, CopiesMoreThanOneBufferFromAForeignFile) {
  // A file that is no descriptor of this process: the copy goes through memory.
  class Pattern final : public OpenFile {
   public:
    FileInfo info() const override { return {}; }
    std::size_t read(std::uint64_t offset, std::span<std::byte> into) const override {
      for (std::size_t i = 0; i < into.size(); ++i)
        into[i] = static_cast<std::byte>((offset + i) % 251);
      return into.size();
    }
    void write(std::uint64_t, std::span<const std::byte>) override { FAIL(); }
    void truncate(std::uint64_t) override { FAIL(); }
    void sync() override { FAIL(); }
    void copyFrom(const OpenFile&, std::uint64_t, std::uint64_t, std::uint64_t) override { FAIL(); }
    bool cloneFrom(const OpenFile&) override { return false; }
  };
  const Pattern source;
  const auto target = files.open(directory / "b", OpenMode::createExclusive);
  constexpr std::size_t length = 256 * 1024 * 2 + 77;
  target->copyFrom(source, 5, 1, length);
  const std::string copied = directory.read("b");
  ASSERT_EQ(copied.size(), length + 1);
  for (std::size_t i = 0; i < length; i += 4099)
    EXPECT_EQ(static_cast<unsigned char>(copied[i + 1]), (i + 5) % 251);
  EXPECT_FALSE(target->cloneFrom(source));
}

TEST_F(MachineFiles, CopiesAcrossVolumes) {
  ASSERT_TRUE(files.info("/dev/shm"));
  const auto source = files.open(directory.write("a", "0123456789"), OpenMode::read);
  const std::string path = "/dev/shm/tessarin-test-" + std::to_string(::getpid());
  const auto target = files.open(path, OpenMode::createExclusive);
  files.remove(path);
  target->copyFrom(*source, 1, 0, 9);
  EXPECT_EQ(readText(*target, 0, 99), "123456789");
  EXPECT_FALSE(target->cloneFrom(*source));
}

TEST_F(MachineFiles, ACloneIsWholeOrRefused) {
  const auto source = files.open(directory.write("a", "0123456789"), OpenMode::read);
  const auto target = files.open(directory / "b", OpenMode::createExclusive);
  const bool cloned = target->cloneFrom(*source);
  EXPECT_EQ(directory.read("b"), cloned ? "0123456789" : "");
}

TEST_F(MachineFiles, SyncsDirectoriesAndTellsTheSpaceLeft) {
  files.syncDirectory(directory.path());
  EXPECT_EQ(errorOf(FileOperation::sync, [&] { files.syncDirectory(directory / "none"); }), ENOENT);
  EXPECT_GT(files.availableBytes(directory.path()), 0U);
  EXPECT_EQ(errorOf(FileOperation::space, [&] { files.availableBytes(directory / "none"); }), ENOENT);
}

} // namespace
} // namespace tessarin
