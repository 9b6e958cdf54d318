#include "trace/InteractionEventFile.hpp"

#include "base/FileSystem.hpp"
#include "model/MediaErrors.hpp"
#include "support/FailureOf.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <limits>

namespace tessarin {
namespace {

using InteractionEventFile::isValid;
using InteractionEventFile::parse;

const std::string cursorLine =
    R"({"coordinateSpace":"captureTopLeft","kind":"cursor","timestampMs":12,"x":0.25,"y":0.5})";
const std::string clickLine =
    R"({"button":"right","coordinateSpace":"captureTopLeft","kind":"click","timestampMs":13,"x":0,"y":1})";
const std::string shortcutLine = R"({"keys":["Command","C"],"kind":"shortcut","timestampMs":14})";

InteractionCursorEvent cursor(double x = 0.25, double y = 0.5, std::int64_t timestampMs = 12) {
  InteractionCursorEvent event;
  event.timestampMs = timestampMs;
  event.x = x;
  event.y = y;
  event.coordinateSpace = InteractionCoordinateSpace::captureTopLeft;
  return event;
}

InteractionClickEvent click(double x = 0, double y = 1) {
  InteractionClickEvent event;
  event.timestampMs = 13;
  event.x = x;
  event.y = y;
  event.button = InteractionMouseButton::right;
  event.coordinateSpace = InteractionCoordinateSpace::captureTopLeft;
  return event;
}

InteractionShortcutEvent shortcut(std::vector<std::string> keys = {"Command", "C"}) {
  InteractionShortcutEvent event;
  event.timestampMs = 14;
  event.keys = std::move(keys);
  return event;
}

// The reason of a refusal, or nothing.
template<class Call> std::optional<VideoEditExportError> refusalOf(Call call) {
  return failureOf<VideoEditExportError>(call);
}

void expectRefused(std::string_view bytes) {
  EXPECT_EQ(refusalOf([&] { (void)parse(bytes); }), VideoEditExportError::invalidProject)
      << bytes.substr(0, 200);
}

// ---- Records

TEST(InteractionEventDTO, WritesEachKindWithItsKeys) {
  EXPECT_EQ(json::encode(InteractionEventDTO{cursor()}), cursorLine);
  EXPECT_EQ(json::encode(InteractionEventDTO{click()}), clickLine);
  EXPECT_EQ(json::encode(InteractionEventDTO{shortcut()}), shortcutLine);
  InteractionCursorEvent rendered = cursor();
  rendered.cursorRendering = InteractionCursorRendering::source;
  EXPECT_EQ(json::encode(InteractionEventDTO{rendered}),
            R"({"coordinateSpace":"captureTopLeft","cursorRendering":"source","kind":"cursor",)"
            R"("timestampMs":12,"x":0.25,"y":0.5})");
}

TEST(InteractionEventDTO, ReadsWhatItWrites) {
  InteractionCursorEvent rendered = cursor(1.0 / 3, 1e-9, 9'007'199'254'740'993);
  rendered.cursorRendering = InteractionCursorRendering::source;
  for (const InteractionEventDTO& event :
       std::vector<InteractionEventDTO>{{cursor()}, {rendered}, {click()}, {shortcut()}})
    EXPECT_EQ(json::decode<InteractionEventDTO>(std::string_view(json::encode(event))), event);
}

TEST(InteractionEventDTO, ReadsOlderEventsAndUnknownKeys) {
  InteractionCursorEvent old = cursor();
  old.coordinateSpace.reset();
  EXPECT_EQ(json::decode<InteractionEventDTO>(
                std::string_view(R"({"kind":"cursor","timestampMs":12,"x":0.25,"y":0.5,"new":{}})")),
            InteractionEventDTO{old});
  EXPECT_EQ(json::decode<InteractionEventDTO>(std::string_view(
                R"({"kind":"cursor","timestampMs":12,"x":0.25,"y":0.5,"coordinateSpace":null,"keys":7})")),
            InteractionEventDTO{old});
}

TEST(InteractionEventDTO, RefusesWhatIsNoEvent) {
  for (const char* const text : {
           R"({"timestampMs":12,"x":0.25,"y":0.5})",
           R"({"kind":"scroll","timestampMs":12,"x":0.25,"y":0.5})",
           R"({"kind":"Cursor","timestampMs":12,"x":0.25,"y":0.5})",
           R"({"kind":null,"timestampMs":12,"x":0.25,"y":0.5})",
           R"({"kind":"cursor","x":0.25,"y":0.5})",
           R"({"kind":"cursor","timestampMs":12,"y":0.5})",
           R"({"kind":"cursor","timestampMs":12,"x":0.5})",
           R"({"kind":"cursor","timestampMs":12.5,"x":0.25,"y":0.5})",
           R"({"kind":"cursor","timestampMs":"12","x":0.25,"y":0.5})",
           R"({"kind":"cursor","timestampMs":9223372036854775808,"x":0.25,"y":0.5})",
           R"({"kind":"cursor","timestampMs":12,"x":"0","y":0.5})",
           R"({"kind":"cursor","timestampMs":12,"x":0.25,"y":null})",
           R"({"kind":"cursor","timestampMs":12,"x":0.25,"y":0.5,"coordinateSpace":"bottomLeft"})",
           R"({"kind":"cursor","timestampMs":12,"x":0.25,"y":0.5,"cursorRendering":"none"})",
           R"({"kind":"click","timestampMs":12,"x":0.25,"y":0.5})",
           R"({"kind":"click","timestampMs":12,"x":0.25,"y":0.5,"button":"middle"})",
           R"({"kind":"click","timestampMs":12,"y":0.5,"button":"left"})",
           R"({"kind":"click","timestampMs":12,"x":0.5,"button":"left"})",
           R"({"kind":"shortcut","timestampMs":12})",
           R"({"kind":"shortcut","timestampMs":12,"keys":"F5"})",
           R"({"kind":"shortcut","timestampMs":12,"keys":[5]})",
           R"(["cursor"])",
           R"("cursor")",
           "",
           "{",
       }) {
    EXPECT_THROW((void)json::decode<InteractionEventDTO>(std::string_view(text)), json::DecodingFailure)
        << text;
    if (*text != 0)
      expectRefused(std::string(text) + "\n");
  }
}

// ---- Validity

TEST(InteractionEventFile, FindsPlacesWithinTheCaptureValid) {
  for (const double inside : {0.0, 0.5, 1.0, std::numeric_limits<double>::denorm_min()}) {
    EXPECT_TRUE(isValid({cursor(inside, inside)}));
    EXPECT_TRUE(isValid({click(inside, inside)}));
  }
  for (const double outside :
       {-0.000001, 1.000001, std::nextafter(1.0, 2.0), -1.0, std::numeric_limits<double>::infinity(),
        -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_FALSE(isValid({cursor(outside, 0.5)}));
    EXPECT_FALSE(isValid({cursor(0.5, outside)}));
    EXPECT_FALSE(isValid({click(outside, 0.5)}));
    EXPECT_FALSE(isValid({click(0.5, outside)}));
  }
}

TEST(InteractionEventFile, FindsTimesFromZeroOnValid) {
  for (const InteractionEventDTO& event :
       std::vector<InteractionEventDTO>{{cursor()}, {click()}, {shortcut()}}) {
    EXPECT_TRUE(isValid(event.at(0)));
    EXPECT_TRUE(isValid(event.at(std::numeric_limits<std::int64_t>::max())));
    EXPECT_FALSE(isValid(event.at(-1)));
  }
}

TEST(InteractionEventFile, FindsOnlyShortcutsValid) {
  EXPECT_TRUE(isValid({shortcut({"Control", "Option", "Shift", "Command", "K"})}));
  EXPECT_TRUE(isValid({shortcut({"F5"})}));
  for (const std::vector<std::string>& keys :
       {std::vector<std::string>{}, {"C"}, {"Shift", "C"}, {"p", "a", "s", "s"}, {"Command", "password"}})
    EXPECT_FALSE(isValid({shortcut(keys)}));
}

// ---- Reading

TEST(InteractionEventFile, ReadsEventsInOrder) {
  EXPECT_EQ(parse(cursorLine + "\n" + clickLine + "\n" + shortcutLine + "\n"),
            (std::vector<InteractionEventDTO>{{cursor()}, {click()}, {shortcut()}}));
}

TEST(InteractionEventFile, IgnoresWhatACrashCutShort) {
  const std::string whole = cursorLine + "\n" + clickLine + "\n";
  const std::vector<InteractionEventDTO> events = {{cursor()}, {click()}};
  for (std::size_t length = 0; length <= shortcutLine.size(); ++length)
    EXPECT_EQ(parse(whole + shortcutLine.substr(0, length)), events) << length;
  EXPECT_EQ(parse(whole + std::string(5000, 'x')), events);
}

TEST(InteractionEventFile, IsEmptyWithoutALineFeed) {
  EXPECT_TRUE(parse("").empty());
  EXPECT_TRUE(parse(cursorLine).empty());
  EXPECT_TRUE(parse(std::string(10000, 'x')).empty());
  EXPECT_TRUE(parse("\n").empty());
}

TEST(InteractionEventFile, LeavesEmptyLinesOut) {
  EXPECT_EQ(parse("\n\n" + cursorLine + "\n\n\n" + clickLine + "\n\n"),
            (std::vector<InteractionEventDTO>{{cursor()}, {click()}}));
  expectRefused(" \n");
}

TEST(InteractionEventFile, RefusesAWholeFileForOneBadLine) {
  expectRefused(cursorLine + "\nnonsense\n" + clickLine + "\n");
  expectRefused(cursorLine + "\n" + clickLine.substr(0, 40) + "\n");
  expectRefused(cursorLine + cursorLine + "\n");
  expectRefused(R"({"keys":["C"],"kind":"shortcut","timestampMs":14})"
                "\n");
  expectRefused(R"({"kind":"cursor","timestampMs":12,"x":1.0001,"y":0.5})"
                "\n");
  expectRefused(R"({"kind":"cursor","timestampMs":12,"x":0.5,"y":-0.0001})"
                "\n");
  expectRefused(R"({"kind":"click","button":"left","timestampMs":12,"x":0.5,"y":2})"
                "\n");
  expectRefused("{\"keys\":[\"Command\",\"\xff\"],\"kind\":\"shortcut\",\"timestampMs\":14}\n");
  expectRefused(std::string("\0\n", 2));
}

TEST(InteractionEventFile, RefusesTimesThatGoBack) {
  const auto line = [](const std::string& time) {
    return R"({"kind":"cursor","timestampMs":)" + time +
           R"(,"x":0.5,"y":0.5})"
           "\n";
  };
  EXPECT_EQ(parse(line("0") + line("0") + line("5") + line("5")).size(), 4U);
  expectRefused(line("5") + line("4"));
  expectRefused(line("-1"));
}

TEST(InteractionEventFile, ReadsLinesOf2048BytesAndNoLonger) {
  const auto line = [](std::size_t size) {
    return cursorLine + std::string(size - cursorLine.size(), ' ') + "\n";
  };
  EXPECT_EQ(parse(line(2048)).size(), 1U);
  expectRefused(line(2049));
}

TEST(InteractionEventFile, Reads400000EventsAndNoMore) {
  const std::string line = R"({"kind":"cursor","timestampMs":0,"x":0,"y":0})"
                           "\n";
  std::string bytes;
  for (int i = 0; i < 400'000; ++i)
    bytes += line;
  EXPECT_EQ(parse(bytes).size(), 400'000U);
  EXPECT_EQ(parse(bytes + "\n" + line.substr(0, 10)).size(), 400'000U);
  expectRefused(bytes + line);
}

class InteractionEventFileLoad : public ::testing::Test {
 protected:
  std::optional<VideoEditExportError> refusal(const std::string& of) {
    return refusalOf([&] { (void)InteractionEventFile::load(files, of); });
  }

  TemporaryDirectory directory;
  FaultyFileSystem files{machineFileSystem()};
  const std::string path = directory / "interaction-events.jsonl";
};

TEST_F(InteractionEventFileLoad, ReadsAFile) {
  directory.write("interaction-events.jsonl", cursorLine + "\n" + clickLine + "\n{\"ki");
  EXPECT_EQ(InteractionEventFile::load(files, path),
            (std::vector<InteractionEventDTO>{{cursor()}, {click()}}));
  directory.write("interaction-events.jsonl", "");
  EXPECT_TRUE(InteractionEventFile::load(files, path).empty());
}

TEST_F(InteractionEventFileLoad, ReadsRegularFilesOnly) {
  EXPECT_EQ(refusal(path), VideoEditExportError::invalidProject);
  const std::string real = directory.write("real.jsonl", cursorLine + "\n");
  EXPECT_EQ(refusal(real), std::nullopt);
  std::filesystem::create_symlink(real, path);
  EXPECT_EQ(refusal(path), VideoEditExportError::invalidProject);
  EXPECT_EQ(refusal(directory.path()), VideoEditExportError::invalidProject);
  ASSERT_EQ(::mkfifo((directory / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(refusal(directory / "pipe"), VideoEditExportError::invalidProject);
}

TEST_F(InteractionEventFileLoad, ReadsFilesOf33554432BytesAndNoLarger) {
  directory.write("interaction-events.jsonl", cursorLine + "\n");
  std::filesystem::resize_file(path, 33'554'432); // the rest is one line without end
  EXPECT_EQ(InteractionEventFile::load(files, path), std::vector<InteractionEventDTO>{{cursor()}});
  std::filesystem::resize_file(path, 33'554'433);
  EXPECT_EQ(refusal(path), VideoEditExportError::invalidProject);
}

TEST_F(InteractionEventFileLoad, RefusesWhatTheDiskDoesNotGive) {
  directory.write("interaction-events.jsonl", cursorLine + "\n");
  for (const FileOperation operation : {FileOperation::open, FileOperation::info, FileOperation::read}) {
    files.failNth(operation, 1, EIO);
    EXPECT_EQ(refusal(path), VideoEditExportError::invalidProject);
    EXPECT_EQ(refusal(path), std::nullopt);
  }
}

TEST_F(InteractionEventFileLoad, RefusesALineThatDoesNotDecode) {
  directory.write("interaction-events.jsonl", cursorLine + "\n{}\n");
  EXPECT_EQ(refusal(path), VideoEditExportError::invalidProject);
}

} // namespace
} // namespace tessarin
