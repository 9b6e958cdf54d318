#include "PngReaders.hpp"
#include "Program.hpp"
#include "WorkerProcess.hpp"

#include "support/PrivateOutputs.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <filesystem>

namespace tessarin {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t red = 0xFF0000FF; // as RRGGBBAA

// A worker on a server with outputs that come and go.
class WorkerOutputsTest : public testing::Test {
 protected:
  // What the worker prepares, which must be what the command does by itself.
  json::Document prepare() {
    session = fresh("worker");
    const json::Document ours(worker.prepare(session));
    const std::string alone = fresh("alone");
    const json::Document theirs(runProgram(preparation(alone), {.display = outputs.display()}).output);
    const auto context = [](const json::Document& document) {
      std::string text;
      json::appendValue(text, document.root().member("data")->member("context").value());
      return text;
    };
    EXPECT_EQ(context(ours), context(theirs));
    const std::size_t count = ours.root().member("data")->member("captures")->arraySize();
    for (std::size_t i = 0; i < count; ++i) {
      const std::string name = "/" + std::to_string(i) + ".png";
      EXPECT_TRUE(directory.read("worker/" + std::string(anyRequestID) + name) ==
                  directory.read("alone/" + std::string(anyRequestID) + name))
          << i;
    }
    return json::Document(worker.list());
  }
  std::string fresh(const std::string& parent) {
    fs::remove_all(directory / parent);
    fs::create_directories(directory / parent + "/" + std::string(anyRequestID));
    return directory / parent + "/" + std::string(anyRequestID);
  }
  std::size_t pictures() const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(session), fs::directory_iterator()));
  }

  PrivateOutputs outputs;
  TemporaryDirectory directory;
  WorkerProcess worker{outputs.display()};
  std::string session;
};

TEST_F(WorkerOutputsTest, FollowsOutputsAsTheyComeMoveAndGo) {
  outputs.arrange({{0, 0, "640x480"}});
  prepare();
  EXPECT_EQ(pictures(), 1U);
  EXPECT_EQ(readByAll(session + "/0.png").pixelCount(), 640U * 480U);

  // The second one above the first, the third with a gap beside it, which no display shows.
  outputs.arrange({{0, 600, "640x480"}, {0, 0, "800x600"}, {1000, 100, "1024x768"}});
  const auto client =
      outputs.client({"--at", "990,90", "--size", "20x20", "--colour", "ffff0000", "--style", "override"});
  const json::Document listed = prepare();
  const json::Value displays = listed.root().member("data")->member("displays").value();
  ASSERT_EQ(displays.arraySize(), 3U);
  EXPECT_EQ(pictures(), 3U);
  int seen = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    const json::Value frame = displays.at(i).member("framePoints").value();
    const auto width = static_cast<std::size_t>(frame.member("width")->number());
    const auto height = static_cast<std::size_t>(frame.member("height")->number());
    const ReadPicture picture = readByAll(session + "/" + std::to_string(i) + ".png");
    ASSERT_EQ(picture.pixelCount(), width * height) << i;
    EXPECT_EQ(displays.at(i).member("isPrimary")->boolean(), frame.member("y")->number() == 600) << i;
    const bool isThird = frame.member("x")->number() == 1000;
    seen += isThird ? 1 : 0;
    for (std::size_t pixel = 0; pixel < picture.pixelCount(); ++pixel)
      ASSERT_EQ(picture.at(pixel) == red, isThird && pixel % width < 10 && pixel / width < 10)
          << i << " " << pixel;
  }
  EXPECT_EQ(seen, 1);

  outputs.arrange({{0, 0, "800x600"}});
  prepare();
  EXPECT_EQ(pictures(), 1U);
  EXPECT_EQ(readByAll(session + "/0.png").pixelCount(), 800U * 600U);
  EXPECT_EQ(worker.end(), 0);
}

TEST_F(WorkerOutputsTest, ServesSixteenOutputs) {
  std::vector<PrivateOutputs::Output> all;
  for (int i = 0; i < PrivateOutputs::most; ++i)
    all.push_back({640 * (i % 4), 480 * (i / 4), "640x480"});
  outputs.arrange(all);
  prepare();
  EXPECT_EQ(pictures(), 16U);
  EXPECT_EQ(readByAll(session + "/15.png").pixelCount(), 640U * 480U);
}

TEST_F(WorkerOutputsTest, TellsThatASeventeenthDisplayIsTooMuch) {
  std::vector<PrivateOutputs::Output> all;
  for (int i = 0; i < PrivateOutputs::most; ++i)
    all.push_back({640 * (i % 4), 480 * (i / 4), "640x480"});
  outputs.arrange(all);
  ChildProcess xrandr({"xrandr", "--setmonitor", "more", "100/100x100/100+0+1920", "none"},
                      {.environment = {{"DISPLAY", outputs.display()}}});
  ASSERT_EQ(xrandr.waitForEnd(), 0);
  session = fresh("worker");
  EXPECT_EQ(envelopeOf(worker.prepare(session)) + "\n",
            failureReply("contentUnavailable", "Shareable screen content is temporarily unavailable."));
  EXPECT_TRUE(fs::is_empty(session));
}

} // namespace
} // namespace tessarin
