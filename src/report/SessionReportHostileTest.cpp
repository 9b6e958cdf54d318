// A session directory that somebody has made to harm whoever looks into it.

#include "base/Text.hpp"
#include "report/SessionReport.hpp"
#include "support/HostileFiles.hpp"
#include "support/SyntheticMovie.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace tessarin {
namespace {

using namespace tessarin::testing;
using namespace std::string_literals;
using ::testing::HasSubstr;
using ::testing::Not;
using Kind = HostileFiles::Kind;

const std::string session = "6f1c2d3e-4a5b-4c6d-8e7f-0a1b2c3d4e5f";

class SessionReportHostile : public ::testing::Test {
 protected:
  SessionReportHostile() { startAnew(); }

  void startAnew() {
    std::filesystem::remove_all(directory / session);
    std::filesystem::create_directories(path("segments"));
    for (const char* const name : {"segments/segment-0000.mp4", "screen.mp4", "recording.mp4"})
      writeSyntheticMovie(path(name), {videoOf(700)});
  }
  std::string path(const std::string& name) const { return directory / (session + "/" + name); }
  SessionReport report() const { return reportOnSession(machineFileSystem(), directory / session); }

  TemporaryDirectory directory;
  HostileFiles hostile;
};

TEST_F(SessionReportHostile, TellsWhatIsNotWhatItShouldBeAndGoesOn) {
  ASSERT_TRUE(report().isWhole) << report().text;
  for (const std::string name :
       {"native-manifest.json", "segments", "segments/segment-0000.mp4", "screen.mp4", "camera.mp4",
        "interaction-events.jsonl", "camera-layout.json"})
    for (const HostileFiles::File& file : hostile.all()) {
      if (name == "segments" && file.kind == Kind::directory)
        continue;
      SCOPED_TRACE(name + ": " + file.name);
      startAnew();
      std::filesystem::remove_all(path(name));
      file.put(path(name));
      const PathState before = PathState::of(path(name));
      SessionReport found;
      EXPECT_TRUE(endsInTime([&] { found = report(); }));
      EXPECT_FALSE(found.isWhole);
      EXPECT_THAT(found.text, HasSubstr("\n" + name + ": "));
      EXPECT_THAT(found.text, HasSubstr("\nrecording.mp4: ")) << "the files behind it are told of";
      EXPECT_EQ(PathState::of(path(name)), before);
    }
  EXPECT_TRUE(hostile.isOutsideUntouched());
}

TEST_F(SessionReportHostile, ASessionThatIsNoDirectoryIsNotLookedInto) {
  for (const HostileFiles::File& file : hostile.all()) {
    if (file.kind == Kind::directory)
      continue;
    SCOPED_TRACE(file.name);
    std::filesystem::remove_all(directory / session);
    file.put(directory / session);
    for (const char* const end : {"", "/", "//"}) {
      const SessionReport found = reportOnSession(machineFileSystem(), (directory / session) + end);
      EXPECT_FALSE(found.isWhole);
      EXPECT_EQ(found.text, "session " + (directory / session) + "\n  not a directory\n");
    }
  }
}

TEST_F(SessionReportHostile, PathsThatAreNone) {
  const struct {
    const char* what;
    std::string path;
    const char* line;
  } rows[] = {
      {"empty", "", "  not a directory\n"},
      {"all", "/", "  not a directory\n"},
      {"NUL inside", (directory / session) + "\0x"s, "  cannot be read: "},
      {"a long name", directory / std::string(256, 'n'), "  cannot be read: "},
      {"the longest path", "/" + std::string(4095, 'n'), "  cannot be read: "},
      {"below a file", path("screen.mp4/x"), "  not a directory\n"},
  };
  for (const auto& row : rows) {
    const SessionReport found = reportOnSession(machineFileSystem(), row.path);
    EXPECT_FALSE(found.isWhole) << row.what;
    EXPECT_THAT(found.text, HasSubstr(row.line)) << row.what;
  }
}

TEST_F(SessionReportHostile, SaysNothingToATerminal) {
  std::filesystem::create_directory(path("\x1b[2J"));
  directory.write(session + "/a\nscreen.mp4: 5 bytes", "");
  directory.write(session + "/b\x7f\xff\xc2\x9b"
                            "31m\xc2\xa9.tmp",
                  "");
  directory.write(session + "/segments/\x1b]0;title\x07.mp4", "");
  directory.write(session + "/native-manifest.json",
                  R"({"schemaVersion":1,"segments":[],"sessionId":"\u001b[31m\u0000\u009b\n"})");
  const std::string text = report().text;
  EXPECT_TRUE(isValidUtf8(text));
  EXPECT_TRUE(std::none_of(text.begin(), text.end(), [](char character) {
    return (static_cast<unsigned char>(character) < 0x20 && character != '\n') || character == '\x7f';
  })) << text;
  EXPECT_THAT(text, HasSubstr("\n\uFFFD[2J: no part of a session\n"));
  EXPECT_THAT(text, HasSubstr("\na\uFFFDscreen.mp4: 5 bytes: no part of a session\n"));
  EXPECT_THAT(text, HasSubstr("\nb\uFFFD\uFFFD\uFFFD31m\u00A9.tmp: no part of a session; left by"));
  EXPECT_THAT(text, HasSubstr("\nsegments/\uFFFD]0;title\uFFFD.mp4: 0 bytes"));
  EXPECT_THAT(text, HasSubstr(", session \uFFFD[31m\uFFFD\uFFFD\uFFFD, 0 segments\n"));
}

} // namespace
} // namespace tessarin
