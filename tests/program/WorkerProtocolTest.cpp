#include "Program.hpp"
#include "WorkerProcess.hpp"

#include <gtest/gtest.h>

#include <unistd.h>

#include <array>
#include <csignal>

namespace tessarin {
namespace {

const std::string ready = "{\"schemaVersion\":1,\"ready\":true}\n";
const std::string listing = workerListing() + "\n";

// Without a display every request is answered by the same failure.
std::string answer(std::string_view requestID = anyRequestID) {
  return R"({"error":{"code":"permissionDenied",)"
         R"("message":"Screen Recording permission is required to capture the display.","recoverable":true},)"
         R"("ok":false,"requestId":")" +
         std::string(requestID) + "\",\"schemaVersion\":1}\n";
}

ProgramResult serve(const std::string& input) {
  return runProgram({"capture-worker"}, {.standardInput = input});
}

void expectEnd(const std::string& input, int exitStatus, const std::string& output) {
  const ProgramResult result = serve(input);
  EXPECT_EQ(result.exitStatus, exitStatus) << input.substr(0, 300);
  EXPECT_EQ(result.output, output) << input.substr(0, 300);
  EXPECT_EQ(result.diagnostics, "");
}

TEST(WorkerProtocol, EndsWellBetweenLines) {
  expectEnd("", 0, ready);
  expectEnd(listing, 0, ready + answer());
  expectEnd(listing + listing, 0, ready + answer() + answer());
}

TEST(WorkerProtocol, RepeatsTheIdentifierWithItsLetters) {
  const std::string ids[] = {"ABCDEFAB-3C5A-4F1B-9E43-1F2D3C4B5A69", "abcdefab-3c5a-4f1b-9e43-1f2d3c4b5a69",
                             "aBcDeFaB-3c5A-4F1b-9e43-1f2D3c4B5a69"};
  std::string input;
  std::string output = ready;
  for (const std::string& id : ids) {
    input += workerListing(id) + "\n";
    output += answer(id);
  }
  expectEnd(input, 0, output);
}

TEST(WorkerProtocol, EndsInsideALineAsRefused) {
  expectEnd("{", 2, ready);
  expectEnd(listing + workerListing(), 2, ready + answer());
}

TEST(WorkerProtocol, ABrokenHostGetsNoAnswer) {
  const std::string id(anyRequestID);
  const std::string arguments = R"(["list","--exclude-parent-application"])";
  for (const std::string& line :
       {std::string(), std::string("{}"), std::string("text"), std::string("\xFF"), std::string("[]"),
        std::string(60, '['),
        R"({"schemaVersion":2,"requestId":")" + id + R"(","arguments":)" + arguments + "}",
        R"({"schemaVersion":1,"requestId":"1","arguments":)" + arguments + "}",
        R"({"schemaVersion":1,"requestId":")" + id + R"("})", workerRequest({"status"}),
        workerRequest({"list"}), workerRequest({}), workerRequest({"capture-worker"}),
        workerRequest({"prepare-capture"}), workerRequest({"prepare-capture", "--request-json", ""})})
    expectEnd(listing + line + "\n" + listing, 2, ready + answer());
}

TEST(WorkerProtocol, ALineHasALargestLength) {
  const auto padded = [](std::size_t length) {
    std::string line = workerListing();
    return line.insert(1, length - line.size(), ' ');
  };
  ASSERT_EQ(padded(24576).size(), 24576U);
  expectEnd(padded(24576) + "\n" + listing, 0, ready + answer() + answer());
  expectEnd(padded(24577) + "\n" + listing, 2, ready);
  expectEnd(listing + std::string(24577, ' '), 2, ready + answer());
}

TEST(WorkerProtocol, AFailedPreparationIsAnAnswer) {
  const ProgramResult result =
      serve(workerRequest(preparation("/nowhere/" + std::string(anyRequestID))) + "\n" +
            workerRequest({"prepare-capture", "--request-json", "e30="}) + "\n" + listing);
  EXPECT_EQ(result.exitStatus, 0);
  const std::string rest = R"(","recoverable":true},"ok":false,"requestId":")" + std::string(anyRequestID) +
                           "\",\"schemaVersion\":1}\n";
  EXPECT_EQ(
      result.output,
      ready +
          R"({"error":{"code":"internalError","message":"The native helper encountered an unexpected error.)" +
          rest +
          R"({"error":{"code":"invalidArguments","message":"The capture request is not valid base64 data.)" +
          rest + answer());
}

TEST(WorkerProtocol, AnInputThatCannotBeReadIsRefused) {
  const ProgramResult closed = runProgram({"capture-worker"}, {.hasStandardInput = false});
  EXPECT_EQ(closed.exitStatus, 2);
  EXPECT_EQ(closed.output, ready);
  ChildProcess directory({"/bin/sh", "-c", R"("$0" capture-worker </; echo "status $?")", TESSARIN_PROGRAM},
                         {});
  EXPECT_EQ(directory.readLine().value_or("") + "\n", ready);
  EXPECT_EQ(directory.readLine(), "status 2");
}

TEST(WorkerProtocol, AnOutputThatNobodyReadsIsRefused) {
  EXPECT_EQ(runProgram({"capture-worker"}, {.standardOutput = -1}).exitStatus, 2);
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  ::close(ends[0]);
  const ProgramResult result = runProgram({"capture-worker"}, {.standardOutput = ends[1]});
  ::close(ends[1]);
  EXPECT_EQ(result.exitStatus, 2) << "and no signal " << result.signal;
}

TEST(WorkerProtocol, AHostThatStopsReadingEndsIt) {
  // `head` leaves behind the first line.
  ChildProcess host({"/bin/bash", "-c",
                     R"("$0" capture-worker | { head -n 1; }; echo "status ${PIPESTATUS[0]}")",
                     TESSARIN_PROGRAM},
                    {.environment = {{"DISPLAY", ":59999"}}, .hasInput = true});
  ASSERT_EQ(host.readLine().value_or("") + "\n", ready);
  std::optional<std::string> last;
  for (int i = 0; i < 100 && !last; ++i) {
    host.writeLine(workerListing());
    last = host.readLine(std::chrono::milliseconds(100));
  }
  EXPECT_EQ(last, "status 2");
}

TEST(WorkerProtocol, WaitsForAsLongAsItsHostLives) {
  WorkerProcess worker(":59999");
  EXPECT_EQ(worker.process().waitForEnd(std::chrono::milliseconds(300)), std::nullopt);
  EXPECT_EQ(worker.list() + "\n", answer());
  EXPECT_EQ(worker.end(), 0);
}

TEST(WorkerProtocol, EndsAtOnceWhenAskedToByASignal) {
  WorkerProcess worker(":59999");
  worker.process().end(SIGTERM);
  EXPECT_EQ(worker.process().waitForEnd(), 128 + SIGTERM);
}

} // namespace
} // namespace tessarin
