#include "recording/ControlInput.hpp"

#include "base/Failure.hpp"
#include "recording/RecordingProtocol.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <array>
#include <fcntl.h>
#include <future>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <vector>

namespace tessarin {
namespace {

class Pipe {
 public:
  Pipe() { EXPECT_EQ(pipe2(ends_.data(), O_CLOEXEC), 0); }
  ~Pipe() {
    close(ends_[0]);
    closeWriter();
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  int reader() const { return ends_[0]; }
  int writer() const { return ends_[1]; }
  void write(std::string_view text) const {
    EXPECT_EQ(::write(ends_[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  void closeWriter() {
    if (ends_[1] >= 0)
      close(ends_[1]);
    ends_[1] = -1;
  }

 private:
  std::array<int, 2> ends_{-1, -1};
};

std::vector<std::string> linesOf(ControlInput& input) {
  std::vector<std::string> lines;
  while (std::optional<std::string> line = input.nextLine())
    lines.push_back(*line);
  return lines;
}

// Bytes are written on a thread of their own, since a pipe holds less than the largest line.
class Feeder {
 public:
  Feeder(Pipe& pipe, std::string bytes)
      : thread_([&pipe, text = std::move(bytes)] {
          std::string_view rest = text;
          while (!rest.empty()) {
            const ssize_t count = ::write(pipe.writer(), rest.data(), rest.size());
            if (count < 0)
              return;
            rest.remove_prefix(static_cast<std::size_t>(count));
          }
        }) {}
  ~Feeder() { thread_.join(); }

 private:
  std::thread thread_;
};

TEST(ControlInput, ReturnsLinesWithoutTheirLineFeed) {
  Pipe pipe;
  pipe.write("one\n\ntwo\r\n");
  pipe.closeWriter();
  ControlInput input(pipe.reader());
  EXPECT_EQ(linesOf(input), (std::vector<std::string>{"one", "", "two\r"}));
  EXPECT_EQ(input.nextLine(), std::nullopt);
}

TEST(ControlInput, CountsALastFragmentAsALine) {
  Pipe pipe;
  pipe.write("one\ntwo");
  pipe.closeWriter();
  ControlInput input(pipe.reader());
  EXPECT_EQ(linesOf(input), (std::vector<std::string>{"one", "two"}));
}

TEST(ControlInput, EndsAtOnceWithoutInput) {
  Pipe pipe;
  pipe.closeWriter();
  ControlInput input(pipe.reader());
  EXPECT_EQ(input.nextLine(), std::nullopt);
}

TEST(ControlInput, PutsALineTogetherFromPieces) {
  Pipe pipe;
  ControlInput input(pipe.reader());
  auto line = std::async(std::launch::async, [&] { return input.nextLine(); });
  for (const char* piece : {"s", "to", "p\npau"})
    pipe.write(piece);
  EXPECT_EQ(line.get(), "stop");
  pipe.write("se\n");
  EXPECT_EQ(input.nextLine(), "pause");
}

TEST(ControlInput, ReadsAFileToItsEnd) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("lines", "a\nb");
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  ControlInput input(descriptor);
  EXPECT_EQ(linesOf(input), (std::vector<std::string>{"a", "b"}));
  close(descriptor);
}

TEST(ControlInput, WaitsOnADescriptorThatDoesNotBlock) {
  Pipe pipe;
  ASSERT_EQ(fcntl(pipe.reader(), F_SETFL, O_NONBLOCK), 0);
  ControlInput input(pipe.reader());
  auto line = std::async(std::launch::async, [&] { return input.nextLine(); });
  pipe.write("stop\n");
  EXPECT_EQ(line.get(), "stop");
}

TEST(ControlInput, EndsWhenTheDescriptorCannotBeRead) {
  const int directory = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ControlInput unreadable(directory);
  EXPECT_EQ(unreadable.nextLine(), std::nullopt);
  EXPECT_EQ(unreadable.nextLine(), std::nullopt);
  close(directory);
}

TEST(ControlInput, WakesAReaderThatWaitsWhenClosed) {
  Pipe pipe;
  ControlInput input(pipe.reader());
  auto line = std::async(std::launch::async, [&] { return input.nextLine(); });
  input.close();
  EXPECT_EQ(line.get(), std::nullopt);
  // The descriptor itself is still open for its owner.
  EXPECT_NE(fcntl(pipe.reader(), F_GETFD), -1);
}

TEST(ControlInput, DropsLinesThatAreUnreadWhenClosed) {
  Pipe pipe;
  pipe.write("one\ntwo\nthree\n");
  ControlInput input(pipe.reader());
  EXPECT_EQ(input.nextLine(), "one");
  input.close();
  EXPECT_EQ(input.nextLine(), std::nullopt);
  EXPECT_EQ(input.nextLine(), std::nullopt);
}

TEST(ControlInput, MayBeClosedAnyNumberOfTimesFromAnywhere) {
  Pipe pipe;
  ControlInput input(pipe.reader());
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&] {
      for (int j = 0; j < 100; ++j)
        input.close();
    });
  EXPECT_EQ(input.nextLine(), std::nullopt);
  for (std::thread& thread : threads)
    thread.join();
}

TEST(ControlInput, EndsOnASignalThatComesWhileItWaits) {
  const Pipe pipe;
  const Pipe signals;
  ControlInput input(pipe.reader(), {.signals = signals.reader()});
  auto line = std::async(std::launch::async, [&] { return input.nextLine(); });
  signals.write("x");
  EXPECT_EQ(line.get(), std::nullopt);
  EXPECT_EQ(input.nextLine(), std::nullopt);
}

TEST(ControlInput, ReturnsWholeLinesThatCameBeforeASignalAndNothingBehindThem) {
  const Pipe pipe;
  const Pipe signals;
  ControlInput input(pipe.reader(), {.signals = signals.reader()});
  pipe.write("pause\nstop\nsto");
  signals.write("x");
  EXPECT_EQ(input.nextLine(), "pause");
  pipe.write("p\nresume\n");
  EXPECT_EQ(input.nextLine(), "stop");
  EXPECT_EQ(input.nextLine(), std::nullopt);
  EXPECT_EQ(input.nextLine(), std::nullopt);
}

TEST(ControlInput, DropsALineThatASignalInterrupts) {
  const Pipe pipe;
  const Pipe signals;
  ControlInput input(pipe.reader(), {.signals = signals.reader()});
  pipe.write("sto");
  signals.write("x");
  EXPECT_EQ(input.nextLine(), std::nullopt);
}

TEST(ControlInput, LeavesASignalToWhoeverReadsIt) {
  const Pipe pipe;
  const Pipe signals;
  signals.write("x");
  ControlInput input(pipe.reader(), {.signals = signals.reader()});
  EXPECT_EQ(input.nextLine(), std::nullopt);
  char byte = 0;
  EXPECT_EQ(read(signals.reader(), &byte, 1), 1);
}

TEST(ControlInput, EndsWhenNobodyIsLeftToReadTheEvents) {
  const Pipe pipe;
  std::array<int, 2> events{};
  ASSERT_EQ(pipe2(events.data(), O_CLOEXEC), 0);
  ControlInput input(pipe.reader(), {.output = events[1]});
  pipe.write("pause\n");
  EXPECT_EQ(input.nextLine(), "pause");
  auto line = std::async(std::launch::async, [&] { return input.nextLine(); });
  close(events[0]);
  EXPECT_EQ(line.get(), std::nullopt);
  close(events[1]);
}

TEST(ControlInput, PassesALineOfTheLargestSize) {
  Pipe pipe;
  const std::string largest(65536, 'x');
  ControlInput input(pipe.reader());
  const Feeder feeder(pipe, largest + "\nstop\n");
  EXPECT_EQ(input.nextLine(), largest);
  EXPECT_EQ(input.nextLine(), "stop");
}

TEST(ControlInput, PassesALastFragmentOfTheLargestSize) {
  Pipe pipe;
  const std::string largest(65536, 'x');
  ControlInput input(pipe.reader());
  auto line = std::async(std::launch::async, [&] { return input.nextLine(); });
  { const Feeder feeder(pipe, largest); }
  pipe.closeWriter();
  EXPECT_EQ(line.get(), largest);
  EXPECT_EQ(input.nextLine(), std::nullopt);
}

TEST(ControlInput, ReportsALineThatIsTooLongWithoutWaitingForItsEnd) {
  Pipe pipe;
  ControlInput input(pipe.reader());
  std::optional<std::string> line;
  {
    const Feeder feeder(pipe, std::string(65537, 'x')); // and no line feed ever
    line = input.nextLine();
  }
  ASSERT_TRUE(line);
  EXPECT_EQ(line->size(), 65537U);
  try {
    RecordingControlCommand::decodeLine(*line, std::nullopt);
    ADD_FAILURE() << "decoded";
  } catch (const Failure<RecordingProtocolError>& failure) {
    EXPECT_EQ(failure.value(), RecordingProtocolError::lineTooLarge);
  }
  EXPECT_EQ(input.nextLine(), std::nullopt);
}

TEST(ControlInput, CutsALineThatIsTooLongAlsoWhenItsEndIsThere) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("lines", std::string(65537, 'x') + "\nstop\n");
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  ControlInput input(descriptor);
  EXPECT_EQ(input.nextLine(), std::string(65537, 'x'));
  EXPECT_EQ(input.nextLine(), std::nullopt);
  close(descriptor);
}

} // namespace
} // namespace tessarin
