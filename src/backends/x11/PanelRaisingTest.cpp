#include "backends/x11/PanelRaising.hpp"

#include <gtest/gtest.h>

namespace tessarin::x11 {
namespace {

using namespace std::chrono_literals;

const PanelRaising::Time start{};

// Covered anew at once, so often as they are raised at once. The moment of the last raise.
PanelRaising::Time exhaust(PanelRaising& raising, PanelRaising::Duration between) {
  auto now = start;
  for (int i = 0; i < 12; ++i) {
    now += between;
    EXPECT_EQ(raising.waitWhenCovered(now), 0s) << i;
    raising.noteRaised(now);
  }
  return now;
}

TEST(PanelRaising, GivesWayLongerAndLongerToOneWhoAlwaysComesBack) {
  PanelRaising raising;
  auto now = exhaust(raising, 1ms);
  for (const auto wait : {1s, 2s, 4s, 8s, 16s, 32s, 64s, 64s}) {
    now += 1ms;
    EXPECT_EQ(raising.waitWhenCovered(now), wait);
    now += wait;
    raising.noteRaised(now);
  }
}

TEST(PanelRaising, NeverWaitsForThoseWhoComeNowAndThen) {
  PanelRaising raising;
  auto now = start;
  for (int i = 0; i < 100; ++i) {
    now += 2s;
    EXPECT_EQ(raising.waitWhenCovered(now), 0s);
    raising.noteRaised(now);
  }
}

TEST(PanelRaising, RaisesInARowAreLessThanTwoSecondsApart) {
  PanelRaising raising;
  const auto now = exhaust(raising, 1999ms);
  EXPECT_EQ(raising.waitWhenCovered(now + 1999ms), 1s);
}

TEST(PanelRaising, CalmAsLongAsTheWaitAndTwoSecondsEndsTheRow) {
  for (const bool isCalm : {false, true}) {
    PanelRaising raising;
    auto now = exhaust(raising, 1ms);
    EXPECT_EQ(raising.waitWhenCovered(now), 1s);
    now += 1s;
    raising.noteRaised(now);
    EXPECT_EQ(raising.waitWhenCovered(now + (isCalm ? 3000ms : 2999ms)),
              isCalm ? PanelRaising::Duration(0s) : PanelRaising::Duration(2s));
  }
}

} // namespace
} // namespace tessarin::x11
