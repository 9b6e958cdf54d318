#include "editing/ExportProgress.hpp"

#include "support/ManualClock.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <vector>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class ExportProgressTest : public testing::Test {
 protected:
  ManualClock clock;
  std::vector<std::string> lines;
  std::string screen;
  std::optional<ExportProgress> progress;

  void begin(bool onTerminal) {
    ProgressOutput output{[this](const std::string& line) { lines.push_back(line); }, nullptr};
    if (onTerminal)
      output.terminal = [this](std::string_view text) { screen += text; };
    progress.emplace(clock, output);
  }
};

TEST_F(ExportProgressTest, saysNothingOfWorkUnderASecond) {
  begin(false);
  for (int step = 0; step <= 9; ++step) {
    progress->report(step * 100);
    clock.advance(100ms);
  }
  clock.advance(-1ns);
  progress->report(1000);
  EXPECT_THAT(lines, IsEmpty());
}

TEST_F(ExportProgressTest, tellsHowMuchIsDoneAndSinceWhen) {
  begin(false);
  clock.advance(1s);
  progress->report(125);
  clock.advance(2345ms);
  progress->report(1000);
  EXPECT_THAT(lines, ElementsAre("tessarin-native export-progress permille=125 elapsedMs=1000",
                                 "tessarin-native export-progress permille=1000 elapsedMs=3345"));
}

TEST_F(ExportProgressTest, speaksAtMostFourTimesASecond) {
  begin(false);
  for (int step = 0; step < 1000; ++step) {
    clock.advance(10ms);
    progress->report(step);
  }
  // Ten seconds, of which the first is quiet.
  EXPECT_EQ(lines.size(), 37U);
}

TEST_F(ExportProgressTest, doesNotRepeatItself) {
  begin(false);
  for (int step = 0; step < 10; ++step) {
    clock.advance(1s);
    progress->report(500);
  }
  EXPECT_EQ(lines.size(), 1U);
}

TEST_F(ExportProgressTest, keepsWithinItsScale) {
  begin(false);
  clock.advance(1s);
  progress->report(-5);
  clock.advance(1s);
  progress->report(1005);
  EXPECT_THAT(lines, ElementsAre("tessarin-native export-progress permille=0 elapsedMs=1000",
                                 "tessarin-native export-progress permille=1000 elapsedMs=2000"));
}

TEST_F(ExportProgressTest, drawsABarOnATerminal) {
  begin(true);
  clock.advance(1s);
  progress->report(335);
  clock.advance(65s);
  progress->report(1000);
  progress.reset();
  EXPECT_THAT(lines, IsEmpty());
  EXPECT_EQ(screen, "\r[##########                    ]  33 %  0:01"
                    "\r[##############################] 100 %  1:06\n");
}

TEST_F(ExportProgressTest, fillsTheBarAtTheEndHoweverSoonItComes) {
  begin(true);
  clock.advance(1s);
  progress->report(990);
  clock.advance(1ms);
  progress->report(999);
  progress->report(1000);
  progress->report(1000);
  EXPECT_EQ(screen, "\r[############################# ]  99 %  0:01"
                    "\r[##############################] 100 %  0:01");
}

TEST_F(ExportProgressTest, leavesATerminalAloneThatSawNoBar) {
  begin(true);
  progress->report(500);
  progress.reset();
  EXPECT_EQ(screen, "");
}

} // namespace
} // namespace tessarin
