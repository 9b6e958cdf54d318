#include "backends/posix/ModuleLoader.hpp"
#include "backends/posix/ModuleMediaFileWriterFactory.hpp"
#include "base/FileSystem.hpp"
#include "support/FailureOf.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>

namespace tessarin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string fakes = TESSARIN_FAKE_MODULE_DIRECTORY;
const std::string modules = TESSARIN_MODULE_DIRECTORY;

struct Loading {
  std::vector<std::string> lines;
  ModuleLoader loader;

  explicit Loading(std::vector<std::string> directories)
      : loader(std::move(directories), [this](const std::string& line) { lines.push_back(line); }) {}

  std::optional<ModuleFailure> failureOf(const std::string& name) {
    return tessarin::failureOf<ModuleFailure>([&] { loader.open(name); });
  }
};

TEST(ModuleLoader, opensAModuleOfThisBuildOnceAndSaysNothing) {
  Loading loading({modules});
  const ModuleHeader& header = loading.loader.open("media");
  EXPECT_STREQ(header.buildId, moduleBuildId());
  EXPECT_EQ(&loading.loader.open("media"), &header);
  EXPECT_THAT(loading.lines, IsEmpty());
}

TEST(ModuleLoader, tellsEveryWayInWhichAModuleMayBeUnusable) {
  const struct {
    const char* name;
    ModuleFailure failure;
    const char* line;
  } cases[] = {
      {"absent", ModuleFailure::missing, "tessarin-native module-unavailable module=absent reason=missing"},
      {"wrong-id", ModuleFailure::mismatched,
       "tessarin-native module-unavailable module=wrong-id reason=mismatched"},
      {"no-symbol", ModuleFailure::broken,
       "tessarin-native module-unavailable module=no-symbol reason=broken"},
      {"no-header", ModuleFailure::broken,
       "tessarin-native module-unavailable module=no-header reason=broken"},
  };
  for (const auto& each : cases) {
    Loading loading({fakes});
    EXPECT_EQ(loading.failureOf(each.name), each.failure) << each.name;
    EXPECT_THAT(loading.lines, ElementsAre(each.line));
  }
}

TEST(ModuleLoader, refusesWhatIsNoSharedObject) {
  const TemporaryDirectory directory;
  directory.write("tessarin-text.so", "this is no program");
  directory.write("tessarin-empty.so", "");
  std::filesystem::create_directory(directory / "tessarin-directory.so");
  Loading loading({directory.path()});
  for (const char* name : {"text", "empty", "directory"})
    EXPECT_EQ(loading.failureOf(name), ModuleFailure::broken) << name;
}

TEST(ModuleLoader, givesTheSameAnswerAgainWithoutASecondLine) {
  const TemporaryDirectory directory;
  Loading loading({directory.path()});
  EXPECT_EQ(loading.failureOf("media"), ModuleFailure::missing);
  std::filesystem::create_symlink(modules + "/tessarin-media.so", directory / "tessarin-media.so");
  EXPECT_EQ(loading.failureOf("media"), ModuleFailure::missing);
  EXPECT_THAT(loading.lines, ElementsAre("tessarin-native module-unavailable module=media reason=missing"));
}

TEST(ModuleLoader, takesTheFirstDirectoryThatHasTheModule) {
  const TemporaryDirectory empty;
  const TemporaryDirectory broken;
  broken.write("tessarin-media.so", "x");
  EXPECT_EQ(Loading({empty.path(), modules}).failureOf("media"), std::nullopt);
  EXPECT_EQ(Loading({broken.path(), modules}).failureOf("media"), ModuleFailure::broken);
}

TEST(ModuleLoader, opensNothingBeforeItIsAsked) {
  Loading loading({fakes});
  EXPECT_THAT(loading.lines, IsEmpty());
}

TEST(ModuleLoader, answersManyThreadsAlike) {
  Loading loading({modules});
  std::atomic<int> opened = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([&] {
      if (loading.loader.open("media").buildId != nullptr)
        ++opened;
    });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(opened, 8);
}

TEST(ModuleLoader, looksBesideTheProgramAndThenWhereItIsInstalled) {
  const std::string program = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  EXPECT_THAT(moduleDirectories(),
              ElementsAre(program + "/modules", program + "/../lib/tessarin-native/modules"));
}

TEST(ModuleMediaFileWriterFactory, isUnavailableWithoutItsModule) {
  Loading loading({fakes});
  ModuleMediaFileWriterFactory factory(loading.loader, machineFileSystem());
  EXPECT_THAT(loading.lines, IsEmpty());
  EXPECT_THROW(factory.makeWriter({}), MediaUnavailable);
  EXPECT_THROW(factory.makeWriter({}), MediaUnavailable);
  EXPECT_THAT(loading.lines, ElementsAre("tessarin-native module-unavailable module=media reason=missing"));
}

TEST(ModuleMediaFileWriterFactory, makesWritersOfItsModule) {
  Loading loading({modules});
  ModuleMediaFileWriterFactory factory(loading.loader, machineFileSystem());
  EXPECT_EQ(factory.makeWriter({})->status(), MediaWriterStatus::unknown);
  EXPECT_EQ(factory.makeWriter({})->status(), MediaWriterStatus::unknown);
}

} // namespace
} // namespace tessarin
