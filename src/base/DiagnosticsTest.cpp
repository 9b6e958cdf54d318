#include "base/Diagnostics.hpp"

#include "base/Failure.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace tessarin {
namespace {

enum class Trouble { small, large };

// Puts another descriptor in the place of standard error for a while.
class StandardErrorInstead {
 public:
  explicit StandardErrorInstead(int descriptor) : saved_(::dup(STDERR_FILENO)) {
    ::dup2(descriptor, STDERR_FILENO);
  }
  ~StandardErrorInstead() {
    ::dup2(saved_, STDERR_FILENO);
    ::close(saved_);
  }
  StandardErrorInstead(const StandardErrorInstead&) = delete;
  StandardErrorInstead& operator=(const StandardErrorInstead&) = delete;

 private:
  int saved_;
};

TEST(DiagnosticsLine, JoinsItsItemsByBlanks) {
  EXPECT_EQ(DiagnosticsLine("tessarin-native recording-summary").text(), "tessarin-native recording-summary");
  EXPECT_EQ(DiagnosticsLine("head").item("startupMs", 12).item("path", "/a/b").item("big", 1ULL << 63).text(),
            "head startupMs=12 path=/a/b big=9223372036854775808");
  EXPECT_EQ(DiagnosticsLine("head").item("low", std::int64_t{-1}).item("empty", "").text(),
            "head low=-1 empty=");
}

TEST(DiagnosticsLine, AValueNeverBreaksTheLine) {
  EXPECT_EQ(DiagnosticsLine("head").item("error", "two words\nand\tmore\x7F \u00e9").text(),
            "head error=two_words_and_more__\u00e9");
}

TEST(DiagnosticsLine, IsWrittenWithALineFeed) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  {
    const StandardErrorInstead redirected(ends[1]);
    writeDiagnostics("one line");
  }
  char text[64];
  const ssize_t count = ::read(ends[0], text, sizeof text);
  EXPECT_EQ(std::string(text, static_cast<std::size_t>(count)), "one line\n");
  ::close(ends[0]);
  ::close(ends[1]);
}

TEST(DiagnosticsLine, AReaderThatIsGoneDoesNoHarm) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  ::close(ends[0]);
  {
    const StandardErrorInstead redirected(ends[1]);
    writeDiagnostics("nobody reads this");
  }
  ::close(ends[1]);
  sigset_t pending;
  sigpending(&pending);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
}

TEST(DiagnosticsLine, APipeThatIsFullLosesLinesAndKeepsNobodyWaiting) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_NONBLOCK), 0);
  std::size_t filled = 0;
  const std::string page(PIPE_BUF, 'x');
  while (::write(ends[1], page.data(), page.size()) > 0)
    filled += page.size();
  ASSERT_EQ(::fcntl(ends[1], F_SETFL, 0), 0); // as a host makes them
  const auto begun = std::chrono::steady_clock::now();
  {
    const StandardErrorInstead redirected(ends[1]);
    for (int i = 0; i < 50; ++i)
      writeDiagnostics("lost");
    EXPECT_GE(std::chrono::steady_clock::now() - begun, diagnosticsPatience);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 5 * diagnosticsPatience);
    std::string read(filled, '\0');
    EXPECT_EQ(::read(ends[0], read.data(), read.size()), static_cast<ssize_t>(filled));
    writeDiagnostics("there is room again");
  }
  char text[64];
  const ssize_t count = ::read(ends[0], text, sizeof text);
  EXPECT_EQ(std::string(text, static_cast<std::size_t>(count)), "there is room again\n");
  ::close(ends[0]);
  ::close(ends[1]);
}

TEST(Failure, CarriesItsCase) {
  try {
    fail(Trouble::large);
  } catch (const Failure<Trouble>& failure) {
    EXPECT_EQ(failure.value(), Trouble::large);
    EXPECT_EQ(failure, Failure(Trouble::large));
    EXPECT_FALSE(failure == Failure(Trouble::small));
    return;
  }
  FAIL() << "nothing was thrown";
}

} // namespace
} // namespace tessarin
