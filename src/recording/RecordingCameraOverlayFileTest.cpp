// What the camera's panel writes down, when, and what happens when it cannot.

#include "recording/RecordingCameraOverlay.hpp"

#include "support/RecordingOverlayRig.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <linux/input-event-codes.h>

#include <cerrno>
#include <cmath>
#include <filesystem>
#include <utility>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using namespace tessarin::testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

const NativeServiceError outputFailed{NativeErrorCode::outputFailed,
                                      "The screenshot could not be written to its temporary output.", true};
constexpr std::uint64_t epoch = 10'000'000'000; // the clock's beginning

using TimeAndLeft = std::pair<std::int64_t, int>; // milliseconds, points from the capture's left edge

class RecordingCameraOverlayFileTest : public ::testing::Test {
 protected:
  // At the top left, so that a whole number of points lies to its left.
  RecordingCameraOverlayFileTest() { rig.request.settings.cameraPosition = CameraPosition::topLeft; }

  void show() {
    overlay.emplace(rig.environment(), rig.source, rig.request, rig.plan, [this] { ++failures; });
  }
  std::optional<NativeServiceError> errorOfShow() {
    return serviceErrorOf([this] { show(); });
  }
  std::optional<NativeServiceError> errorOfFinish(std::int64_t durationMs) {
    return serviceErrorOf([&] { overlay->finish(durationMs); });
  }
  RecordedCameraLayout written() const {
    return json::decode<RecordedCameraLayout>(json::Document(rig.layout()).root());
  }
  // The positions in the file.
  std::vector<TimeAndLeft> way() const {
    std::vector<TimeAndLeft> all;
    const RecordedCameraLayout layout = written();
    for (const VideoCameraPositionDTO& position : layout.camera.recordedPositions.value())
      all.emplace_back(position.sourceTimeMs, static_cast<int>(std::lround(position.rect.x * 1920)));
    return all;
  }

  // What is due at once runs, such as a save.
  void settle() { rig.scheduler.advance(0ms); }

  RecordingOverlayRig rig;
  std::optional<RecordingCameraOverlay> overlay;
  int failures = 0;
};

TEST_F(RecordingCameraOverlayFileTest, WritesTheWholeLayoutWhenItIsShown) {
  rig.request.settings.cameraPosition = CameraPosition::bottomRight;
  show();
  const std::string rect = R"({"height":0.26666666666666666,"width":0.2,"x":0.7875,"y":0.7111111111111111})";
  EXPECT_EQ(rig.layout(), R"({"camera":{"borderVisible":true,"mirrored":true,"recordedPositions":[{"rect":)" +
                              rect + R"(,"sourceTimeMs":0}],"rect":)" + rect +
                              R"(,"shape":"rounded","visible":true},"schemaVersion":1,"sessionId":")" +
                              sampleSessionID + R"("})");
  EXPECT_THAT(rig.entries(), ElementsAre("camera-layout.json"));
  EXPECT_EQ(rig.files.info(rig.layoutPath())->permissions & 0700, 0600U);
}

TEST_F(RecordingCameraOverlayFileTest, TakesTheLayersValuesFromTheSettings) {
  struct Row {
    std::optional<bool> mirrored;
    std::optional<bool> border; // without one there is no presentation
    bool isMirrored, hasBorder;
  };
  for (const Row& row : {Row{std::nullopt, std::nullopt, true, true}, Row{true, true, true, true},
                         Row{false, false, false, false}, Row{std::nullopt, false, true, false},
                         Row{false, std::nullopt, false, true}}) {
    RecordingOverlayRig own;
    own.request.settings.cameraPreviewMirrored = row.mirrored;
    if (row.border)
      own.request.settings.presentation.emplace().cameraBorder = *row.border;
    const RecordingCameraOverlay camera(own.environment(), own.source, own.request, own.plan, [] {});
    const auto layer = json::decode<RecordedCameraLayout>(json::Document(own.layout()).root()).camera;
    EXPECT_TRUE(layer.visible);
    EXPECT_EQ(layer.shape, VideoCameraShapeDTO::rounded);
    EXPECT_EQ(layer.mirrored, row.isMirrored);
    EXPECT_EQ(layer.borderVisible, row.hasBorder);
  }
}

TEST_F(RecordingCameraOverlayFileTest, RefusesAFileThatIsThereAndLeavesIt) {
  rig.directory.write("camera-layout.json", "older");
  EXPECT_EQ(errorOfShow(), outputFailed);
  EXPECT_EQ(rig.layout(), "older");
  EXPECT_THAT(rig.entries(), ElementsAre("camera-layout.json"));
  EXPECT_THAT(rig.panels.panels, IsEmpty());
  EXPECT_EQ(failures, 0);
}

TEST_F(RecordingCameraOverlayFileTest, RefusesALinkToNothingAndADirectoryToo) {
  std::filesystem::create_symlink(rig.directory / "nowhere", rig.layoutPath());
  EXPECT_EQ(errorOfShow(), outputFailed);
  EXPECT_TRUE(std::filesystem::is_symlink(rig.layoutPath()));
  EXPECT_FALSE(std::filesystem::exists(rig.directory / "nowhere"));
  std::filesystem::remove(rig.layoutPath());
  std::filesystem::create_directory(rig.layoutPath());
  EXPECT_EQ(errorOfShow(), outputFailed);
  EXPECT_TRUE(std::filesystem::is_directory(rig.layoutPath()));
}

TEST_F(RecordingCameraOverlayFileTest, LeavesNothingWhenTheFirstWriteFails) {
  for (const FileOperation operation : {FileOperation::info, FileOperation::open, FileOperation::write,
                                        FileOperation::sync, FileOperation::rename}) {
    rig.files.failNth(operation, 1, ENOSPC);
    EXPECT_EQ(errorOfShow(), outputFailed) << static_cast<int>(operation);
    rig.files.clearFaults();
    EXPECT_THAT(rig.entries(), IsEmpty()) << static_cast<int>(operation);
  }
  EXPECT_THAT(rig.panels.panels, IsEmpty());
  EXPECT_EQ(failures, 0);
}

TEST_F(RecordingCameraOverlayFileTest, LeavesNoFileWhenThereCanBeNoPanel) {
  rig.panels.refuses = true;
  EXPECT_EQ(errorOfShow(),
            (NativeServiceError{NativeErrorCode::contentUnavailable,
                                "Shareable screen content is temporarily unavailable.", true}));
  EXPECT_THAT(rig.entries(), IsEmpty());
  EXPECT_EQ(rig.scheduler.timerCount(), 0U);
}

TEST_F(RecordingCameraOverlayFileTest, RefusesASessionThatCannotBeWrittenAsText) {
  rig.request.sessionID = "\xFF";
  EXPECT_EQ(errorOfShow(), outputFailed);
  EXPECT_THAT(rig.entries(), IsEmpty());
}

TEST_F(RecordingCameraOverlayFileTest, BeforeTheFirstSegmentAMoveOnlyChangesWhereItBegins) {
  show();
  overlay->move({10, 0});
  rig.panel().mouseUp();
  settle();
  EXPECT_THAT(way(), ElementsAre(Pair(0, 24)));
  EXPECT_DOUBLE_EQ(written().camera.rect.x * 1920, 34);
  overlay->startSegment(0, epoch);
  overlay->pauseSegment();
  EXPECT_THAT(way(), ElementsAre(Pair(0, 34)));
}

TEST_F(RecordingCameraOverlayFileTest, CountsMovesFromTheSegmentsEpochInWholeMilliseconds) {
  show();
  overlay->startSegment(5000, epoch);
  overlay->move({1, 0});
  rig.clock.set(10s + 999'999ns);
  overlay->move({1, 0});
  rig.clock.set(10s + 1'000'000ns);
  overlay->move({1, 0});
  rig.clock.set(12s + 1'999'999ns);
  overlay->move({1, 0});
  overlay->pauseSegment();
  EXPECT_THAT(way(), ElementsAre(Pair(0, 24), Pair(5000, 26), Pair(5001, 27), Pair(7001, 28)));
}

TEST_F(RecordingCameraOverlayFileTest, AMoveBeforeTheEpochIsNotWrittenDown) {
  show();
  overlay->startSegment(0, epoch + 1);
  overlay->move({5, 0});
  overlay->pauseSegment();
  EXPECT_THAT(way(), ElementsAre(Pair(0, 24)));
  overlay->startSegment(0, epoch);
  overlay->move({5, 0});
  overlay->pauseSegment();
  EXPECT_THAT(way(), ElementsAre(Pair(0, 34)));
}

TEST_F(RecordingCameraOverlayFileTest, TwoMovesInOneMillisecondLeaveOnePosition) {
  show();
  overlay->startSegment(0, epoch);
  rig.clock.set(10s + 40ms);
  overlay->move({1, 0});
  rig.clock.set(10s + 40ms + 900us);
  overlay->move({1, 0});
  overlay->pauseSegment();
  EXPECT_THAT(way(), ElementsAre(Pair(0, 24), Pair(40, 26)));
}

TEST_F(RecordingCameraOverlayFileTest, AMoveThatChangesNothingIsNotWrittenDown) {
  show();
  overlay->startSegment(0, epoch);
  overlay->move({-5000, 0});
  rig.clock.set(11s);
  overlay->move({-1, 0});
  overlay->pauseSegment();
  EXPECT_THAT(way(), ElementsAre(Pair(0, 0)));
}

TEST_F(RecordingCameraOverlayFileTest, WhilePausedThePanelMovesAndTheNextSegmentBeginsThere) {
  show();
  overlay->startSegment(0, epoch);
  rig.clock.set(11s);
  overlay->move({1, 0});
  overlay->pauseSegment();
  overlay->finish(1500);
  rig.clock.set(60s);
  overlay->move({100, 0});
  EXPECT_EQ(rig.panel().frame().x, 225);
  rig.panel().mouseUp();
  settle();
  EXPECT_THAT(way(), ElementsAre(Pair(0, 24), Pair(1000, 25)));
  rig.clock.set(70s);
  overlay->startSegment(1500, 70'000'000'000);
  rig.clock.set(70s + 250ms);
  overlay->move({1, 0});
  overlay->finish(2000);
  EXPECT_THAT(way(), ElementsAre(Pair(0, 24), Pair(1000, 25), Pair(1500, 125), Pair(1750, 126)));
}

TEST_F(RecordingCameraOverlayFileTest, IsCurrentBehindEachDragAndEachArrow) {
  show();
  overlay->startSegment(0, epoch);
  rig.clock.set(11s);
  rig.panel().mouseDown(200, 100);
  rig.panel().mouseDragged(207, 100);
  EXPECT_THAT(way(), ElementsAre(Pair(0, 24))) << "not while it is dragged";
  rig.panel().mouseUp();
  settle();
  EXPECT_THAT(way(), ElementsAre(Pair(0, 24), Pair(1000, 31)));
  rig.clock.set(12s);
  rig.panel().keyDown(KEY_RIGHT);
  settle();
  EXPECT_THAT(way(), ElementsAre(Pair(0, 24), Pair(1000, 31), Pair(2000, 32)));
  rig.clock.set(13s);
  rig.panel().mouseDown(200, 100);
  rig.panel().mouseDragged(300, 100);
  rig.clock.set(14s);
  rig.panel().keyDown(KEY_ESC);
  rig.panel().mouseUp();
  settle();
  EXPECT_THAT(way(),
              ElementsAre(Pair(0, 24), Pair(1000, 31), Pair(2000, 32), Pair(3000, 132), Pair(4000, 32)));
}

TEST_F(RecordingCameraOverlayFileTest, SavesOnceForAllKeysThatWaitTogether) {
  show();
  overlay->startSegment(0, epoch);
  rig.files.clearLog();
  for (int press = 0; press < 50; ++press) {
    rig.clock.advance(1ms);
    rig.panel().keyDown(KEY_RIGHT);
  }
  EXPECT_EQ(rig.files.count(FileOperation::rename), 0U);
  settle();
  EXPECT_EQ(rig.files.count(FileOperation::rename), 1U);
  EXPECT_EQ(way().back(), TimeAndLeft(50, 74));
  rig.panel().keyDown(KEY_RIGHT);
  overlay->pauseSegment();
  settle();
  EXPECT_EQ(rig.files.count(FileOperation::rename), 2U) << "a pause has saved it already";
}

TEST_F(RecordingCameraOverlayFileTest, WritesNothingByItselfOnceItIsClosed) {
  show();
  rig.files.clearLog();
  rig.panel().keyDown(KEY_RIGHT);
  overlay->close();
  EXPECT_EQ(rig.scheduler.timerCount(), 0U);
  settle();
  EXPECT_EQ(rig.files.count(FileOperation::rename), 0U);
}

TEST_F(RecordingCameraOverlayFileTest, FinishDropsWhatIsLaterThanTheEnd) {
  show();
  overlay->startSegment(0, epoch);
  for (const auto time : {1000ms, 2000ms, 2001ms}) {
    rig.clock.set(10s + time);
    overlay->move({1, 0});
  }
  EXPECT_EQ(errorOfFinish(2000), std::nullopt);
  EXPECT_THAT(way(), ElementsAre(Pair(0, 24), Pair(1000, 25), Pair(2000, 26)));
  rig.clock.set(20s);
  overlay->move({1, 0});
  EXPECT_EQ(errorOfFinish(1'000'000), std::nullopt);
  EXPECT_THAT(way(), ElementsAre(Pair(0, 24), Pair(1000, 25), Pair(2000, 26))) << "the segment is over";
}

TEST_F(RecordingCameraOverlayFileTest, AnEmptyWayStaysAnEmptyList) {
  show();
  EXPECT_EQ(errorOfFinish(-1), std::nullopt);
  EXPECT_NE(rig.layout().find(R"("recordedPositions":[],)"), std::string::npos);
  overlay->startSegment(0, epoch);
  EXPECT_EQ(errorOfFinish(0), std::nullopt);
  EXPECT_THAT(way(), ElementsAre(Pair(0, 24)));
}

TEST_F(RecordingCameraOverlayFileTest, CanBeFinishedBehindItsClosing) {
  show();
  overlay->startSegment(0, epoch);
  rig.clock.set(11s);
  overlay->move({3, 0});
  overlay->close();
  EXPECT_EQ(errorOfFinish(1000), std::nullopt);
  EXPECT_THAT(way(), ElementsAre(Pair(0, 24), Pair(1000, 27)));
}

TEST_F(RecordingCameraOverlayFileTest, HoldsSoManyPositionsAndFailsAtTheNext) {
  show();
  overlay->startSegment(0, epoch);
  for (int i = 1; i < 8192; ++i) {
    rig.clock.advance(1ms);
    overlay->move({i % 2 == 0 ? -1.0 : 1.0, 0});
  }
  EXPECT_EQ(failures, 0);
  overlay->move({10, 0});
  EXPECT_EQ(failures, 0) << "the last one's time is taken again";
  overlay->pauseSegment();
  ASSERT_EQ(way().size(), 8192U);
  EXPECT_EQ(way().back(), TimeAndLeft(8191, 35));

  overlay->startSegment(8191, epoch);
  EXPECT_EQ(failures, 0);
  rig.clock.set(10s + 8192ms);
  overlay->move({1, 0});
  EXPECT_EQ(failures, 1);
  const std::size_t placed = rig.panel().frames.size();
  rig.clock.advance(1ms);
  overlay->move({1, 0});
  EXPECT_EQ(rig.panel().frames.size(), placed) << "it moves no more";
  EXPECT_EQ(failures, 1);
  EXPECT_EQ(errorOfFinish(9000), outputFailed);
  EXPECT_EQ(way().size(), 8192U);
  EXPECT_EQ(failures, 1);
}

TEST_F(RecordingCameraOverlayFileTest, HoldsSoManyBytesAndFailsAtTheNext) {
  show();
  const std::size_t rest = rig.layout().size() - sampleSessionID.size();
  for (const std::size_t excess : {std::size_t{0}, std::size_t{1}}) {
    rig.files.remove(rig.layoutPath());
    rig.request.sessionID.assign(4'194'304 - rest + excess, 's');
    show();
    EXPECT_EQ(rig.layout().size(), 4'194'304 + excess);
    EXPECT_EQ(errorOfFinish(0), excess == 0 ? std::nullopt : std::optional(outputFailed));
    EXPECT_EQ(failures, 0);
  }
}

TEST_F(RecordingCameraOverlayFileTest, AWriteThatFailsFailsItForGoodAndIsToldOnce) {
  for (const FileOperation operation : {FileOperation::open, FileOperation::write, FileOperation::sync,
                                        FileOperation::read, FileOperation::rename}) {
    RecordingOverlayRig own;
    int told = 0;
    RecordingCameraOverlay camera(own.environment(), own.source, own.request, own.plan, [&] { ++told; });
    const std::string before = own.layout();
    own.files.failNth(operation, 1, EIO);
    own.panel().keyDown(KEY_LEFT);
    own.scheduler.advance(0ms);
    EXPECT_EQ(told, 1) << static_cast<int>(operation);
    EXPECT_EQ(own.layout(), before) << static_cast<int>(operation);
    EXPECT_THAT(own.entries(), ElementsAre("camera-layout.json")) << static_cast<int>(operation);

    const std::size_t placed = own.panel().frames.size();
    own.panel().keyDown(KEY_LEFT);
    own.scheduler.advance(0ms);
    EXPECT_EQ(own.panel().frames.size(), placed) << "it moves no more";
    EXPECT_NE(own.layout(), before) << "what can be saved is saved";
    own.files.failNth(operation, 1, EIO);
    camera.pauseSegment();
    EXPECT_EQ(told, 1);
    EXPECT_EQ(serviceErrorOf([&] { camera.finish(0); }), outputFailed) << "though the disk is well again";
  }
}

TEST_F(RecordingCameraOverlayFileTest, FinishFailsWithItsFirstAndWithItsSecondWrite) {
  for (const std::size_t nth : {std::size_t{1}, std::size_t{2}}) {
    RecordingOverlayRig own;
    int told = 0;
    RecordingCameraOverlay camera(own.environment(), own.source, own.request, own.plan, [&] { ++told; });
    own.files.failNth(FileOperation::write, nth, ENOSPC);
    EXPECT_EQ(serviceErrorOf([&] { camera.finish(0); }), outputFailed);
    EXPECT_EQ(told, nth == 1 ? 1 : 0) << "the second is the caller's to tell";
    EXPECT_THAT(own.entries(), ElementsAre("camera-layout.json"));
  }
}

} // namespace
} // namespace tessarin
