#include "Program.hpp"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>

namespace tessarin {
namespace {

TEST(Reply, IsOneWriteAndALineFeedAnother) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
  const ProgramResult result = runProgram({"status"}, {.standardOutput = ends[1]});
  ::close(ends[1]);
  EXPECT_EQ(result.exitStatus, 0);
  std::vector<std::string> writes;
  std::array<char, 4096> part{};
  for (ssize_t count = 0; (count = ::read(ends[0], part.data(), part.size())) > 0;)
    writes.emplace_back(part.data(), static_cast<std::size_t>(count));
  ::close(ends[0]);
  ASSERT_EQ(writes.size(), 2U);
  EXPECT_EQ(writes[0], R"({"data":{"permission":"notDetermined"},"ok":true,"schemaVersion":1})");
  EXPECT_EQ(writes[1], "\n");
}

TEST(Reply, WithoutAStandardOutputTheStatusStillTells) {
  EXPECT_EQ(runProgram({"status"}, {.standardOutput = -1}).exitStatus, 0);
  EXPECT_EQ(runProgram({"list"}, {.standardOutput = -1}).exitStatus, 1);
  EXPECT_EQ(runProgram({"unknown"}, {.standardOutput = -1}).exitStatus, 2);
}

TEST(Reply, WithoutAStandardInputItIsTheSame) {
  const ProgramResult result = runProgram({"status"}, {.hasStandardInput = false});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.output, "{\"data\":{\"permission\":\"notDetermined\"},\"ok\":true,\"schemaVersion\":1}\n");
}

TEST(Reply, AHostThatHasGoneEndsTheProgramByThePipe) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  ::close(ends[0]);
  const ProgramResult result = runProgram({"status"}, {.standardOutput = ends[1]});
  ::close(ends[1]);
  EXPECT_EQ(result.exitStatus, std::nullopt);
  EXPECT_EQ(result.signal, SIGPIPE);
}

} // namespace
} // namespace tessarin
