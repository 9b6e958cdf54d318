// Pictures that are compressed where memory and threads are short.

#include "backends/png/PngEncoding.hpp"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <new>
#include <optional>
#include <random>
#include <system_error>
#include <thread>
#include <vector>

// The sanitizers map what they like, so there is no room to be measured with them.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

namespace tessarin::png {
namespace {

constexpr std::int32_t width = 1000;
constexpr std::int32_t height = 900; // five strips

// What the process may map, for as long as this lives.
class AddressSpace {
 public:
  // So many bytes more than it has mapped by now.
  explicit AddressSpace(std::size_t more) {
    ::getrlimit(RLIMIT_AS, &before_);
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    rlimit limit = before_;
    limit.rlim_cur = pages * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) + more;
    ::setrlimit(RLIMIT_AS, &limit);
  }
  ~AddressSpace() { ::setrlimit(RLIMIT_AS, &before_); }
  AddressSpace(const AddressSpace&) = delete;
  AddressSpace& operator=(const AddressSpace&) = delete;

 private:
  rlimit before_{};
};

std::vector<std::uint8_t> smoothPixels() {
  std::vector<std::uint8_t> pixels(std::size_t{4} * width * height);
  std::mt19937 random(3);
  for (std::size_t i = 0; i < pixels.size(); ++i)
    pixels[i] = static_cast<std::uint8_t>(i / 512 + random() % 8);
  return pixels;
}

// Nothing where there was no memory.
std::optional<std::vector<std::byte>> file(const std::vector<std::uint8_t>& pixels, std::size_t threads,
                                           std::size_t more) {
  std::optional<EncodedPicture> encoded;
  {
    const AddressSpace limited(more);
    try {
      encoded =
          encode({pixels.data(), width, height, std::ptrdiff_t{4} * width, PixelFormat::bgrx8}, threads);
    } catch (const std::bad_alloc&) {
      return std::nullopt;
    }
  }
  std::vector<std::byte> bytes;
  for (const auto part : encoded->parts)
    bytes.insert(bytes.end(), part.begin(), part.end());
  return bytes;
}

bool canStartAThread(std::size_t more) {
  const AddressSpace limited(more);
  try {
    std::thread([] {}).join();
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

int ended(const char* what) {
  std::fputs(what, stderr);
  return 1;
}

constexpr std::size_t mebibyte = std::size_t{1} << 20;
constexpr std::size_t enough = 1024 * mebibyte;
constexpr std::size_t enoughForNoStack = 6 * mebibyte; // of a thread, which has eight

// In a process that has had no threads, whose stacks would serve again.
int withoutThreads() {
  const auto pixels = smoothPixels();
  const auto expected = file(pixels, 1, enough);
  if (canStartAThread(enoughForNoStack))
    return ended("there are threads");
  return expected && file(pixels, 4, enoughForNoStack) == expected ? 0 : ended("another file");
}

// From next to nothing to what is enough: where there is room for one thread, there is a file.
int withEverMoreMemory() {
  const auto pixels = smoothPixels();
  const auto expected = file(pixels, 1, enough);
  std::size_t failures = 0;
  std::size_t more = 0;
  for (; file(pixels, 1, more) != expected; more += mebibyte / 8)
    if (++failures == 100)
      return ended("no file");
  if (failures == 0)
    return ended("always a file");
  for (more += mebibyte / 2; more < 64 * mebibyte; more += mebibyte / 8)
    if (file(pixels, 4, more) != expected)
      return ended("no file, or another one");
  return 0;
}

class PngMemory : public testing::Test {
 protected:
  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // a new process
  }
};

TEST_F(PngMemory, FewerThreadsMakeTheSameFile) {
  EXPECT_EXIT(std::exit(withoutThreads()), testing::ExitedWithCode(0), "");
}

TEST_F(PngMemory, WhatSufficesForOneThreadSufficesForSeveral) {
  EXPECT_EXIT(std::exit(withEverMoreMemory()), testing::ExitedWithCode(0), "");
}

} // namespace
} // namespace tessarin::png

#endif
