#include "main/MainLoop.hpp"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace tessarin {
namespace {

TEST(MainLoop, YieldsTheExitCodeOfTheFirstStop) {
  MainLoop loop;
  loop.stop(2);
  loop.stop(1);
  EXPECT_EQ(loop.run(), 2);
}

TEST(MainLoop, DoesTheWorkThatWasHandedOverBeforeTheStop) {
  MainLoop loop;
  std::vector<int> order;
  loop.async([&] {
    order.push_back(1);
    loop.async([&] { order.push_back(2); });
  });
  loop.stop(0);
  EXPECT_EQ(loop.run(), 0);
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

TEST(MainLoop, ServesAJobOnAnotherThreadUntilItStops) {
  MainLoop loop;
  const auto mainThread = std::this_thread::get_id();
  std::thread::id ranOn;
  std::jthread job([&] {
    loop.sync([&] { ranOn = std::this_thread::get_id(); });
    EXPECT_FALSE(loop.isCurrent());
    loop.stop(7);
  });
  EXPECT_EQ(loop.run(), 7);
  EXPECT_EQ(ranOn, mainThread);
}

TEST(MainLoop, AStopFromElsewhereLeavesNoJobWaiting) {
  for (int round = 0; round < 200; ++round) {
    MainLoop loop;
    int count = 0; // confined to the loop
    {
      std::jthread job([&] {
        for (int i = 0; i < 20; ++i)
          loop.sync([&count] { ++count; });
        loop.stop(0);
      });
      std::jthread other([&] { loop.stop(1); });
      EXPECT_LE(loop.run(), 1);
    }
    ASSERT_EQ(count, 20);
  }
}

} // namespace
} // namespace tessarin
