#pragma once

#include "DesktopFixture.hpp"
#include "RecordingProcess.hpp"

#include "live/InteractionTesting.hpp"
#include "support/PrivateSoundServer.hpp"
#include "support/TemporaryDirectory.hpp"
#include "trace/InteractionEventDTO.hpp"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <variant>
#include <vector>

namespace tessarin {

// What is recorded, of what, and with which panels beside it.
struct InteractionRecordingOptions {
  std::string kind = "display";
  RectDTO rect = {0, 0, 1, 1};
  std::string windowID; // of a window
  bool camera = false;
  bool cursor = true;
  bool clicks = true;
  bool shortcuts = true;
  bool drawsPointer = true; // into the pictures, where the cursor is recorded
};

using Shortcuts = std::vector<std::vector<std::string>>;

// Recordings by the built program of a desktop of 800 by 600 pixels, with somebody at its pointer and
// keyboard. Nothing of the machine's own session is asked.
class InteractionsFixture : public DesktopFixture {
 protected:
  InteractionsFixture();

  const std::string& session() const { return session_; }
  std::string tracePath() const { return session_ + "/interaction-events.jsonl"; }
  std::string layoutPath() const { return session_ + "/camera-layout.json"; }
  std::string diagnosticsPath() const { return directory / "diagnostics"; }
  // Before the recording: it goes into a directory there.
  void recordInto(const std::string& parent);

  // Starts a camera, and the server that it is on. The recordings from then on can have it.
  void plugInCamera();

  // With further variables for the program. It has not begun to record when this returns.
  std::unique_ptr<RecordingProcess> start(const InteractionRecordingOptions& options,
                                          RecordingProcess::Environment further = {});
  // Ends it by "stop". The completed event.
  json::Document complete(RecordingProcess& recording);
  // Follows the recording to its end, which is this failure, at this stage.
  void expectFailure(RecordingProcess& recording, const std::string& code, const std::string& message,
                     const std::string& stage) const;

  // The trace as it is now; it may still grow.
  std::vector<InteractionEventDTO> trace() const;
  template<class Event> std::vector<Event> events() const {
    std::vector<Event> found;
    for (const InteractionEventDTO& each : trace())
      if (const auto* event = std::get_if<Event>(&each.event))
        found.push_back(*event);
    return found;
  }
  Shortcuts shortcuts() const;
  // Presses the key, which is one that no test types otherwise, and waits until it stands in the trace: all
  // that was typed before has been dealt with then.
  void awaitMark(std::uint16_t key = KEY_F6, const std::string& label = "F6");

  // Every file of the session and what the program said, by name.
  std::map<std::string, std::string> everythingLeft(const RecordingProcess& recording) const;

  // Whether it becomes true in ten seconds.
  static bool becomes(const std::function<bool()>& condition);
  // What is really to be seen at a place of the desktop, as 0xRRGGBB.
  std::uint32_t colourAt(int x, int y);
  std::string textOf(const std::string& path) const;

  static constexpr std::chrono::milliseconds aWhile{300};
  const TemporaryDirectory directory;
  FakeInput input{desktop.display()};
  std::unique_ptr<PrivateSoundServer> sound;
  std::unique_ptr<TestSource> camera;

 private:
  std::string session_;
};

} // namespace tessarin
