#include "AllSourcesFixture.hpp"

#include "DesktopFixture.hpp"
#include "base/FileSystem.hpp"
#include "container/Movie.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

namespace tessarin {

namespace {

// Of the line that tells a failure.
std::string stageIn(const std::string& diagnostics) {
  static const std::string head = "tessarin-native recording-failed stage=";
  const std::size_t begin = diagnostics.find(head);
  if (begin == std::string::npos)
    return "nothing";
  const std::size_t end = diagnostics.find(' ', begin + head.size());
  return diagnostics.substr(begin + head.size(), end - begin - head.size());
}

// Pictures of the first track, up to the last whole fragment; 0 for a file that holds none.
std::size_t picturesIn(const std::string& path) {
  try {
    return container::readMovie(*machineFileSystem().open(path, OpenMode::read)).tracks.at(0).samples.size();
  } catch (const container::ContainerFailure&) {
    return 0;
  }
}

} // namespace

AllSourcesFixture::AllSourcesFixture() {
  std::signal(SIGPIPE, SIG_IGN); // a lost server is nothing that ends the test
  std::filesystem::create_directory(session());
  const Reply list(runProgram({"list"}, {.display = desktop.display()}));
  displayID_ = list.data().member("displays")->at(0).member("id")->string();
}

std::unique_ptr<RecordingProcess> AllSourcesFixture::record(RecordingProcess::Environment further) const {
  const auto& needed = sound.environment();
  further.insert(further.end(), needed.begin(), needed.end());
  further.emplace_back("DISPLAY", desktop.display());
  return std::make_unique<RecordingProcess>(
      sessionID,
      R"({"sessionId":")" + sessionID + R"(","kind":"region","displayId":")" + displayID_ +
          R"(","rectPoints":{"x":0,"y":0,"width":320,"height":240},"outputDirectory":")" + session() +
          R"(","settings":{"microphone":true,"systemAudio":true,"camera":true,"cameraPosition":"bottomRight",)"
          R"("showsCursor":true,"showMouseClicks":true,"recordKeyboardShortcuts":true,"frameRate":15,)"
          R"("quality":"standard","outputScale":"original"}})",
      further, diagnosticsPath());
}

void AllSourcesFixture::recordAWhile(RecordingProcess& recording) {
  recording.waitForEvent("healthChanged"); // a second has been recorded
  FakeInput input(desktop.display());
  input.moveTo(200, 100);
  input.click();
  input.chord({KEY_LEFTCTRL}, KEY_J);
  EXPECT_TRUE(becomes([&] {
    return directory.read(sessionID + "/interaction-events.jsonl").find("\"J\"") != std::string::npos;
  }));
}

std::string AllSourcesFixture::endOf(RecordingProcess& recording, std::chrono::seconds limit) const {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  const auto left = [&] {
    return std::max(std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()),
                    std::chrono::milliseconds(1));
  };
  std::string outcome;
  while (outcome.empty()) {
    const json::Document event = recording.nextEvent(left());
    const std::string name = event.root().member("event")->string();
    if (name == "failed") {
      EXPECT_TRUE(event.root().member("error")->member("recoverable")->boolean());
      outcome = event.root().member("error")->member("code")->string();
    } else if (name == "completed") {
      outcome = name;
    }
  }
  const std::optional<int> status = recording.process().waitForEnd(left());
  EXPECT_TRUE(status) << "no end within " << limit.count() << " s";
  EXPECT_EQ(status, outcome == "completed" ? 0 : 1);
  EXPECT_TRUE(::kill(-recording.process().pid(), 0) == -1 && errno == ESRCH) << "something is left behind";
  return outcome == "completed" ? outcome : outcome + " at " + stageIn(directory.read("diagnostics"));
}

void AllSourcesFixture::expectFinishedSegments(std::size_t count) const {
  const std::vector<ManifestSegment> segments = manifestSegments(session());
  ASSERT_EQ(segments.size(), count);
  for (const ManifestSegment& each : segments) {
    EXPECT_EQ(static_cast<std::int64_t>(std::filesystem::file_size(each.path)), each.sizeBytes);
    const std::vector<double> times = pictureTimes(each.path);
    EXPECT_TRUE(std::is_sorted(times.begin(), times.end(), std::less_equal<>()));
    EXPECT_EQ(decodedPictures(each.path), static_cast<int>(times.size()));
  }
}

double AllSourcesFixture::recoveredMs() const {
  std::string paths;
  for (int i = 0; std::filesystem::exists(segment(i)); ++i)
    if (picturesIn(segment(i)) > 0)
      paths += (paths.empty() ? "\"" : ",\"") + segment(i) + "\"";
  const ProgramResult result = runProgram(withRequest(
      "recover-recording",
      R"({"sessionId":")" + sessionID + R"(","outputDirectory":")" + session() + R"(","segmentPaths":[)" +
          paths +
          R"(],"recoverCamera":true,"recoverSystemAudio":true,"recoverMicrophone":true,"recoverInteractions":true})"));
  const Reply reply(result);
  const json::Value tracks = *reply.data().member("tracks");
  EXPECT_EQ(tracks.arraySize(), 5U) << result.output;
  return tracks.at(0).member("durationMs")->number();
}

bool AllSourcesFixture::becomes(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline)
      return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

} // namespace tessarin
