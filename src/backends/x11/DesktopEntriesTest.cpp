#include "backends/x11/DesktopEntries.hpp"

#include "support/TemporaryDirectory.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <string>

namespace tessarin::x11 {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

std::string entry(const std::string& name, const std::string& more = "") {
  return "[Desktop Entry]\nType=Application\nName=" + name + "\n" + more;
}

TEST(DesktopEntries, TellNameAndWindowClassOfAnApplication) {
  const auto parsed =
      parseDesktopEntry("# comment\n\n[Desktop Entry]\r\nType = Application\r\nName=Some Editor\r\n"
                        "Name[de]=Ein Editor\r\nStartupWMClass=some-editor\r\n"
                        "[Desktop Action new]\nName=New Window\nStartupWMClass=other\n");
  ASSERT_TRUE(parsed);
  EXPECT_EQ(parsed->name, "Some Editor");
  EXPECT_EQ(parsed->startupWindowClass, "some-editor");
}

TEST(DesktopEntries, AreNoneWithoutTypeNameOrGroup) {
  for (const auto* text :
       {"", "Name=A\nType=Application\n", "[Desktop Entry]\nType=Link\nName=A\n", "[Desktop Entry]\nName=A\n",
        "[Desktop Entry]\nType=Application\n", "[Desktop Entry]\nType=Application\nName=\n",
        "[Other]\nType=Application\nName=A\n", "[Desktop Entry]\nType=Application\nName=A\nHidden=true\n"}) {
    EXPECT_FALSE(parseDesktopEntry(text)) << text;
  }
}

TEST(DesktopEntries, HaveTheirNamesRepaired) {
  EXPECT_EQ(parseDesktopEntry(entry("A\xFFZ"))->name, "A\uFFFDZ");
}

TEST(DesktopEntries, LieInTheDirectoriesOfTheEnvironment) {
  EXPECT_THAT(applicationDirectories(nullptr, nullptr, "/home/a"),
              ElementsAre("/home/a/.local/share/applications", "/usr/local/share/applications",
                          "/usr/share/applications"));
  EXPECT_THAT(applicationDirectories("/x", "/y:relative::/z", "/home/a"),
              ElementsAre("/x/applications", "/y/applications", "/z/applications"));
  EXPECT_THAT(applicationDirectories("", "", ""),
              ElementsAre("/usr/local/share/applications", "/usr/share/applications"));
}

class ApplicationNames : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const auto* name : {"first", "second"}) {
      std::filesystem::create_directory(directory_ / name);
    }
  }
  std::vector<std::string> directories() const { return {directory_ / "first", directory_ / "second"}; }

  TemporaryDirectory directory_;
};

TEST_F(ApplicationNames, ComeFromTheFileNamedAfterTheClass) {
  directory_.write("second/Editor.desktop", entry("By Class"));
  directory_.write("second/viewer.desktop", entry("By Lower Class"));
  directory_.write("second/org.player.desktop", entry("By Instance"));
  EXPECT_THAT(applicationNames({{"x", "Editor"}, {"x", "Viewer"}, {"org.player", "Y"}}, directories()),
              UnorderedElementsAre(Pair(WindowClass{"x", "Editor"}, "By Class"),
                                   Pair(WindowClass{"x", "Viewer"}, "By Lower Class"),
                                   Pair(WindowClass{"org.player", "Y"}, "By Instance")));
}

TEST_F(ApplicationNames, ComeFromTheMoreImportantDirectory) {
  directory_.write("first/editor.desktop", entry("Mine"));
  directory_.write("second/editor.desktop", entry("Everybody's"));
  EXPECT_THAT(applicationNames({{"editor", "Editor"}}, directories()),
              ElementsAre(Pair(WindowClass{"editor", "Editor"}, "Mine")));
}

TEST_F(ApplicationNames, ComeFromTheClassThatAnEntryDeclares) {
  directory_.write("first/unrelated.desktop", entry("Unrelated", "StartupWMClass=unrelated\n"));
  directory_.write("second/vendor-tool.desktop", entry("Tool", "StartupWMClass=tOOL\n"));
  EXPECT_THAT(applicationNames({{"t", "Tool"}, {"none", "None"}}, directories()),
              ElementsAre(Pair(WindowClass{"t", "Tool"}, "Tool")));
}

TEST_F(ApplicationNames, AreNoneForClassesThatWouldLeaveTheDirectory) {
  directory_.write("secret.desktop", entry("Secret"));
  directory_.write("first/.desktop", entry("Nameless"));
  EXPECT_THAT(applicationNames({{"../secret", "../secret"}, {"", ""}}, directories()), IsEmpty());
}

TEST_F(ApplicationNames, PassOverWhatIsNoReadableFile) {
  const auto path = directory_ / "first/pipe.desktop";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  std::filesystem::create_directory(directory_ / "first/folder.desktop");
  std::filesystem::create_symlink("nowhere", directory_ / "first/broken.desktop");
  directory_.write("second/broken.desktop", entry("Whole"));
  EXPECT_THAT(applicationNames({{"pipe", "folder"}, {"", "broken"}},
                               {directory_ / "absent", directories()[0], directories()[1]}),
              ElementsAre(Pair(WindowClass{"", "broken"}, "Whole")));
}

} // namespace
} // namespace tessarin::x11
