#include "recording/RecordingEventWriter.hpp"

#include "base/FileSystem.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace tessarin {
namespace {

RecordingEvent cancelledIn(const std::string& session) {
  return {session, RecordingEvent::Cancelled{}};
}

std::string readAll(int descriptor) {
  std::string bytes;
  std::array<char, 4096> piece{};
  ssize_t count = 0;
  while ((count = ::read(descriptor, piece.data(), piece.size())) > 0)
    bytes.append(piece.data(), static_cast<std::size_t>(count));
  return bytes;
}

TEST(RecordingEventWriter, HandsOverWholeLinesInOneCallEach) {
  std::vector<std::string> calls;
  RecordingEventWriter writer([&](std::string_view bytes) { calls.emplace_back(bytes); });
  writer.write(cancelledIn("A"));
  writer.write(cancelledIn("B"));
  EXPECT_EQ(calls, (std::vector<std::string>{
                       "{\"event\":\"cancelled\",\"schemaVersion\":2,\"sessionId\":\"A\"}\n",
                       "{\"event\":\"cancelled\",\"schemaVersion\":2,\"sessionId\":\"B\"}\n"}));
}

TEST(RecordingEventWriter, ThrowsAFailureWithItsLockReleased) {
  bool broken = true;
  int written = 0;
  RecordingEventWriter writer([&](std::string_view) {
    if (broken)
      throw FileFailure(FileOperation::write, EPIPE);
    ++written;
  });
  EXPECT_THROW(writer.write(cancelledIn("A")), FileFailure);
  broken = false;
  writer.write(cancelledIn("A")); // would wait forever on a lock still held
  EXPECT_EQ(written, 1);
}

TEST(RecordingEventWriter, WritesNothingOfAnEventThatHasNoJson) {
  int written = 0;
  RecordingEventWriter writer([&](std::string_view) { ++written; });
  EXPECT_THROW(writer.write(cancelledIn("\xff")), json::EncodingFailure);
  EXPECT_EQ(written, 0);
}

TEST(RecordingEventWriter, KeepsLinesWholeFromManyThreadsAcrossASmallPipe) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  fcntl(ends[1], F_SETPIPE_SZ, 4096);
  ASSERT_EQ(fcntl(ends[1], F_SETFL, O_NONBLOCK), 0); // so that the pipe takes lines in pieces
  const std::string longName(3000, 'n');
  std::string received;
  std::thread reader([&] { received = readAll(ends[0]); });
  {
    RecordingEventWriter writer(descriptorSink(ends[1]));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
      threads.emplace_back([&, t] {
        for (int i = 0; i < 25; ++i)
          writer.write(cancelledIn(std::to_string(t) + '-' + std::to_string(i) + longName));
      });
    for (std::thread& thread : threads)
      thread.join();
  }
  close(ends[1]);
  reader.join();
  close(ends[0]);

  std::set<std::string> expected;
  for (int t = 0; t < 4; ++t)
    for (int i = 0; i < 25; ++i)
      expected.insert(cancelledIn(std::to_string(t) + '-' + std::to_string(i) + longName).encodedLine());
  std::multiset<std::string> lines;
  for (std::size_t start = 0; start < received.size();) {
    const std::size_t end = received.find('\n', start);
    ASSERT_NE(end, std::string::npos);
    lines.insert(received.substr(start, end + 1 - start));
    start = end + 1;
  }
  EXPECT_EQ(lines, (std::multiset<std::string>(expected.begin(), expected.end())));
}

TEST(RecordingEventWriter, FailsWhenNobodyReadsAnyMore) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  close(ends[0]);
  const auto previous = std::signal(SIGPIPE, SIG_IGN);
  RecordingEventWriter writer(descriptorSink(ends[1]));
  try {
    writer.write(cancelledIn("A"));
    ADD_FAILURE() << "written";
  } catch (const FileFailure& failure) {
    EXPECT_EQ(failure.operation(), FileOperation::write);
    EXPECT_EQ(failure.errorNumber(), EPIPE);
  }
  std::signal(SIGPIPE, previous);
  close(ends[1]);
}

// A full pipe of one page.
class FullPipe {
 public:
  FullPipe() {
    EXPECT_EQ(pipe2(ends_.data(), O_CLOEXEC), 0);
    fcntl(ends_[1], F_SETPIPE_SZ, 4096);
    const std::string page(4096, 'x');
    EXPECT_EQ(::write(ends_[1], page.data(), page.size()), 4096);
  }
  ~FullPipe() {
    close(ends_[0]);
    close(ends_[1]);
  }
  FullPipe(const FullPipe&) = delete;
  FullPipe& operator=(const FullPipe&) = delete;

  int input() const { return ends_[1]; }
  std::string take(std::size_t count) {
    std::string bytes(count, '\0');
    const ssize_t got = ::read(ends_[0], bytes.data(), count);
    bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return bytes;
  }

 private:
  std::array<int, 2> ends_{};
};

int errorOf(const std::function<void()>& write) {
  try {
    write();
  } catch (const FileFailure& failure) {
    return failure.errorNumber();
  }
  return 0;
}

TEST(RecordingEventWriter, GivesUpAHostThatReadsNothingForGood) {
  FullPipe pipe;
  RecordingEventWriter writer(impatientDescriptorSink(pipe.input(), std::chrono::milliseconds(1)));
  EXPECT_EQ(errorOf([&] { writer.write(cancelledIn("A")); }), ETIMEDOUT);
  EXPECT_EQ(pipe.take(4096), std::string(4096, 'x'));
  EXPECT_EQ(errorOf([&] { writer.write(cancelledIn("B")); }), ETIMEDOUT)
      << "the line before may be there in part, so none may follow it";
}

TEST(RecordingEventWriter, WaitsForAHostThatReadsInTimeAndNeverBlocksInAWrite) {
  FullPipe pipe; // whose writing end blocks
  RecordingEventWriter writer(impatientDescriptorSink(pipe.input(), std::chrono::minutes(1)));
  const std::string line = cancelledIn(std::string(9000, 'n')).encodedLine();
  std::string received;
  std::thread reader([&] {
    while (received.size() < 4096 + line.size())
      received += pipe.take(4096);
  });
  writer.write(cancelledIn(std::string(9000, 'n')));
  reader.join();
  EXPECT_EQ(received.substr(4096), line);
}

TEST(RecordingEventWriter, GivesUpInTheMiddleOfALineThatAPipeTakesInPart) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  fcntl(ends[1], F_SETPIPE_SZ, 4096);
  const OutputSink sink = impatientDescriptorSink(ends[1], std::chrono::milliseconds(1));
  EXPECT_EQ(errorOf([&] { sink(std::string(9000, 'n')); }), ETIMEDOUT);
  close(ends[0]);
  close(ends[1]);
}

TEST(RecordingEventWriter, GrantsAHostTenSeconds) {
  EXPECT_EQ(RecordingEventWriter::hostPatience, std::chrono::seconds(10));
}

} // namespace
} // namespace tessarin
