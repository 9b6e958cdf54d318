#include "main/SignalledStop.hpp"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <semaphore>

namespace tessarin {
namespace {

TEST(SignalledStop, isAskedForOnceTheDescriptorIsReadable) {
  const int descriptor = eventfd(0, EFD_CLOEXEC);
  {
    SignalledStop stop(descriptor);
    std::binary_semaphore asked(0);
    const std::stop_token token = stop.token();
    const std::stop_callback whenAsked(token, [&] { asked.release(); });
    EXPECT_FALSE(token.stop_requested());
    ASSERT_EQ(eventfd_write(descriptor, 1), 0);
    asked.acquire();
    EXPECT_TRUE(token.stop_requested());
    EXPECT_TRUE(stop.token().stop_requested());
  }
  close(descriptor);
}

TEST(SignalledStop, endsUnasked) {
  const int descriptor = eventfd(0, EFD_CLOEXEC);
  std::stop_token token;
  {
    SignalledStop stop(descriptor);
    token = stop.token();
  }
  EXPECT_FALSE(token.stop_requested());
  close(descriptor);
}

TEST(SignalledStop, neverComesWithoutADescriptor) {
  SignalledStop stop(std::nullopt);
  EXPECT_FALSE(stop.token().stop_requested());
}

} // namespace
} // namespace tessarin
