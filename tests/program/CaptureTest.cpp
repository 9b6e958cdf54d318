#include "DesktopFixture.hpp"
#include "PngReaders.hpp"

#include "support/TemporaryDirectory.hpp"

#include <filesystem>

namespace tessarin {
namespace {

constexpr std::uint32_t red = 0xFF0000FF; // as RRGGBBAA
constexpr std::uint32_t green = 0x00FF00FF;

class CaptureTest : public DesktopFixture {
 protected:
  struct Wanted {
    std::string kind = "region";
    std::string rect = R"({"x":30,"y":40,"width":20,"height":10})";
    std::string more = ""; // further keys, each with a comma behind it
    std::string file = "shot.png";
    std::optional<std::string> display = std::nullopt; // else the one there is
  };

  std::string request(const Wanted& wanted) const {
    return R"({"kind":")" + wanted.kind + R"(","displayId":")" + wanted.display.value_or(displayID()) +
           R"(",)" + wanted.more + R"("rectPoints":)" + wanted.rect + R"(,"outputPath":")" +
           (directory / wanted.file) + R"("})";
  }
  ProgramResult capture(const Wanted& wanted) const { return run(withRequest("capture", request(wanted))); }

  std::string success(int width, int height, const std::string& file = "shot.png") const {
    return R"({"data":{"heightPixels":)" + std::to_string(height) + R"(,"path":")" + (directory / file) +
           R"(","scaleFactor":1,"widthPixels":)" + std::to_string(width) +
           "},\"ok\":true,\"schemaVersion\":1}\n";
  }
  void expectFailure(const Wanted& wanted, std::string_view code, std::string_view message) {
    const ProgramResult result = capture(wanted);
    EXPECT_EQ(result.output, failureReply(code, message));
    EXPECT_EQ(result.exitStatus, 1) << message;
    EXPECT_TRUE(std::filesystem::is_empty(directory.path())) << message;
  }

  TemporaryDirectory directory;
};

TEST_F(CaptureTest, ARegionHasExactPixelsForEveryReader) {
  const auto client =
      desktop.client({"--at", "40,40", "--size", "200x100", "--colour", "ffff0000", "--style", "override"});
  const ProgramResult result = capture({});
  EXPECT_EQ(result.output, success(20, 10));
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.diagnostics, "");
  const ReadPicture picture = readByAll(directory / "shot.png");
  ASSERT_EQ(picture.pixelCount(), 200U);
  for (std::size_t i = 0; i < 200; ++i)
    EXPECT_EQ(picture.at(i) == red, i % 20 >= 10) << i;
}

TEST_F(CaptureTest, APhotographReadsTheSameForEveryReader) {
  const auto client = desktop.client({"--size", "640x480", "--paint", "photo", "--style", "override"});
  EXPECT_EQ(capture({.kind = "display", .rect = R"({"x":0,"y":0,"width":1,"height":1})"}).output,
            success(800, 600));
  EXPECT_EQ(readByAll(directory / "shot.png").pixelCount(), 800U * 600U);
}

TEST_F(CaptureTest, AWindowIsWholeThoughCoveredAndKeepsItsAlpha) {
  const auto client = desktop.client(
      {"--at", "700,500", "--size", "200x150", "--argb", "--colour", "80ff0000", "--style", "override"});
  const auto cover = desktop.client({"--at", "650,450", "--size", "100x100", "--style", "override"});
  const ProgramResult result = capture({.kind = "window",
                                        .rect = R"({"x":700,"y":500,"width":200,"height":150})",
                                        .more = R"("windowId":")" + client->windowID() + R"(",)"});
  EXPECT_EQ(result.output, success(200, 150));
  const ReadPicture picture = readByAll(directory / "shot.png");
  ASSERT_EQ(picture.pixelCount(), 200U * 150U);
  for (std::size_t i = 0; i < picture.pixelCount(); ++i)
    ASSERT_EQ(picture.at(i), 0xFF000080) << i;
}

TEST_F(CaptureTest, TheParentsWindowIsLeftOutWhenAsked) {
  const auto client =
      desktop.client({"--at", "0,0", "--size", "300x200", "--colour", "ffff0000", "--style", "override"});
  const OwnWindow own(desktop.display(), 35, 40, 10, 10, 0x00FF00);
  EXPECT_EQ(capture({}).exitStatus, 0);
  const ReadPicture with = readByAll(directory / "shot.png");
  EXPECT_EQ(capture({.more = R"("excludeParentApplication":true,)"}).exitStatus, 0);
  const ReadPicture without = readByAll(directory / "shot.png");
  ASSERT_EQ(with.pixelCount(), 200U);
  ASSERT_EQ(without.pixelCount(), 200U);
  for (std::size_t i = 0; i < 200; ++i) {
    EXPECT_EQ(with.at(i), i % 20 >= 5 && i % 20 < 15 ? green : red) << i;
    EXPECT_EQ(without.at(i), red) << i;
  }
}

TEST_F(CaptureTest, AFileOfThatNameIsReplaced) {
  directory.write("shot.png", std::string(1000000, 'x'));
  EXPECT_EQ(capture({}).exitStatus, 0);
  EXPECT_EQ(readByAll(directory / "shot.png").pixelCount(), 200U);
}

TEST_F(CaptureTest, APathMayHoldAnyUtf8) {
  const std::string name = "\xE5\x9B\xBE \xC3\xA4.PNG";
  EXPECT_EQ(capture({.file = name}).output, success(20, 10, name));
  EXPECT_EQ(readByAll(directory / name).pixelCount(), 200U);
}

TEST_F(CaptureTest, ABadRequestFailsAndCreatesNothing) {
  expectFailure({.rect = R"({"x":0,"y":0,"width":0,"height":1})"}, "invalidRequest",
                "Capture geometry must contain finite, positive dimensions.");
  expectFailure({.kind = "display", .rect = R"({"x":0,"y":0,"width":1,"height":-1})"}, "invalidRequest",
                "Capture geometry must contain finite, positive dimensions.");
  expectFailure({.file = "shot.jpg"}, "invalidRequest",
                "The native capture output must be an absolute PNG path.");
  expectFailure({.file = "../shot.png"}, "invalidRequest",
                "The native capture output must be an absolute PNG path.");
  expectFailure({.rect = R"({"x":0,"y":0,"width":801,"height":1})"}, "invalidRequest",
                "The selected region must stay within its display.");
  expectFailure({.kind = "window"}, "invalidRequest", "A window capture requires a window identifier.");
  expectFailure({.kind = "window", .more = R"("windowId":"1",)"}, "windowNotFound",
                "The selected window moved or resized. Select it again.");
  expectFailure({.display = "none"}, "displayNotFound", "The selected display is no longer available.");
  // The second one would be a file of another name to the system.
  for (const char* const file : {"missing/shot.png", R"(shot\u0000.png)"})
    expectFailure({.file = file}, "outputFailed",
                  "The screenshot could not be written to its temporary output.");
}

TEST_F(CaptureTest, AWindowThatMovedIsNotTaken) {
  const auto client = desktop.client({"--at", "100,100", "--size", "50x50", "--style", "override"});
  expectFailure({.kind = "window",
                 .rect = R"({"x":101,"y":100,"width":50,"height":50})",
                 .more = R"("windowId":")" + client->windowID() + R"(",)"},
                "windowNotFound", "The selected window moved or resized. Select it again.");
}

} // namespace
} // namespace tessarin
