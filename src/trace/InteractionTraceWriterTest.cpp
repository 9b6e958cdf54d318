#include "trace/InteractionTraceWriter.hpp"

#include "base/FileSystem.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TemporaryDirectory.hpp"
#include "trace/InteractionEventFile.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace tessarin {
namespace {

constexpr std::size_t maximumBytes = 33'554'432;
constexpr std::size_t maximumEvents = 400'000;

InteractionEventDTO shortcutAt(std::int64_t timestampMs, std::vector<std::string> keys = {"F5"}) {
  InteractionShortcutEvent event;
  event.timestampMs = timestampMs;
  event.keys = std::move(keys);
  return {event};
}

InteractionEventDTO cursorAt(std::int64_t timestampMs, double x, double y) {
  InteractionCursorEvent event;
  event.timestampMs = timestampMs;
  event.x = x;
  event.y = y;
  return {event};
}

// An event whose line has exactly so many bytes, 50 to 79.
InteractionEventDTO eventOfSize(std::size_t size) {
  const auto fraction = [](std::size_t digits) {
    static const std::string some = "0.1234567890123456";
    return std::stod(some.substr(0, 2 + digits));
  };
  const auto sizeOf = [&](std::size_t x, std::size_t y) {
    return json::encode(cursorAt(0, fraction(x), fraction(y))).size() + 1;
  };
  // Shortest digits that end in 0 would vanish, so sizes are tried rather than computed.
  for (std::size_t x = 1; x <= 16; ++x)
    for (std::size_t y = 1; y <= 16; ++y)
      if (sizeOf(x, y) == size)
        return cursorAt(0, fraction(x), fraction(y));
  throw std::logic_error("no event of that size");
}

class InteractionTraceWriterTest : public ::testing::Test {
 protected:
  std::string text() const { return directory.read("trace.jsonl"); }
  std::size_t size() const { return std::filesystem::file_size(path); }

  TemporaryDirectory directory;
  FaultyFileSystem files{machineFileSystem()};
  const std::string path = directory / "trace.jsonl";
};

TEST_F(InteractionTraceWriterTest, MakesAFileForItsOwnerAlone) {
  InteractionTraceWriter writer(files, path);
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  EXPECT_EQ(size(), 0U);
}

TEST_F(InteractionTraceWriterTest, NeverTouchesAFileThatIsThere) {
  directory.write("trace.jsonl", "older");
  EXPECT_THROW(InteractionTraceWriter(files, path), FileFailure);
  EXPECT_EQ(text(), "older");
  std::filesystem::remove(path);
  std::filesystem::create_symlink(directory / "elsewhere", path);
  EXPECT_THROW(InteractionTraceWriter(files, path), FileFailure);
  EXPECT_FALSE(std::filesystem::exists(directory / "elsewhere"));
}

TEST_F(InteractionTraceWriterTest, WritesALineForEachEventAtOnce) {
  InteractionTraceWriter writer(files, path);
  EXPECT_TRUE(writer.append(shortcutAt(5)));
  EXPECT_EQ(text(), R"({"keys":["F5"],"kind":"shortcut","timestampMs":5})"
                    "\n");
  EXPECT_TRUE(writer.append(cursorAt(6, 0.5, 1)));
  EXPECT_EQ(text(), R"({"keys":["F5"],"kind":"shortcut","timestampMs":5})"
                    "\n"
                    R"({"kind":"cursor","timestampMs":6,"x":0.5,"y":1})"
                    "\n");
  writer.close();
  EXPECT_FALSE(writer.hasFailed());
  EXPECT_EQ(files.count(FileOperation::sync), 1U);
}

TEST_F(InteractionTraceWriterTest, NeverGoesBackInTime) {
  InteractionTraceWriter writer(files, path);
  for (const std::int64_t time : {7, 3, -5, 8})
    EXPECT_TRUE(writer.append(shortcutAt(time)));
  std::vector<std::int64_t> times;
  for (const InteractionEventDTO& event : InteractionEventFile::load(files, path))
    times.push_back(event.timestampMs());
  EXPECT_EQ(times, (std::vector<std::int64_t>{7, 7, 7, 8}));
}

TEST_F(InteractionTraceWriterTest, DropsEventsThatAreNotValidAndGoesOn) {
  InteractionTraceWriter writer(files, path);
  EXPECT_FALSE(writer.append(shortcutAt(900, {"A"})));
  EXPECT_FALSE(writer.append(shortcutAt(900, {"Shift", "A"})));
  EXPECT_FALSE(writer.append(cursorAt(900, 1.01, 0)));
  EXPECT_FALSE(writer.append(cursorAt(900, 0, std::nan(""))));
  EXPECT_FALSE(writer.hasFailed());
  EXPECT_TRUE(writer.append(shortcutAt(5)));
  EXPECT_EQ(text(), R"({"keys":["F5"],"kind":"shortcut","timestampMs":5})"
                    "\n");
}

TEST_F(InteractionTraceWriterTest, Writes400000EventsAndNoMore) {
  InteractionTraceWriter writer(machineFileSystem(), path);
  const InteractionEventDTO event = shortcutAt(0);
  for (std::size_t i = 0; i < maximumEvents; ++i)
    ASSERT_TRUE(writer.append(event));
  EXPECT_FALSE(writer.hasFailed());
  const std::size_t full = size();
  EXPECT_FALSE(writer.append(shortcutAt(0, {"A"}))); // not valid, so no bound is hit
  EXPECT_FALSE(writer.hasFailed());
  EXPECT_FALSE(writer.append(event));
  EXPECT_TRUE(writer.hasFailed());
  EXPECT_EQ(size(), full);
  EXPECT_EQ(InteractionEventFile::load(files, path).size(), maximumEvents);
}

TEST_F(InteractionTraceWriterTest, Writes33554432BytesAndNoMore) {
  InteractionCursorEvent longest;
  longest.x = 0.12345678901234566;
  longest.y = 0.12345678901234566;
  longest.coordinateSpace = InteractionCoordinateSpace::captureTopLeft;
  longest.cursorRendering = InteractionCursorRendering::source;
  const std::size_t lineBytes = json::encode(InteractionEventDTO{longest}).size() + 1;
  for (const bool isOver : {false, true}) {
    std::filesystem::remove(path);
    InteractionTraceWriter writer(machineFileSystem(), path);
    std::size_t left = maximumBytes;
    for (; left >= lineBytes + 110; left -= lineBytes)
      ASSERT_TRUE(writer.append({longest}));
    for (std::size_t lines = (left + 74) / 75; lines > 1; --lines) {
      ASSERT_TRUE(writer.append(eventOfSize(left / lines)));
      left -= left / lines;
    }
    EXPECT_EQ(size(), maximumBytes - left);
    EXPECT_EQ(writer.append(eventOfSize(left + (isOver ? 1 : 0))), !isOver);
    EXPECT_EQ(writer.hasFailed(), isOver);
    EXPECT_EQ(size(), isOver ? maximumBytes - left : maximumBytes);
    EXPECT_FALSE(writer.append(eventOfSize(55)));
    EXPECT_TRUE(writer.hasFailed());
    EXPECT_NO_THROW((void)InteractionEventFile::load(files, path));
  }
}

TEST_F(InteractionTraceWriterTest, EndsForGoodWhenTheDiskFails) {
  InteractionTraceWriter writer(files, path);
  EXPECT_TRUE(writer.append(shortcutAt(1)));
  files.inject({.operation = FileOperation::write, .errorNumber = ENOSPC, .shortenedTo = 10});
  EXPECT_FALSE(writer.append(shortcutAt(2)));
  EXPECT_TRUE(writer.hasFailed());
  EXPECT_FALSE(writer.append(shortcutAt(3)));
  writer.close();
  EXPECT_TRUE(writer.hasFailed());
  EXPECT_EQ(text(), R"({"keys":["F5"],"kind":"shortcut","timestampMs":1})"
                    "\n"
                    R"({"keys":[")");
  EXPECT_EQ(InteractionEventFile::load(files, path), std::vector<InteractionEventDTO>{shortcutAt(1)});
}

TEST_F(InteractionTraceWriterTest, FailsWhenTheDiskDoesNotKeepIt) {
  InteractionTraceWriter writer(files, path);
  EXPECT_TRUE(writer.append(shortcutAt(1)));
  files.failNth(FileOperation::sync, 1, EIO);
  writer.close();
  EXPECT_TRUE(writer.hasFailed());
}

TEST_F(InteractionTraceWriterTest, WritesNothingOnceClosed) {
  InteractionTraceWriter writer(files, path);
  writer.close();
  writer.close();
  EXPECT_FALSE(writer.append(shortcutAt(1)));
  EXPECT_FALSE(writer.hasFailed());
  EXPECT_EQ(files.count(FileOperation::sync), 1U);
  EXPECT_EQ(size(), 0U);
}

} // namespace
} // namespace tessarin
