#include "base/SafeFile.hpp"

#include "support/FaultyFileSystem.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace tessarin {
namespace {

using testing::MatchesRegex;
using testing::Optional;
using testing::UnorderedElementsAre;

class SafeFiles : public testing::Test {
 protected:
  template<class Call> static int errorOf(FileOperation operation, Call call) {
    try {
      call();
    } catch (const FileFailure& failure) {
      EXPECT_EQ(failure.operation(), operation);
      return failure.errorNumber();
    }
    return -1;
  }

  TemporaryDirectory directory;
  FaultyFileSystem files{machineFileSystem()};
};

TEST_F(SafeFiles, LieInTheDirectoryBeforeTheLastSlash) {
  EXPECT_EQ(directoryOf("/a/b/c.mp4"), "/a/b");
  EXPECT_EQ(directoryOf("a/c.mp4"), "a");
  EXPECT_EQ(directoryOf("/c.mp4"), "/");
  EXPECT_EQ(directoryOf("c.mp4"), ".");
}

TEST_F(SafeFiles, AnAtomicWriteLeavesTheTargetAlone) {
  const std::string path = directory / "state.json";
  writeFileAtomically(files, path, "first", 0600);
  EXPECT_EQ(directory.read("state.json"), "first");
  EXPECT_EQ(files.info(path)->permissions, 0600U);
  writeFileAtomically(files, path, "second, longer");
  EXPECT_EQ(directory.read("state.json"), "second, longer");
  writeFileAtomically(files, path, "");
  EXPECT_EQ(directory.read("state.json"), "");
  EXPECT_THAT(files.list(directory.path(), 9), Optional(UnorderedElementsAre("state.json")));
}

TEST_F(SafeFiles, AnAtomicWriteIsDurableAndReadBackBeforeItIsMoved) {
  writeFileAtomically(files, directory / "state", "bytes");
  std::vector<FileOperation> order;
  for (const FaultyFileSystem::Event& event : files.log())
    if (order.empty() || order.back() != event.operation)
      order.push_back(event.operation);
  using enum FileOperation;
  EXPECT_EQ(order, (std::vector{open, write, sync, read, rename, sync}));
  EXPECT_EQ(files.log().back().path, directory.path());
}

TEST_F(SafeFiles, AFailureAnywhereLeavesTheTargetAsItWasAndNoTemporaryFile) {
  using enum FileOperation;
  for (const FileOperation operation : {open, write, sync, read, rename})
    for (const int errorNumber : {ENOSPC, EIO}) {
      directory.write("state", "old");
      files.failNth(operation, 1, errorNumber);
      EXPECT_EQ(errorOf(operation, [&] { writeFileAtomically(files, directory / "state", "new"); }),
                errorNumber);
      EXPECT_EQ(directory.read("state"), "old");
      EXPECT_THAT(files.list(directory.path(), 9), Optional(UnorderedElementsAre("state")));
    }
}

TEST_F(SafeFiles, AWriteThatIsTornIsNotMovedIntoPlace) {
  directory.write("state", "old");
  files.inject(
      {.operation = FileOperation::write, .pathPart = ".state.", .errorNumber = ENOSPC, .shortenedTo = 2});
  EXPECT_EQ(errorOf(FileOperation::write, [&] { writeFileAtomically(files, directory / "state", "new"); }),
            ENOSPC);
  EXPECT_EQ(directory.read("state"), "old");
  EXPECT_THAT(files.list(directory.path(), 9), Optional(UnorderedElementsAre("state")));
}

TEST_F(SafeFiles, BytesThatReadBackDifferentlyAreNotMovedIntoPlace) {
  directory.write("state", "old");
  files.inject({.operation = FileOperation::read, .times = FaultyFileSystem::always, .shortenedTo = 0});
  EXPECT_EQ(errorOf(FileOperation::read, [&] { writeFileAtomically(files, directory / "state", "new"); }), 0);
  files.clearFaults();
  // The same length with other contents, as a failing disk would have it.
  files.setObserver([&](const FaultyFileSystem::Event& event) {
    if (event.operation == FileOperation::sync && event.path != directory.path())
      machineFileSystem().open(event.path, OpenMode::readWrite)->write(1, std::as_bytes(std::span("X", 1)));
  });
  EXPECT_EQ(errorOf(FileOperation::read, [&] { writeFileAtomically(files, directory / "state", "new"); }), 0);
  files.setObserver(nullptr);
  EXPECT_EQ(directory.read("state"), "old");
  EXPECT_THAT(files.list(directory.path(), 9), Optional(UnorderedElementsAre("state")));
}

TEST_F(SafeFiles, ADirectoryThatCannotBeSyncedDoesNotUndoTheWrite) {
  files.inject({.operation = FileOperation::sync, .skip = 1, .errorNumber = EIO});
  writeFileAtomically(files, directory / "state", "new");
  EXPECT_EQ(files.count(FileOperation::sync), 2U);
  EXPECT_EQ(directory.read("state"), "new");
}

TEST_F(SafeFiles, AnAtomicWriteReplacesALinkNotWhatItLeadsTo) {
  directory.write("elsewhere", "kept");
  ASSERT_EQ(::symlink("elsewhere", (directory / "state").c_str()), 0);
  writeFileAtomically(files, directory / "state", "new");
  EXPECT_EQ(directory.read("elsewhere"), "kept");
  EXPECT_EQ(regularFileSize(files, directory / "state"), 3);
}

TEST_F(SafeFiles, TheFailureOfCleaningUpDoesNotHideTheFirstOne) {
  files.failAlways(FileOperation::remove, EACCES);
  files.failNth(FileOperation::write, 1, ENOSPC);
  EXPECT_EQ(errorOf(FileOperation::write, [&] { writeFileAtomically(files, directory / "state", "new"); }),
            ENOSPC);
}

TEST_F(SafeFiles, ReadsAWholeFileUpToTheLimit) {
  const std::string path = directory.write("a", "hello");
  EXPECT_EQ(readWholeFile(files, path, 5), "hello");
  EXPECT_EQ(readWholeFile(files, path, 1 << 20), "hello");
  EXPECT_EQ(errorOf(FileOperation::read, [&] { readWholeFile(files, path, 4); }), EFBIG);
  EXPECT_EQ(errorOf(FileOperation::read, [&] { readWholeFile(files, path, 0); }), EFBIG);
  EXPECT_EQ(readWholeFile(files, directory.write("empty", ""), 0), "");
  const std::string large(200'000, 'x');
  EXPECT_EQ(readWholeFile(files, directory.write("large", large), large.size()), large);
  EXPECT_EQ(errorOf(FileOperation::open, [&] { readWholeFile(files, directory / "none", 9); }), ENOENT);
  EXPECT_EQ(errorOf(FileOperation::open, [&] { readWholeFile(files, directory.path(), 9); }), EINVAL);
}

TEST_F(SafeFiles, AFileThatGrowsWhileItIsReadKeepsTheLimit) {
  const std::string path = directory.write("a", "1234");
  bool grown = false;
  files.setObserver([&](const FaultyFileSystem::Event& event) {
    if (event.operation == FileOperation::read && !std::exchange(grown, true))
      directory.write("a", "123456789");
  });
  EXPECT_EQ(errorOf(FileOperation::read, [&] { readWholeFile(files, path, 4); }), EFBIG);
}

TEST_F(SafeFiles, APathThatChangesWhileItIsReadDoesNotMixTwoFiles) {
  const std::string path = directory.write("a", std::string(100'000, 'o'));
  directory.write("b", std::string(100'000, 'n'));
  files.setObserver([&](const FaultyFileSystem::Event& event) {
    if (event.operation == FileOperation::read && machineFileSystem().info(directory / "b"))
      machineFileSystem().rename(directory / "b", path);
  });
  EXPECT_EQ(readWholeFile(files, path, 1 << 20), std::string(100'000, 'o'));
}

TEST_F(SafeFiles, TellsFilesDirectoriesAndLinksApart) {
  directory.write("file", "1234567");
  ASSERT_EQ(::mkdir((directory / "folder").c_str(), 0700), 0);
  ASSERT_EQ(::symlink("file", (directory / "file-link").c_str()), 0);
  ASSERT_EQ(::symlink("folder", (directory / "folder-link").c_str()), 0);
  ASSERT_EQ(::symlink("nowhere", (directory / "dangling").c_str()), 0);
  struct Row {
    const char* name;
    std::optional<std::int64_t> size;
    bool isDirectory;
    bool isThere;
  };
  for (const Row& row :
       {Row{"file", 7, false, true}, Row{"folder", std::nullopt, true, true},
        Row{"file-link", std::nullopt, false, true}, Row{"folder-link", std::nullopt, false, true},
        Row{"dangling", std::nullopt, false, true}, Row{"none", std::nullopt, false, false}}) {
    EXPECT_EQ(regularFileSize(files, directory / row.name), row.size) << row.name;
    EXPECT_EQ(isRealDirectory(files, directory / row.name), row.isDirectory) << row.name;
    EXPECT_EQ(exists(files, directory / row.name), row.isThere) << row.name;
  }
}

TEST_F(SafeFiles, TemporaryNamesAreHiddenUniqueAndShortEnough) {
  EXPECT_THAT(hiddenTemporaryName("/a/b.json"), MatchesRegex("/a/\\.b\\.json\\.[0-9a-f]{16}\\.tmp"));
  EXPECT_THAT(hiddenTemporaryName("b"), MatchesRegex("\\.b\\.[0-9a-f]{16}\\.tmp"));
  EXPECT_LE(hiddenTemporaryName("/a/" + std::string(255, 'x')).size(), 3U + 255U);
  std::set<std::string> names;
  for (int i = 0; i < 1000; ++i)
    names.insert(hiddenTemporaryName("/a/b"));
  EXPECT_EQ(names.size(), 1000U);
}

TEST_F(SafeFiles, TheLongestNameCanBeWritten) {
  const std::string name(255, 'x');
  writeFileAtomically(files, directory / name, "bytes");
  EXPECT_EQ(directory.read(name), "bytes");
}

TEST_F(SafeFiles, ATemporaryFileGoesUnlessItIsKept) {
  {
    const TemporaryFile gone(files, directory.write("gone", ""));
    TemporaryFile kept(files, directory.write("kept", ""));
    kept.keep();
  }
  EXPECT_THAT(files.list(directory.path(), 9), Optional(UnorderedElementsAre("kept")));
}

TEST_F(SafeFiles, OfProcessesThatWereKilledAreRemovedWhereTheyBearTheFilesName) {
  const std::string longName = std::string(210, 'n');
  const std::vector<std::string> paths = {directory / "a.mp4", directory / longName};
  const std::vector<std::string> stale = {".a.mp4.0123456789abcdef.tmp", ".a.mp4.fedcba9876543210.tmp",
                                          '.' + longName.substr(0, 200) + ".0123456789abcdef.tmp"};
  const std::vector<std::string> others = {"a.mp4",
                                           ".a.mp4.0123456789abcde.tmp",
                                           ".a.mp4.0123456789abcdef0.tmp",
                                           ".a.mp4.0123456789abcdeg.tmp",
                                           ".a.mp4.0123456789ABCDEF.tmp",
                                           ".a.mp4.0123456789abcdef.tm",
                                           ".b.mp4.0123456789abcdef.tmp",
                                           "a.mp4.0123456789abcdef.tmp"};
  for (const std::string& name : stale)
    directory.write(name, "");
  for (const std::string& name : others)
    directory.write(name, "");
  std::filesystem::create_directory(directory / ".a.mp4.1111111111111111.tmp");
  std::filesystem::create_symlink(directory / "a.mp4", directory / ".a.mp4.2222222222222222.tmp");
  // One that cannot be removed holds up no other.
  files.failNth(FileOperation::remove, 1, EACCES);
  removeStaleTemporaries(files, directory.path(), paths);
  EXPECT_EQ(files.count(FileOperation::remove), stale.size());
  removeStaleTemporaries(files, directory.path(), paths);
  for (const std::string& name : stale)
    EXPECT_FALSE(exists(files, directory / name)) << name;
  for (const std::string& name : others)
    EXPECT_TRUE(exists(files, directory / name)) << name;
  EXPECT_TRUE(exists(files, directory / ".a.mp4.1111111111111111.tmp"));
  EXPECT_TRUE(exists(files, directory / ".a.mp4.2222222222222222.tmp"));
  // What a directory that cannot be read holds stays.
  removeStaleTemporaries(files, directory / "missing", paths);
}

} // namespace
} // namespace tessarin
