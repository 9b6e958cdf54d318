#include "command/CaptureWorkerLines.hpp"

#include "support/FailureOf.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace tessarin {
namespace {

constexpr std::size_t longest = 24'576;

std::vector<std::string> linesOf(CaptureWorkerLines& lines, std::string_view bytes) {
  std::vector<std::string> result;
  while (const auto line = lines.take(bytes))
    result.push_back(*line);
  EXPECT_TRUE(bytes.empty());
  return result;
}

std::optional<CaptureWorkerLineError> failureOfTaking(CaptureWorkerLines& lines, std::string_view bytes) {
  return failureOf<CaptureWorkerLineError>([&] { (void)linesOf(lines, bytes); });
}

TEST(CaptureWorkerLines, AreWhatStandsBeforeALineFeed) {
  CaptureWorkerLines lines;
  EXPECT_EQ(linesOf(lines, "one\n"), std::vector<std::string>{"one"});
  EXPECT_EQ(linesOf(lines, "two\nthree\r\nfo"), (std::vector<std::string>{"two", "three\r"}));
  EXPECT_TRUE(lines.isInsideLine());
  EXPECT_EQ(linesOf(lines, "u"), std::vector<std::string>());
  EXPECT_EQ(linesOf(lines, ""), std::vector<std::string>());
  EXPECT_EQ(linesOf(lines, "r\n"), std::vector<std::string>{"four"});
  EXPECT_FALSE(lines.isInsideLine());
}

TEST(CaptureWorkerLines, AreTheSameHoweverTheBytesCome) {
  const std::string text = std::string("a\n{\"b\":\0}\n\xFF\n", 13) + std::string(5000, 'c') + "\nrest";
  CaptureWorkerLines whole;
  const auto expected = linesOf(whole, text);
  ASSERT_EQ(expected.size(), 4U);
  for (const std::size_t step : {1, 2, 3, 7, 4096}) {
    CaptureWorkerLines lines;
    std::vector<std::string> result;
    for (std::size_t at = 0; at < text.size(); at += step)
      for (const std::string& line : linesOf(lines, std::string_view(text).substr(at, step)))
        result.push_back(line);
    EXPECT_EQ(result, expected) << step;
    EXPECT_TRUE(lines.isInsideLine());
  }
}

TEST(CaptureWorkerLines, LeaveWhatIsBehindALineToTheNextCall) {
  CaptureWorkerLines lines;
  std::string_view bytes = "a\n\nb";
  EXPECT_EQ(lines.take(bytes), "a");
  EXPECT_EQ(bytes, "\nb");
  EXPECT_EQ(failureOf<CaptureWorkerLineError>([&] { (void)lines.take(bytes); }),
            CaptureWorkerLineError::empty);
}

TEST(CaptureWorkerLines, AreNeverEmpty) {
  for (const char* const bytes : {"\n", "a\n\n", "\na"}) {
    CaptureWorkerLines lines;
    EXPECT_EQ(failureOfTaking(lines, bytes), CaptureWorkerLineError::empty) << bytes;
  }
}

TEST(CaptureWorkerLines, HaveALargestLength) {
  CaptureWorkerLines lines;
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(linesOf(lines, std::string(longest, 'x')), std::vector<std::string>());
    EXPECT_EQ(linesOf(lines, "\n"), std::vector<std::string>{std::string(longest, 'x')});
    EXPECT_EQ(linesOf(lines, std::string(longest, 'y') + "\nz\n"),
              (std::vector<std::string>{std::string(longest, 'y'), "z"}));
  }
}

TEST(CaptureWorkerLines, EndWithTheFirstByteTooMany) {
  for (const std::size_t already : {std::size_t{0}, std::size_t{1}, longest - 1, longest}) {
    CaptureWorkerLines lines;
    EXPECT_EQ(linesOf(lines, std::string(already, 'x')), std::vector<std::string>());
    EXPECT_EQ(failureOfTaking(lines, std::string(longest + 1 - already, 'x')),
              CaptureWorkerLineError::tooLong)
        << already;
  }
  CaptureWorkerLines lines;
  EXPECT_EQ(failureOfTaking(lines, "a\n" + std::string(longest + 1, 'x') + "\n"),
            CaptureWorkerLineError::tooLong);
}

} // namespace
} // namespace tessarin
