#include "backends/pipewire/SampleRing.hpp"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace tessarin::pipewire {
namespace {

std::vector<float> counted(int first, std::size_t frameCount) {
  std::vector<float> samples(frameCount * 2);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    samples[i] = static_cast<float>(first + static_cast<int>(i));
  }
  return samples;
}

std::vector<float> popped(SampleRing& ring) {
  std::vector<float> samples(ring.front()->frameCount * 2);
  ring.pop(samples.data());
  return samples;
}

BufferRecord record(std::int64_t time, std::size_t frameCount) {
  BufferRecord made;
  made.time = time;
  made.frameCount = frameCount;
  return made;
}

TEST(SampleRing, GivesBackBuffersInOrderAlsoOverItsEdge) {
  SampleRing ring(10, 4, 2);
  EXPECT_EQ(ring.front(), nullptr);
  for (int i = 0; i < 50; ++i) {
    ASSERT_TRUE(ring.push(counted(i, 3).data(), record(i, 3)));
    ASSERT_TRUE(ring.push(counted(-i, 4).data(), record(-i, 4)));
    EXPECT_EQ(ring.front()->time, i);
    EXPECT_EQ(ring.front()->frameCount, 3U);
    EXPECT_EQ(popped(ring), counted(i, 3));
    EXPECT_EQ(ring.front()->time, -i);
    EXPECT_EQ(popped(ring), counted(-i, 4));
    EXPECT_EQ(ring.front(), nullptr);
  }
}

TEST(SampleRing, RefusesWhatItHasNoRoomFor) {
  SampleRing ring(10, 3, 2);
  EXPECT_FALSE(ring.push(counted(0, 11).data(), record(1, 11)));
  EXPECT_TRUE(ring.push(counted(0, 10).data(), record(2, 10)));
  EXPECT_FALSE(ring.push(counted(0, 1).data(), record(3, 1))); // no room for the samples
  EXPECT_EQ(popped(ring), counted(0, 10));
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(ring.push(counted(i, 1).data(), record(i, 1)));
  }
  EXPECT_FALSE(ring.push(counted(9, 1).data(), record(9, 1))); // nor for another buffer
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(popped(ring), counted(i, 1));
  }
  EXPECT_EQ(ring.front(), nullptr);
}

TEST(SampleRing, CarriesEverythingBetweenTwoThreads) {
  constexpr int count = 20000;
  SampleRing ring(1000, 64, 2);
  std::thread producer([&ring] {
    for (int i = 0; i < count; ++i) {
      const auto samples = counted(i, static_cast<std::size_t>(i % 17 + 1));
      while (!ring.push(samples.data(), record(i, samples.size() / 2))) {
        std::this_thread::yield();
      }
    }
  });
  bool isWhole = true;
  for (int i = 0; i < count; ++i) {
    while (!ring.front()) {
      std::this_thread::yield();
    }
    isWhole = isWhole && ring.front()->time == i;
    isWhole = popped(ring) == counted(i, static_cast<std::size_t>(i % 17 + 1)) && isWhole;
  }
  producer.join();
  EXPECT_TRUE(isWhole);
}

} // namespace
} // namespace tessarin::pipewire
