#include "DesktopFixture.hpp"

#include <unistd.h>

namespace tessarin {
namespace {

class DesktopTest : public DesktopFixture {};

TEST_F(DesktopTest, StatusIsGrantedOnADisplay) {
  const ProgramResult result = run({"status"});
  EXPECT_EQ(result.output, "{\"data\":{\"permission\":\"granted\"},\"ok\":true,\"schemaVersion\":1}\n");
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.diagnostics, "");
}

TEST_F(DesktopTest, ListTellsTheDisplayAndItsWindows) {
  const auto client = desktop.client({"--at", "30,40", "--size", "200x100", "--title", "  a/b \xC3\xA4 "});
  const ProgramResult result = run({"list"});
  const Reply list(result);
  EXPECT_EQ(list.data().member("permission")->string(), "granted");
  ASSERT_EQ(list.data().member("displays")->arraySize(), 1U);
  const json::Value display = list.data().member("displays")->at(0);
  EXPECT_EQ(display.member("pixelSize")->member("width")->number(), 800);
  EXPECT_EQ(display.member("framePoints")->member("height")->number(), 600);
  EXPECT_EQ(display.member("scaleFactor")->number(), 1);
  EXPECT_TRUE(display.member("isPrimary")->boolean());

  const auto window = windowOf(list, client->windowID());
  ASSERT_TRUE(window);
  EXPECT_EQ(window->member("title")->string(), "a/b \xC3\xA4");
  EXPECT_EQ(window->member("ownerPid")->number(), client->pid());
  EXPECT_EQ(window->member("displayId")->string(), display.member("id")->string());
  EXPECT_EQ(window->member("framePoints")->member("x")->number(), 30);
  EXPECT_EQ(window->member("framePoints")->member("width")->number(), 200);
  EXPECT_TRUE(window->member("isOnScreen")->boolean());
  EXPECT_EQ(window->member("zIndex")->number(), 0);

  EXPECT_NE(result.output.find(R"("title":"a/b )"), std::string::npos) << "slashes stay as they are";
  EXPECT_EQ(result.output.find(": "), std::string::npos) << "no blanks between tokens";
  EXPECT_EQ(result.output.find("null"), std::string::npos) << "absent values are left out";
  EXPECT_EQ(result.diagnostics, "");
}

TEST_F(DesktopTest, ATitleThatIsNotUtf8DoesNotBreakTheReply) {
  const auto client = desktop.client({"--size", "200x100", "--title-bytes", "61ff62"});
  const Reply list(run({"list"}));
  const auto window = windowOf(list, client->windowID());
  ASSERT_TRUE(window);
  EXPECT_EQ(window->member("title")->string(), "a\xEF\xBF\xBD"
                                               "b");
}

TEST_F(DesktopTest, TheParentsWindowsAreLeftOutWhenAsked) {
  const OwnWindow own(desktop.display(), 10, 10, 100, 100, 0x00FF00);
  const auto client = desktop.client({"--at", "300,300", "--size", "100x100"});
  const Reply all(run({"list"}));
  const auto window = windowOf(all, own.id());
  ASSERT_TRUE(window);
  EXPECT_EQ(window->member("ownerPid")->number(), ::getpid());
  EXPECT_TRUE(windowOf(all, client->windowID()));

  const Reply others(run({"list", "--exclude-parent-application"}));
  EXPECT_FALSE(windowOf(others, own.id()));
  EXPECT_TRUE(windowOf(others, client->windowID()));
}

// Of a server that has gone another one may take the number at once, so this one was never there.
TEST_F(DesktopTest, WithoutItsServerTheDesktopIsOutOfReach) {
  const auto run = [](const std::vector<std::string>& arguments) {
    return runProgram(arguments, {.display = ":59999"});
  };
  EXPECT_EQ(run({"status"}).output,
            "{\"data\":{\"permission\":\"notDetermined\"},\"ok\":true,\"schemaVersion\":1}\n");
  const ProgramResult result = run({"list"});
  EXPECT_EQ(result.output, failureReply("permissionDenied",
                                        "Screen Recording permission is required to capture the display."));
  EXPECT_EQ(result.exitStatus, 1);
}

} // namespace
} // namespace tessarin
