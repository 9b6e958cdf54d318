#include "report/SessionReport.hpp"

#include "support/SyntheticMovie.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace tessarin {
namespace {

using namespace tessarin::testing;
using ::testing::HasSubstr;
using ::testing::Not;

const std::string session = "6f1c2d3e-4a5b-4c6d-8e7f-0a1b2c3d4e5f";

class SessionReportTest : public ::testing::Test {
 protected:
  SessionReportTest() { std::filesystem::create_directories(path("segments")); }

  std::string path(const std::string& name) const { return directory / (session + "/" + name); }
  void write(const std::string& name, const std::string& text) const {
    directory.write(session + "/" + name, text);
  }
  std::uintmax_t movie(const std::string& name, std::size_t milliseconds, bool isFinished = true) const {
    writeSyntheticMovie(path(name), {videoOf(milliseconds), audioOf(milliseconds)}, isFinished);
    return std::filesystem::file_size(path(name));
  }
  void manifest(std::uintmax_t bytes, const std::string& of = session) const {
    write("native-manifest.json", R"({"schemaVersion":1,"segments":[{"durationMs":1000,"index":0,"path":")" +
                                      path("segments/segment-0000.mp4") + R"(","sizeBytes":)" +
                                      std::to_string(bytes) + R"(}],"sessionId":")" + of + "\"}\n");
  }
  void layout(const std::string& of) const {
    write("camera-layout.json",
          R"({"camera":{"recordedPositions":[{"rect":{"height":1,"width":1,"x":0,"y":0},"sourceTimeMs":40}],)"
          R"("rect":{"height":1,"width":1,"x":0,"y":0},"shape":"rounded","visible":true},"schemaVersion":1,)"
          R"("sessionId":")" +
              of + "\"}");
  }
  SessionReport report() const { return reportOnSession(machineFileSystem(), directory / session); }

  TemporaryDirectory directory;
};

TEST_F(SessionReportTest, TellsAllOfAWholeSession) {
  manifest(movie("segments/segment-0000.mp4", 1000));
  movie("recording.mp4", 1000);
  write("interaction-events.jsonl", R"({"kind":"cursor","timestampMs":0,"x":0.5,"y":0.5})"
                                    "\n"
                                    R"({"keys":["Control","C"],"kind":"shortcut","timestampMs":700})"
                                    "\n");
  layout(session);
  const SessionReport found = report();
  EXPECT_TRUE(found.isWhole) << found.text;
  EXPECT_THAT(found.text, HasSubstr("session " + (directory / session) + "\n"));
  EXPECT_THAT(found.text, HasSubstr(", schema 1, session " + session + ", 1 segments\n"));
  EXPECT_THAT(found.text, HasSubstr("segments/segment-0000.mp4: "));
  EXPECT_THAT(found.text, HasSubstr(", in the manifest, 1000 ms\n  video avc1 "));
  EXPECT_THAT(found.text, HasSubstr("  audio mp4a 48000 Hz, 2 channels, from 0 ms, 1000 ms, 47 samples\n"));
  EXPECT_THAT(found.text, HasSubstr("recording.mp4: "));
  EXPECT_THAT(found.text, HasSubstr(", 2 events up to 700 ms\n"));
  EXPECT_THAT(found.text, HasSubstr(", 1 positions of the camera up to 40 ms\n"));
}

TEST_F(SessionReportTest, TellsHowFarATornSegmentIsWhole) {
  const std::uintmax_t size = movie("segments/segment-0000.mp4", 3000, false);
  EXPECT_THAT(report().text, HasSubstr(", not in the manifest, 2987 ms, never finished: whole to its end\n"));
  write("segments/segment-0000.mp4", directory.read(session + "/segments/segment-0000.mp4") + "torn");
  const SessionReport found = report();
  EXPECT_FALSE(found.isWhole);
  EXPECT_THAT(found.text, HasSubstr("no manifest: no segment was finished\n"));
  EXPECT_THAT(found.text, HasSubstr("never finished: whole up to byte " + std::to_string(size) + "\n"));
}

TEST_F(SessionReportTest, ComplainsOfWhatIsMissingOrNotWhatItShouldBe) {
  struct Row {
    const char* name;
    std::function<void()> spoil;
    const char* line;
  };
  const std::uintmax_t size = movie("segments/segment-0000.mp4", 1000);
  manifest(size);
  ASSERT_TRUE(report().isWhole) << report().text;
  const std::vector<Row> rows = {
      {"shorter", [&] { manifest(size + 1); }, "  segment 0 is missing or not as long as it was\n"},
      {"stranger", [&] { manifest(size, "0b8c6a52-3c5a-4f1b-9e43-1f2d3c4b5a69"); },
       "  is of another session\n"},
      {"no manifest", [&] { write("native-manifest.json", "{"); }, "cannot be read as what it should be\n"},
      {"no movie", [&] { write("screen.mp4", "text"); }, "screen.mp4: 4 bytes, "},
      {"torn trace", [&] { write("interaction-events.jsonl", "{\"kind\""); },
       ", 0 events\n  its last line was cut short\n"},
      {"bad trace", [&] { write("interaction-events.jsonl", "{}\n"); },
       "cannot be read as what it should be\n"},
      {"stranger's layout", [&] { layout("0b8c6a52-3c5a-4f1b-9e43-1f2d3c4b5a69"); },
       "positions of the camera up to 40 ms\n  is of another session\n"},
      {"folder", [&] { std::filesystem::create_directory(path("camera-layout.json")); },
       "camera-layout.json: not a regular file\n"}};
  for (const Row& row : rows) {
    row.spoil();
    const SessionReport found = report();
    EXPECT_FALSE(found.isWhole) << row.name;
    EXPECT_THAT(found.text, HasSubstr(row.line)) << row.name;
    std::filesystem::remove_all(path(""));
    std::filesystem::create_directories(path("segments"));
    movie("segments/segment-0000.mp4", 1000);
    manifest(size);
  }
}

TEST_F(SessionReportTest, TellsOfFilesThatAreNoPartOfASession) {
  manifest(movie("segments/segment-0000.mp4", 1000));
  write(".screen.mp4.0123456789abcdef.tmp", "half");
  write("notes.txt", "mine");
  const SessionReport found = report();
  EXPECT_TRUE(found.isWhole);
  EXPECT_THAT(found.text, HasSubstr(".tmp: no part of a session; left by something that was cut short\n"));
  EXPECT_THAT(found.text, HasSubstr("notes.txt: no part of a session\n"));
}

TEST_F(SessionReportTest, TellsOfMoreFilesThanItLooksAt) {
  manifest(movie("segments/segment-0000.mp4", 1000));
  for (int i = 1; i <= 10'000; ++i)
    write("segments/" + std::to_string(i), "");
  const SessionReport found = report();
  EXPECT_FALSE(found.isWhole);
  EXPECT_THAT(found.text, HasSubstr("\ntoo many files to be looked at: " + path("segments") + "\n"));
}

TEST_F(SessionReportTest, ADirectoryThatIsNoneIsToldOf) {
  write("file", "");
  for (const std::string& name : {path("file"), path("nothing")}) {
    const SessionReport found = reportOnSession(machineFileSystem(), name);
    EXPECT_FALSE(found.isWhole);
    EXPECT_THAT(found.text, HasSubstr("  not a directory\n"));
  }
}

} // namespace
} // namespace tessarin
