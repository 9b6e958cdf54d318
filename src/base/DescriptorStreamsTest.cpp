#include "base/DescriptorStreams.hpp"

#include "base/FileSystem.hpp"

#include <gtest/gtest.h>

#include <pthread.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <string>
#include <thread>

namespace tessarin {
namespace {

TEST(DescriptorSource, ReadsWhatThereIsAndFailsOnWhatCannotBeRead) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const InputSource source = descriptorSource(ends[0]);
  std::array<char, 4> buffer{};
  ASSERT_EQ(::write(ends[1], "abcdef", 6), 6);
  EXPECT_EQ(source(buffer), 4U);
  EXPECT_EQ(std::string(buffer.data(), 4), "abcd");
  EXPECT_EQ(source(buffer), 2U);
  ::close(ends[1]);
  EXPECT_EQ(source(buffer), 0U);
  ::close(ends[0]);
  EXPECT_THROW((void)descriptorSource(-1)(buffer), FileFailure);
}

TEST(DescriptorSource, ReadsOnBehindASignal) {
  static volatile std::sig_atomic_t signals = 0;
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int) { signals = signals + 1; };
  ASSERT_EQ(::sigaction(SIGUSR1, &action, &before), 0); // which interrupts a reading
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const pthread_t reader = ::pthread_self();
  std::jthread host([&] {
    // Until one has come in the middle of a reading for certain: there are many.
    for (int i = 0; i < 50; ++i) {
      ::pthread_kill(reader, SIGUSR1);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    (void)!::write(ends[1], "x", 1);
  });
  char byte = 0;
  EXPECT_EQ(descriptorSource(ends[0])({&byte, 1}), 1U);
  EXPECT_EQ(byte, 'x');
  host.join();
  EXPECT_GT(signals, 1);
  ::sigaction(SIGUSR1, &before, nullptr);
  ::close(ends[0]);
  ::close(ends[1]);
}

} // namespace
} // namespace tessarin
