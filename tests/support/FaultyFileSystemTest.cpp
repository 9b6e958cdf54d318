#include "support/FaultyFileSystem.hpp"

#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

class Faulty : public testing::Test {
 protected:
  template<class Call> static int errorOf(Call call) {
    try {
      call();
    } catch (const FileFailure& failure) {
      return failure.errorNumber();
    }
    return -1;
  }

  static std::span<const std::byte> bytesOf(std::string_view text) { return std::as_bytes(std::span(text)); }

  TemporaryDirectory directory;
  FaultyFileSystem files{machineFileSystem()};
};

TEST_F(Faulty, PassesEverythingOnWithoutFaults) {
  files.makeDirectory(directory / "folder");
  const auto file = files.open(directory / "folder/a", OpenMode::createExclusive, 0600);
  file->write(0, bytesOf("hello"));
  file->truncate(4);
  file->sync();
  const auto copy = files.open(directory / "folder/b", OpenMode::createExclusive);
  copy->copyFrom(*file, 1, 0, 3);
  files.rename(directory / "folder/b", directory / "b");
  files.renameExclusive(directory / "folder/a", directory / "a");
  files.syncDirectory(directory.path());
  EXPECT_EQ(directory.read("a"), "hell");
  EXPECT_EQ(directory.read("b"), "ell");
  EXPECT_EQ(files.list(directory / "folder", 9), std::vector<std::string>{});
  files.remove(directory / "b");
  EXPECT_FALSE(files.info(directory / "b"));
  EXPECT_EQ(file->info().permissions, 0600U);
  EXPECT_GT(files.availableBytes(directory.path()), 0U);
}

TEST_F(Faulty, FailsTheNthOperationOfAKindOnly) {
  files.failNth(FileOperation::write, 2, ENOSPC);
  const auto file = files.open(directory / "a", OpenMode::createExclusive);
  file->write(0, bytesOf("1"));
  EXPECT_EQ(errorOf([&] { file->write(1, bytesOf("2")); }), ENOSPC);
  file->write(1, bytesOf("3"));
  EXPECT_EQ(directory.read("a"), "13");
  EXPECT_EQ(files.count(FileOperation::write), 3U);
}

TEST_F(Faulty, FailsForAsLongAsItIsTold) {
  files.failAlways(FileOperation::info, EACCES);
  EXPECT_EQ(errorOf([&] { files.info(directory.path()); }), EACCES);
  EXPECT_EQ(errorOf([&] { files.info(directory.path()); }), EACCES);
  files.clearFaults();
  EXPECT_TRUE(files.info(directory.path()));
}

TEST_F(Faulty, StrikesOnlyThePathsThatItIsTold) {
  files.inject({.operation = FileOperation::open, .pathPart = "/bad", .times = FaultyFileSystem::always});
  EXPECT_EQ(errorOf([&] { files.open(directory / "bad", OpenMode::createExclusive); }), EIO);
  EXPECT_EQ(errorOf([&] { files.open(directory / "good", OpenMode::createExclusive); }), -1);
  EXPECT_FALSE(files.info(directory / "bad"));
}

TEST_F(Faulty, ShortensReadsAndTearsWrites) {
  const auto file = files.open(directory.write("a", "hello"), OpenMode::readWrite);
  files.inject({.operation = FileOperation::read, .shortenedTo = 2});
  char text[5];
  EXPECT_EQ(file->read(0, std::as_writable_bytes(std::span(text))), 2U);
  EXPECT_EQ(file->read(0, std::as_writable_bytes(std::span(text))), 5U);
  files.inject({.operation = FileOperation::write, .errorNumber = ENOSPC, .shortenedTo = 1});
  EXPECT_EQ(errorOf([&] { file->write(0, bytesOf("HELLO")); }), ENOSPC);
  EXPECT_EQ(directory.read("a"), "Hello");
}

TEST_F(Faulty, RefusesClones) {
  const auto source = files.open(directory.write("a", "hello"), OpenMode::read);
  const auto target = files.open(directory / "b", OpenMode::createExclusive);
  files.refuseClones();
  EXPECT_FALSE(target->cloneFrom(*source));
  files.failNth(FileOperation::clone, 1, EIO);
  EXPECT_EQ(errorOf([&] { target->cloneFrom(*source); }), EIO);
  EXPECT_EQ(directory.read("b"), "");
}

TEST_F(Faulty, KeepsALogAndShowsEveryOperationBeforeItHappens) {
  bool wasThere = true;
  files.setObserver([&](const FaultyFileSystem::Event& event) {
    wasThere = machineFileSystem().info(event.path).has_value();
  });
  files.makeDirectory(directory / "new");
  EXPECT_FALSE(wasThere);
  files.rename(directory / "new", directory / "newer");
  EXPECT_TRUE(wasThere);
  ASSERT_EQ(files.log().size(), 2U);
  EXPECT_EQ(files.log()[1].operation, FileOperation::rename);
  EXPECT_EQ(files.log()[1].path, directory / "new");
  EXPECT_EQ(files.log()[1].target, directory / "newer");
  files.clearLog();
  EXPECT_EQ(files.log().size(), 0U);
}

TEST_F(Faulty, SetsTheSpaceThatIsLeft) {
  files.setAvailableBytes(123);
  EXPECT_EQ(files.availableBytes(directory.path()), 123U);
  files.failNth(FileOperation::space, 1, EIO);
  EXPECT_EQ(errorOf([&] { files.availableBytes(directory.path()); }), EIO);
  files.setAvailableBytes(std::nullopt);
  EXPECT_NE(files.availableBytes(directory.path()), 123U);
}

TEST_F(Faulty, DelaysAnOperationThatThenGoesWell) {
  const auto file = files.open(directory / "a", OpenMode::createExclusive);
  int delays = 0;
  files.inject({.operation = FileOperation::write, .skip = 1, .delayedBy = [&] {
                  ++delays;
                  EXPECT_EQ(directory.read("a"), "1") << "not done yet";
                  EXPECT_TRUE(files.info(directory / "a")) << "others go on meanwhile";
                }});
  file->write(0, bytesOf("1"));
  EXPECT_EQ(delays, 0);
  file->write(1, bytesOf("2"));
  file->write(2, bytesOf("3"));
  EXPECT_EQ(delays, 1);
  EXPECT_EQ(directory.read("a"), "123");
}

TEST_F(Faulty, CountsSyncsThatItSparesAndFailsThemAsTold) {
  files.spareSyncs();
  files.failNth(FileOperation::sync, 2, EIO);
  const auto file = files.open(directory / "a", OpenMode::createExclusive);
  file->sync();
  EXPECT_EQ(errorOf([&] { files.syncDirectory(directory.path()); }), EIO);
  files.syncDirectory(directory / "none"); // is not even looked at
  EXPECT_EQ(files.count(FileOperation::sync), 3U);
}

} // namespace
} // namespace tessarin
