#pragma once

#include "Program.hpp"
#include "RecordedFiles.hpp"
#include "RecordingProcess.hpp"

#include "live/InteractionTesting.hpp"
#include "support/PrivateDesktop.hpp"
#include "support/PrivateSoundServer.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tessarin {

// Recordings by the built program of all that can be recorded: a region of a desktop with a window manager,
// the computer's sound, a microphone, a camera on its panel, the trace and badges of shortcuts.
class AllSourcesFixture : public testing::Test {
 protected:
  AllSourcesFixture();

  std::string session() const { return directory / sessionID; }
  std::string at(const std::string& name) const { return session() + "/" + name; }
  std::string segment(int index) const { return at("segments/segment-000" + std::to_string(index) + ".mp4"); }

  std::unique_ptr<RecordingProcess> record(RecordingProcess::Environment further = {}) const;
  // Returns when the recording has begun and something of everything has been recorded, with a badge shown.
  void recordAWhile(RecordingProcess& recording);

  // Follows the recording to its last event, and waits until the program has ended, which is before the time
  // is up. What it says of its end: "completed", or the error's code and the stage, as "recordingFailed at
  // cancel". No process that it has started is left, and its status fits.
  std::string endOf(RecordingProcess& recording, std::chrono::seconds limit) const;

  // So many segments are finished and whole, in the manifest's order.
  void expectFinishedSegments(std::size_t count) const;
  // All segments that hold something can be recovered together, with all their tracks; their length in
  // milliseconds.
  double recoveredMs() const;

  // Whether it becomes so before the time is up.
  static bool becomes(const std::function<bool()>& condition,
                      std::chrono::milliseconds limit = std::chrono::seconds(10));

  static inline const std::string sessionID = "0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69";

  PrivateDesktop desktop{{.width = 800, .height = 600, .hasWindowManager = true}};
  const TemporaryDirectory directory;
  PrivateSoundServer sound;
  const std::unique_ptr<TestClient> animation =
      desktop.client({"--style", "override", "--paint", "counter", "--fps", "15", "--size", "320x240"});
  std::unique_ptr<TestSource> player = sound.source({"player", "--amplitude", "0.25"});
  std::unique_ptr<TestSource> microphone = sound.source({"microphone", "--amplitude", "0.25"});
  std::unique_ptr<TestSource> camera = sound.source({"camera"});

 private:
  std::string diagnosticsPath() const { return directory / "diagnostics"; }

  std::string displayID_;
};

} // namespace tessarin
