// The panels of a session: when they are there, that they are left out of the picture, and what the session
// makes of their failures.

#include "project/VideoCameraLayer.hpp"
#include "recording/RecordedCameraLayout.hpp"
#include "support/RecordingServiceTesting.hpp"

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using namespace tessarin::testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Rig = RecordingRig;

const std::string layoutFile = "camera-layout.json";

// With a camera, and badges of shortcuts. The camera's panel is the first.
struct PanelRig : Rig {
  PanelRig() {
    request.settings.camera = true;
    request.settings.recordKeyboardShortcuts = true;
    hasListenEventAccess = true;
  }
  ScriptedPanel& cameraPanel() { return *panels.panels.at(0); }
  ScriptedPanel& badge() { return *panels.panels.at(1); }
  std::vector<VideoCameraPositionDTO> positions() const {
    return json::decode<RecordedCameraLayout>(read(layoutFile)).camera.recordedPositions.value();
  }
  void drag(double x, double y) {
    cameraPanel().mouseDown(1700, 900);
    cameraPanel().mouseDragged(1700 + x, 900 + y);
    cameraPanel().mouseUp();
    scheduler.advance(0ms); // the file is saved behind what the panel does
  }
};

std::vector<std::int64_t> timesOf(const std::vector<VideoCameraPositionDTO>& positions) {
  std::vector<std::int64_t> times;
  for (const VideoCameraPositionDTO& position : positions)
    times.push_back(position.sourceTimeMs);
  return times;
}

TEST(RecordingServiceOverlays, PanelsFloatOverTheCaptureAndAreLeftOutOfIt) {
  PanelRig rig;
  rig.then([&] {
    EXPECT_EQ(rig.panels.openCount(), 2u);
    // 384 by 288 in the corner of the display, 24 from its edges.
    EXPECT_EQ(rig.cameraPanel().frame(), (RectDTO{100 + 1512, 50 + 768, 384, 288}));
    EXPECT_EQ(rig.stream().filter.excludedApplications, std::vector<RunningApplication>{rig.desktop.self});
    rig.record(500ms);
    rig.send("stop");
  });
  ASSERT_EQ(rig.run(), 0);
  EXPECT_EQ(rig.panels.openCount(), 0u);
  expectQuiet(rig);
}

TEST(RecordingServiceOverlays, BadgesAloneAreLeftOutToo) {
  PanelRig rig;
  rig.request.settings.camera = false;
  rig.thenSend("cancel");
  ASSERT_EQ(rig.run(), 0);
  EXPECT_EQ(rig.stream().filter.excludedApplications, std::vector<RunningApplication>{rig.desktop.self});
  EXPECT_THAT(rig.entries(), ElementsAre("segments/"));
}

TEST(RecordingServiceOverlays, WithoutPanelsNothingIsLeftOut) {
  Rig rig;
  rig.thenSend("cancel");
  ASSERT_EQ(rig.run(), 0);
  EXPECT_THAT(rig.stream().filter.excludedApplications, IsEmpty());
  EXPECT_THAT(rig.panels.panels, IsEmpty());
}

// A host that hides programs by their process may hide this one already.
TEST(RecordingServiceOverlays, AProgramIsLeftOutOnce) {
  PanelRig rig;
  rig.contentService.emplace(rig.desktop, std::set<std::string, std::less<>>{},
                             std::set<std::int32_t>{rig.desktop.ownerPID, rig.desktop.self.processID});
  rig.thenSend("cancel");
  ASSERT_EQ(rig.run(), 0);
  ASSERT_EQ(rig.stream().filter.excludedApplications.size(), 2u);
  EXPECT_EQ(rig.stream().filter.excludedApplications[0], rig.desktop.self);
  EXPECT_EQ(rig.stream().filter.excludedApplications[1].processID, rig.desktop.ownerPID);
}

TEST(RecordingServiceOverlays, AWindowIsRecordedByItself) {
  PanelRig rig;
  const RecordingSettingsDTO settings = rig.request.settings;
  rig.ask(CaptureKind::window);
  rig.request.settings = settings;
  rig.desktop.hidesPanels = true; // nobody looks for them
  rig.then([&] {
    EXPECT_EQ(rig.panels.openCount(), 2u);
    EXPECT_EQ(rig.stream().filter.kind, ContentFilter::Kind::desktopIndependentWindow);
    EXPECT_THAT(rig.stream().filter.excludedApplications, IsEmpty());
    rig.send("cancel");
  });
  EXPECT_EQ(rig.run(), 0);
}

TEST(RecordingServiceOverlays, TheCamerasWayIsKeptInActiveTime) {
  PanelRig rig;
  rig.then([&] {
    rig.record(1s);
    rig.drag(-96, 0);
    EXPECT_THAT(timesOf(rig.positions()), ElementsAre(0, 1000)) << "current after each drag";
    rig.send("pause");
  });
  rig.then([&] {
    rig.clock.advance(1min);
    rig.drag(-96, 0); // is where the next segment begins
    rig.send("resume");
  });
  rig.then([&] {
    EXPECT_EQ(rig.cameraPanel().frame(), (RectDTO{100 + 1512 - 192, 50 + 768, 384, 288}));
    rig.record(500ms);
    rig.drag(0, -108);
    rig.send("stop");
  });
  ASSERT_EQ(rig.run(), 0);
  const std::vector<VideoCameraPositionDTO> positions = rig.positions();
  ASSERT_THAT(timesOf(positions), ElementsAre(0, 1000, 1033, 1533));
  EXPECT_DOUBLE_EQ(positions[0].rect.x, 1512.0 / 1920);
  EXPECT_DOUBLE_EQ(positions[1].rect.x, (1512.0 - 96) / 1920);
  EXPECT_DOUBLE_EQ(positions[2].rect.x, (1512.0 - 192) / 1920);
  EXPECT_DOUBLE_EQ(positions[3].rect.y, (768.0 - 108) / 1080);
}

TEST(RecordingServiceOverlays, TheCameraGoesWithTheStopBeforeTheLastSegmentIsFinished) {
  PanelRig rig;
  rig.onEvent = [&](const std::string& event) {
    if (event.find("stopping") != std::string::npos) {
      EXPECT_TRUE(rig.cameraPanel().isClosed);
      EXPECT_FALSE(rig.badge().showsPicture());
    }
  };
  rig.then([&] {
    rig.record(1s);
    rig.pressShortcut();
    rig.scheduler.runPending();
    EXPECT_TRUE(rig.badge().showsPicture());
    rig.send("stop");
  });
  ASSERT_EQ(rig.run(), 0);
}

TEST(RecordingServiceOverlays, ABadgeGoesWithItsTimeAndWithAPause) {
  PanelRig rig;
  rig.then([&] {
    rig.record(1s);
    rig.pressShortcut();
    rig.scheduler.advance(1499ms);
    EXPECT_TRUE(rig.badge().showsPicture());
    rig.scheduler.advance(1ms);
    EXPECT_FALSE(rig.badge().showsPicture());
    rig.pressShortcut();
    rig.scheduler.runPending();
    EXPECT_TRUE(rig.badge().showsPicture());
    rig.send("pause");
  });
  rig.then([&] {
    rig.scheduler.runPending();
    EXPECT_FALSE(rig.badge().showsPicture());
    rig.pressShortcut();
    rig.scheduler.runPending();
    EXPECT_FALSE(rig.badge().showsPicture()) << "nothing is recorded now";
    rig.send("cancel");
  });
  EXPECT_EQ(rig.run(), 0);
}

// ---- Failures

TEST(RecordingServiceOverlays, AnOlderLayoutIsNotReplaced) {
  PanelRig rig;
  rig.write(layoutFile, "old");
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(), ElementsAre(outputFailed));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("camera-overlay", "outputFailed"));
  EXPECT_EQ(rig.read(layoutFile), "old");
  EXPECT_EQ(rig.panels.openCount(), 0u);
  expectDevicesStopped(rig);
}

TEST(RecordingServiceOverlays, ADesktopWithoutPanelsHasNoCameraRecording) {
  PanelRig rig;
  rig.panels.refuses = true;
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(), ElementsAre(contentUnavailable));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("camera-overlay", "contentUnavailable"));
  expectDevicesStopped(rig);
}

TEST(RecordingServiceOverlays, PanelsThatCannotBeLeftOutEndTheStart) {
  PanelRig rig;
  rig.desktop.hidesPanels = true;
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(), ElementsAre(contentUnavailable));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("exclude-recording-overlays", "contentUnavailable"));
  EXPECT_EQ(rig.panels.openCount(), 0u);
  EXPECT_THAT(rig.streams.streams, IsEmpty());
  expectDevicesStopped(rig);
}

TEST(RecordingServiceOverlays, ALayoutThatCannotBeKeptEndsTheSessionAndItsSegmentIsKept) {
  PanelRig rig;
  rig.then([&] {
    rig.record(1s);
    rig.files.inject({.operation = FileOperation::open, .pathPart = "camera-layout", .times = 1});
    rig.drag(-96, 0);
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_EQ(rig.lastEvent(), recordingFailed);
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("unexpected-stream-stop"));
  EXPECT_EQ(manifestSegments(rig).size(), 1u);
  EXPECT_EQ(rig.panels.openCount(), 0u);
  expectQuiet(rig);
}

TEST(RecordingServiceOverlays, ALayoutThatCannotBeFinishedFailsTheStep) {
  for (const auto& [command, stage] : {std::pair{"pause", "pause-finalize"}, {"stop", "stop-finalize"}}) {
    PanelRig rig;
    rig.onEvent = [&](const std::string& event) {
      if (event.find("segmentFinalized") != std::string::npos)
        rig.files.inject({.operation = FileOperation::open, .pathPart = "camera-layout", .times = 1});
    };
    rig.then([&, command = std::string(command)] {
      rig.record(1s);
      rig.send(command);
    });
    EXPECT_EQ(rig.run(), 1);
    EXPECT_EQ(rig.lastEvent(), outputFailed) << command;
    EXPECT_EQ(rig.lastDiagnostics(), failedLine(stage, "outputFailed"));
    EXPECT_EQ(manifestSegments(rig).size(), 1u);
    EXPECT_EQ(rig.positions().size(), 1u) << "what was written before is whole";
    expectQuiet(rig);
  }
}

TEST(RecordingServiceOverlays, AFailedSessionKeepsTheCamerasWayAndTakesTheBadgeDown) {
  PanelRig rig;
  bool wasFinalized = false;
  rig.onEvent = [&](const std::string& event) {
    if (event.find("segmentFinalized") == std::string::npos)
      return;
    wasFinalized = true;
    EXPECT_FALSE(rig.badge().showsPicture());
    EXPECT_THAT(timesOf(rig.positions()), ElementsAre(0, 1000)) << "though the button is still down";
  };
  rig.then([&] {
    rig.record(1s);
    rig.cameraPanel().mouseDown(1700, 900);
    rig.cameraPanel().mouseDragged(1600, 900);
    rig.pressShortcut();
    rig.scheduler.runPending();
    EXPECT_TRUE(rig.badge().showsPicture());
    rig.endInput();
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_TRUE(wasFinalized);
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("unexpected-stream-stop"));
  EXPECT_THAT(timesOf(rig.positions()), ElementsAre(0, 1000));
  EXPECT_EQ(rig.panels.openCount(), 0u);
}

TEST(RecordingServiceOverlays, ACancelledSessionHasNoPanels) {
  PanelRig rig;
  rig.then([&] {
    rig.record(500ms);
    rig.send("cancel");
  });
  ASSERT_EQ(rig.run(), 0);
  EXPECT_EQ(rig.lastEvent(), cancelled);
  EXPECT_EQ(rig.panels.openCount(), 0u);
  EXPECT_THAT(rig.entries(), ElementsAre(layoutFile, "segments/"));
}

} // namespace
} // namespace tessarin
