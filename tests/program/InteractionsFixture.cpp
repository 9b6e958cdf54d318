#include "InteractionsFixture.hpp"

#include "trace/InteractionEventFile.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace tessarin {

namespace {

const std::string sessionID = "0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69";

std::string requestJSON(const InteractionRecordingOptions& options, const std::string& displayID,
                        const std::string& outputDirectory) {
  const std::string presentation =
      options.drawsPointer
          ? ""
          : R"("presentation":{"cursorStyle":"dark","cursorScale":100,"cameraBorder":true},)";
  std::ostringstream text;
  text << std::boolalpha << R"({"sessionId":")" << sessionID << R"(","kind":")" << options.kind
       << R"(","displayId":")" << displayID << '"';
  if (!options.windowID.empty())
    text << R"(,"windowId":")" << options.windowID << '"';
  text << R"(,"rectPoints":{"x":)" << options.rect.x << R"(,"y":)" << options.rect.y << R"(,"width":)"
       << options.rect.width << R"(,"height":)" << options.rect.height << R"(},"outputDirectory":")"
       << outputDirectory << R"(","settings":{)" << presentation
       << R"("systemAudio":false,"microphone":false,"camera":)" << options.camera
       << R"(,"cameraPosition":"bottomRight","showsCursor":)" << options.cursor << R"(,"showMouseClicks":)"
       << options.clicks << R"(,"recordKeyboardShortcuts":)" << options.shortcuts
       << R"(,"frameRate":30,"quality":"high","outputScale":"original"}})";
  return text.str();
}

} // namespace

InteractionsFixture::InteractionsFixture() {
  // A lost server is nothing that ends the test.
  std::signal(SIGPIPE, SIG_IGN);
  recordInto(directory.path());
}

void InteractionsFixture::recordInto(const std::string& parent) {
  session_ = parent + "/" + sessionID;
  std::filesystem::create_directory(session_);
}

void InteractionsFixture::plugInCamera() {
  sound = std::make_unique<PrivateSoundServer>();
  camera = sound->source({"camera"});
}

std::unique_ptr<RecordingProcess> InteractionsFixture::start(const InteractionRecordingOptions& options,
                                                             RecordingProcess::Environment further) {
  if (sound) {
    const auto& needed = sound->environment();
    further.insert(further.end(), needed.begin(), needed.end());
  } else if (further.empty()) {
    further = {{"DBUS_SESSION_BUS_ADDRESS", "disabled:"}, {"AT_SPI_BUS_ADDRESS", ""}};
  }
  further.emplace_back("DISPLAY", desktop.display());
  return std::make_unique<RecordingProcess>(sessionID, requestJSON(options, displayID(), session_), further,
                                            diagnosticsPath());
}

json::Document InteractionsFixture::complete(RecordingProcess& recording) {
  recording.send("stop");
  json::Document completed = recording.waitForEvent("completed");
  EXPECT_EQ(recording.process().waitForEnd(), 0);
  return completed;
}

void InteractionsFixture::expectFailure(RecordingProcess& recording, const std::string& code,
                                        const std::string& message, const std::string& stage) const {
  const json::Document failed = recording.waitForEvent("failed");
  const json::Value error = *failed.root().member("error");
  EXPECT_EQ(error.member("code")->string(), code);
  EXPECT_EQ(error.member("message")->string(), message);
  EXPECT_TRUE(error.member("recoverable")->boolean());
  EXPECT_EQ(recording.process().waitForEnd(std::chrono::seconds(5)), 1);
  EXPECT_NE(textOf(diagnosticsPath()).find("stage=" + stage + " "), std::string::npos)
      << textOf(diagnosticsPath());
}

std::vector<InteractionEventDTO> InteractionsFixture::trace() const {
  return InteractionEventFile::parse(textOf(tracePath()));
}

Shortcuts InteractionsFixture::shortcuts() const {
  Shortcuts found;
  for (const InteractionShortcutEvent& event : events<InteractionShortcutEvent>())
    found.push_back(event.keys);
  return found;
}

void InteractionsFixture::awaitMark(std::uint16_t key, const std::string& label) {
  input.tap(key);
  EXPECT_TRUE(becomes([&] {
    const Shortcuts found = shortcuts();
    return std::find(found.begin(), found.end(), std::vector{label}) != found.end();
  })) << label;
}

std::map<std::string, std::string>
InteractionsFixture::everythingLeft(const RecordingProcess& recording) const {
  std::map<std::string, std::string> everything = {{"events", recording.output()},
                                                   {"diagnostics", textOf(diagnosticsPath())}};
  for (const auto& entry : std::filesystem::recursive_directory_iterator(session_))
    if (entry.is_regular_file())
      everything[entry.path()] = textOf(entry.path());
  return everything;
}

bool InteractionsFixture::becomes(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline)
      return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

std::uint32_t InteractionsFixture::colourAt(int x, int y) {
  auto& connection = input.connection;
  const auto reply =
      connection.required(xcb_get_image_reply, xcb_get_image(connection.get(), XCB_IMAGE_FORMAT_Z_PIXMAP,
                                                             connection.root(), static_cast<std::int16_t>(x),
                                                             static_cast<std::int16_t>(y), 1, 1, ~0U));
  const std::uint8_t* const bytes = xcb_get_image_data(reply.get());
  return bytes[2] << 16U | bytes[1] << 8U | bytes[0];
}

std::string InteractionsFixture::textOf(const std::string& path) const {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

} // namespace tessarin
