#include "command/CaptureWorker.hpp"

#include "base/FileSystem.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

namespace tessarin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string ready = "{\"schemaVersion\":1,\"ready\":true}\n";
const std::string first = "0b8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69";
const std::string second = "FFFFFFFF-3c5a-4f1b-9e43-1f2d3c4b5a69";
const std::string listing = R"(["list","--exclude-parent-application"])";

std::string request(const std::string& requestID = first, const std::string& arguments = listing) {
  return R"({"schemaVersion":1,"requestId":")" + requestID + R"(","arguments":)" + arguments + "}\n";
}

std::string response(const std::string& requestID = first, const std::string& data = "{}") {
  return R"({"data":)" + data + R"(,"ok":true,"requestId":")" + requestID + R"(","schemaVersion":1})" + "\n";
}

// A worker between a scripted host and a scripted dispatcher.
class CaptureWorkerTest : public testing::Test {
 protected:
  CaptureWorker worker() {
    return CaptureWorker({.input = [this](std::span<char> into) { return read(into); },
                          .output = [this](std::string_view bytes) { write(bytes); },
                          .run =
                              [this](const std::vector<std::string>& arguments) {
                                asked.push_back(arguments);
                                return execution;
                              },
                          .warmUp = [this] { events.emplace_back("warm"); }});
  }
  std::int32_t serve(const std::string& input) {
    pieces = {input};
    return worker().run();
  }

  std::size_t read(std::span<char> into) {
    events.emplace_back("read");
    EXPECT_EQ(into.size(), 4096U);
    while (!pieces.empty() && pieces.front().empty())
      pieces.erase(pieces.begin());
    if (pieces.empty()) {
      if (readFails)
        throw FileFailure(FileOperation::read, EIO);
      return 0;
    }
    const std::size_t count = std::min(into.size(), pieces.front().size());
    std::copy_n(pieces.front().begin(), count, into.begin());
    pieces.front().erase(0, count);
    return count;
  }
  void write(std::string_view bytes) {
    if (writesThatGoWell-- == 0)
      throw FileFailure(FileOperation::write, EPIPE);
    events.emplace_back("write");
    written.emplace_back(bytes);
  }

  NativeExecution execution{R"({"data":{},"ok":true,"schemaVersion":1})", 0};
  std::vector<std::string> pieces; // what one reading each finds
  bool readFails = false;          // behind the pieces
  int writesThatGoWell = -1;       // then none; negative: all
  std::vector<std::vector<std::string>> asked;
  std::vector<std::string> written;
  std::vector<std::string> events;
};

TEST_F(CaptureWorkerTest, SaysThatItIsReadyBeforeAnythingElse) {
  EXPECT_EQ(serve(""), 0);
  EXPECT_THAT(written, ElementsAre(ready));
  EXPECT_THAT(events, ElementsAre("write", "warm", "read"));
  EXPECT_THAT(asked, IsEmpty());
}

TEST_F(CaptureWorkerTest, EndsWhenNobodyHearsThatItIsReady) {
  writesThatGoWell = 0;
  EXPECT_EQ(serve(request()), 2);
  EXPECT_THAT(events, IsEmpty());
}

TEST_F(CaptureWorkerTest, AnswersWithTheEnvelopeAndTheIdentifierAsItWasGiven) {
  EXPECT_EQ(serve(request()), 0);
  EXPECT_THAT(written, ElementsAre(ready, response()));
  EXPECT_THAT(asked, ElementsAre(ElementsAre("list", "--exclude-parent-application")));
}

TEST_F(CaptureWorkerTest, KeysAreSortedAndSlashesEscaped) {
  execution.output = R"({"z/":"/a\\\/","schemaVersion":1,"ok":true,"a":{"c":[1,"/"],"b":1.5},"x":"\u00e4"})";
  EXPECT_EQ(serve(request()), 0);
  EXPECT_EQ(written.at(1), R"({"a":{"b":1.5,"c":[1,"\/"]},"ok":true,"requestId":")" + first +
                               R"(","schemaVersion":1,"x":")" + "\xC3\xA4" + R"(","z\/":"\/a\\\/"})" + "\n");
}

TEST_F(CaptureWorkerTest, TheIdentifierFindsItsPlaceAmongAnyKeys) {
  const std::string id = R"("requestId":")" + first + '"';
  const std::pair<const char*, std::string> cases[] = {
      {"{}", "{" + id + "}"},
      {R"({"a":1})", R"({"a":1,)" + id + "}"},
      {R"({"z":1})", "{" + id + R"(,"z":1})"},
      {R"({"requestId":7})", "{" + id + "}"},
      {R"({"requestI":1,"requestId":"other","requestIdentifier":2})",
       R"({"requestI":1,)" + id + R"(,"requestIdentifier":2})"},
  };
  for (const auto& [output, expected] : cases) {
    written.clear();
    execution.output = output;
    EXPECT_EQ(serve(request()), 0);
    EXPECT_THAT(written, ElementsAre(ready, expected + "\n"));
  }
}

TEST_F(CaptureWorkerTest, AFailedCommandIsAnAnswerLikeAnother) {
  execution = {
      R"({"error":{"code":"internalError","message":"m/n","recoverable":true},"ok":false,"schemaVersion":1})",
      1};
  EXPECT_EQ(serve(request() + request(second)), 0);
  const auto failed = [](const std::string& id) {
    return R"({"error":{"code":"internalError","message":"m\/n","recoverable":true},"ok":false,"requestId":")" +
           id + "\",\"schemaVersion\":1}\n";
  };
  EXPECT_THAT(written, ElementsAre(ready, failed(first), failed(second)));
}

TEST_F(CaptureWorkerTest, ServesRequestsInTheirOrderHoweverTheyCome) {
  const std::string both = request(first) + request(second, R"(["prepare-capture","--request-json","e30="])");
  for (const std::size_t step : {both.size(), std::size_t{1}, std::size_t{50}, std::size_t{4096}}) {
    written.clear();
    asked.clear();
    pieces.clear();
    for (std::size_t at = 0; at < both.size(); at += step)
      pieces.push_back(both.substr(at, step));
    EXPECT_EQ(worker().run(), 0);
    EXPECT_THAT(written, ElementsAre(ready, response(first), response(second)));
    EXPECT_THAT(asked, ElementsAre(ElementsAre("list", "--exclude-parent-application"),
                                   ElementsAre("prepare-capture", "--request-json", "e30=")));
  }
}

TEST_F(CaptureWorkerTest, EndsAtAFragmentOfALine) {
  EXPECT_EQ(serve(request() + "{"), 2);
  EXPECT_THAT(written, ElementsAre(ready, response()));
  // Though it were whole with its line feed.
  std::string unfinished = request();
  unfinished.pop_back();
  written.clear();
  EXPECT_EQ(serve(unfinished), 2);
  EXPECT_THAT(written, ElementsAre(ready));
}

TEST_F(CaptureWorkerTest, EndsWhereItCannotRead) {
  readFails = true;
  EXPECT_EQ(serve(request()), 2);
  EXPECT_THAT(written, ElementsAre(ready, response()));
}

TEST_F(CaptureWorkerTest, ABadLineEndsItWithoutAnAnswer) {
  for (const std::string& line :
       {std::string("\n"), std::string("x\n"), std::string("[]\n"), std::string("null\n"),
        std::string("\r\n"), std::string(" \n"), std::string("\xFF\n"), std::string("{}\n"),
        R"({"schemaVersion":2,"requestId":")" + first + R"(","arguments":)" + listing + "}\n",
        R"({"schemaVersion":1,"requestId":"1","arguments":)" + listing + "}\n",
        request(first, R"(["status"])"), request(first, R"(["list"])"), request(first, R"([])"),
        request(first, R"(["prepare-capture","--request-json","***"])"),
        request(first, R"(["capture","--request-json","e30="])"), std::string(24577, '1')}) {
    written.clear();
    asked.clear();
    EXPECT_EQ(serve(request() + line + request(second)), 2) << line.substr(0, 200);
    EXPECT_THAT(written, ElementsAre(ready, response())) << "what came before is answered";
    EXPECT_EQ(asked.size(), 1U);
  }
}

// JSON may have any blanks between its tokens.
std::string padded(std::size_t length) {
  std::string line = request();
  line.insert(line.size() - 2, length + 1 - line.size(), ' ');
  return line;
}

TEST_F(CaptureWorkerTest, TakesALineOfTheLargestLength) {
  ASSERT_EQ(padded(24576).size(), 24577U);
  EXPECT_EQ(serve(padded(24576) + padded(24575)), 0);
  EXPECT_THAT(written, ElementsAre(ready, response(), response()));
  written.clear();
  EXPECT_EQ(serve(padded(24577)), 2);
  EXPECT_THAT(written, ElementsAre(ready));
}

TEST_F(CaptureWorkerTest, OutputThatIsNoJSONEndsIt) {
  for (const char* const output :
       {"", "no", "{", "{} {}", R"({"a":1e999})", R"({"a":"\ud800"})", "{\"a\":\"\xFF\"}"}) {
    written.clear();
    execution.output = output;
    EXPECT_EQ(serve(request() + request()), 2) << output;
    EXPECT_THAT(written, ElementsAre(ready));
  }
}

TEST_F(CaptureWorkerTest, OutputThatIsNoObjectEndsItAsFailed) {
  for (const char* const output : {"[]", "1", "null", R"("text")", "true"}) {
    written.clear();
    execution.output = output;
    EXPECT_EQ(serve(request() + request()), 1) << output;
    EXPECT_THAT(written, ElementsAre(ready));
  }
}

TEST_F(CaptureWorkerTest, AResponseMayNotReachTheLimit) {
  const std::size_t frame = response(first, R"({"t":""})").size() - 1;
  const auto withText = [](const std::string& text) {
    return R"({"data":{"t":")" + text + R"("},"ok":true,"schemaVersion":1})";
  };
  constexpr std::size_t limit = 4'194'304;
  execution.output = withText(std::string(limit - frame - 1, 'a'));
  EXPECT_EQ(serve(request()), 0);
  ASSERT_EQ(written.size(), 2U);
  EXPECT_EQ(written[1].size(), limit) << "with its line feed";
  // Slashes count as they are written.
  for (const std::string& text : {std::string(limit - frame, 'a'), std::string(limit, 'a'),
                                  std::string((limit - frame) / 2 + 1, '/')}) {
    written.clear();
    execution.output = withText(text);
    EXPECT_EQ(serve(request() + request()), 1);
    EXPECT_THAT(written, ElementsAre(ready)) << "no part of it either";
  }
}

TEST_F(CaptureWorkerTest, EndsWhenAnAnswerCannotBeWritten) {
  writesThatGoWell = 2;
  EXPECT_EQ(serve(request() + request(second) + request()), 2);
  EXPECT_THAT(written, ElementsAre(ready, response()));
  EXPECT_EQ(asked.size(), 2U);
}

TEST_F(CaptureWorkerTest, OnlyTheLoneWordAsksForIt) {
  EXPECT_TRUE(CaptureWorker::isAskedFor({"capture-worker"}));
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{},
                                                    {""},
                                                    {"capture-worker", ""},
                                                    {"capture-worker", "extra"},
                                                    {"Capture-worker"}})
    EXPECT_FALSE(CaptureWorker::isAskedFor(arguments));
}

} // namespace
} // namespace tessarin
