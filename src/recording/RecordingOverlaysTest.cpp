#include "recording/RecordingOverlays.hpp"

#include "support/RecordingOverlayRig.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using namespace tessarin::testing;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const NativeServiceError unavailable{NativeErrorCode::contentUnavailable,
                                     "Shareable screen content is temporarily unavailable.", true};
const NativeServiceError outputFailed{NativeErrorCode::outputFailed,
                                      "The screenshot could not be written to its temporary output.", true};
const RunningApplication ourselves{"tessarin", 4711, "tessarin-native"};
constexpr std::uint64_t epoch = 10'000'000'000; // the clock's beginning

class RecordingOverlaysTest : public ::testing::Test {
 protected:
  void showCamera() {
    overlays->showCamera(rig.source, rig.request, rig.plan, [this] { ++failures; });
  }
  void showShortcuts() { overlays->showShortcuts(rig.plan.captureRect); }
  void receive(std::uint64_t revision) {
    overlays->receive(
        {revision, std::vector<std::string>{"F5"}, rig.clock.now() + MediaTime::milliseconds(1500)});
  }
  std::optional<NativeServiceError> errorOfFinish(std::int64_t durationMs) {
    return serviceErrorOf([&] { overlays->finishCamera(durationMs); });
  }
  std::size_t positionsWritten() const {
    std::size_t count = 0;
    const std::string text = rig.layout();
    for (std::size_t at = text.find("sourceTimeMs"); at != std::string::npos;
         at = text.find("sourceTimeMs", at + 1))
      ++count;
    return count;
  }

  RecordingOverlayRig rig;
  std::optional<RecordingOverlays> overlays{std::in_place, rig.environment()};
  int failures = 0;
};

TEST_F(RecordingOverlaysTest, DoesNothingWithoutAPanel) {
  EXPECT_TRUE(overlays->isEmpty());
  receive(1);
  overlays->startSegment(0, epoch);
  overlays->pauseCamera();
  overlays->clearShortcuts();
  EXPECT_EQ(errorOfFinish(0), std::nullopt);
  overlays->closeCamera();
  overlays->close();
  EXPECT_EQ(rig.scheduler.pendingCount(), 0U);
  EXPECT_THAT(rig.entries(), IsEmpty());
  EXPECT_EQ(serviceErrorOf([&] { overlays->captureExclusionApplication(); }), unavailable);
}

TEST_F(RecordingOverlaysTest, StaysEmptyWhenAPanelCannotBeShown) {
  rig.panels.refuses = true;
  EXPECT_EQ(serviceErrorOf([&] { showCamera(); }), unavailable);
  EXPECT_EQ(serviceErrorOf([&] { showShortcuts(); }), unavailable);
  rig.panels.refuses = false;
  rig.files.failNth(FileOperation::sync, 1, EIO);
  EXPECT_EQ(serviceErrorOf([&] { showCamera(); }), outputFailed);
  EXPECT_TRUE(overlays->isEmpty());
  EXPECT_THAT(rig.panels.panels, IsEmpty());
  showCamera();
  EXPECT_FALSE(overlays->isEmpty());
}

TEST_F(RecordingOverlaysTest, FindsTheApplicationByEitherPanel) {
  rig.desktop.windows = [this] { return rig.panels.windows(ourselves); };
  showShortcuts();
  EXPECT_FALSE(overlays->isEmpty());
  EXPECT_EQ(overlays->captureExclusionApplication(), ourselves);
  showCamera();
  rig.desktop.windows = [this] {
    std::vector<ShareableWindow> windows = rig.panels.windows(ourselves);
    windows.erase(windows.begin()); // the badge's, which the desktop does not know for once
    return windows;
  };
  EXPECT_EQ(overlays->captureExclusionApplication(), ourselves);
  rig.desktop.windows = nullptr;
  EXPECT_EQ(serviceErrorOf([&] { overlays->captureExclusionApplication(); }), unavailable);
  EXPECT_THAT(rig.sleeps, SizeIs(7));
  overlays->close();
  rig.desktop.windows = [this] { return rig.panels.windows(ourselves); };
  EXPECT_EQ(serviceErrorOf([&] { overlays->captureExclusionApplication(); }), unavailable);
}

TEST_F(RecordingOverlaysTest, WritesTheCamerasWayOverTheSession) {
  showCamera();
  overlays->startSegment(0, epoch);
  rig.clock.set(11s);
  rig.panel().mouseDown(1700, 900);
  rig.panel().mouseDragged(1600, 900);
  overlays->pauseCamera();
  EXPECT_EQ(positionsWritten(), 2U);
  EXPECT_EQ(errorOfFinish(1500), std::nullopt);
  overlays->startSegment(1500, 20'000'000'000);
  rig.clock.set(21s);
  rig.panel().mouseDragged(1500, 900);
  overlays->closeCamera();
  EXPECT_TRUE(rig.panel().isClosed);
  EXPECT_EQ(errorOfFinish(2499), std::nullopt);
  EXPECT_EQ(positionsWritten(), 3U) << "the last move was at 2500 ms";
  EXPECT_EQ(failures, 0);
}

TEST_F(RecordingOverlaysTest, TellsOfAFailingDiskOnce) {
  showCamera();
  rig.files.failAlways(FileOperation::rename, ENOSPC);
  overlays->pauseCamera();
  overlays->pauseCamera();
  EXPECT_EQ(failures, 1);
  EXPECT_EQ(errorOfFinish(0), outputFailed);
  EXPECT_EQ(failures, 1);
  EXPECT_THAT(rig.entries(), ::testing::ElementsAre("camera-layout.json"));
}

TEST_F(RecordingOverlaysTest, AnUpdateIsNotWaitedFor) {
  showShortcuts();
  receive(1);
  EXPECT_FALSE(rig.panel().showsPicture());
  EXPECT_EQ(rig.mainQueue->pendingCount(), 1U);
  rig.scheduler.runPending();
  EXPECT_TRUE(rig.panel().showsPicture());
  overlays->clearShortcuts();
  EXPECT_FALSE(rig.panel().showsPicture());
}

TEST_F(RecordingOverlaysTest, AnUpdateBehindTheEndDoesNothing) {
  showShortcuts();
  overlays->close();
  EXPECT_TRUE(rig.panel().isClosed);
  receive(1);
  EXPECT_EQ(rig.mainQueue->pendingCount(), 1U);
  overlays.reset();
  rig.scheduler.runPending();
  EXPECT_THAT(rig.typesetter.texts, IsEmpty());
  EXPECT_THAT(rig.panels.panels, SizeIs(1));
}

TEST_F(RecordingOverlaysTest, ClosesBothPanelsAndMoreThanOnce) {
  showCamera();
  showShortcuts();
  overlays->closeCamera();
  EXPECT_EQ(rig.panels.openCount(), 1U);
  overlays->close();
  EXPECT_EQ(rig.panels.openCount(), 0U);
  overlays->close();
  overlays->closeCamera();
  overlays->clearShortcuts();
  EXPECT_EQ(rig.scheduler.timerCount(), 0U);
}

TEST_F(RecordingOverlaysTest, ClosesThePanelsWithItsEnd) {
  showCamera();
  showShortcuts();
  receive(1);
  overlays.reset();
  EXPECT_EQ(rig.panels.openCount(), 0U);
  EXPECT_EQ(rig.scheduler.timerCount(), 0U);
}

// On a queue with a thread of its own, as in the program.
TEST_F(RecordingOverlaysTest, ThePanelsNeverLeaveTheMainQueuesThread) {
  const std::unique_ptr<SerialQueue> main = makeThreadQueue("main");
  overlays.emplace(rig.environment(*main));
  rig.panels.refuses = true;
  EXPECT_EQ(serviceErrorOf([&] { showShortcuts(); }), unavailable) << "thrown across threads";
  rig.panels.refuses = false;
  rig.desktop.windows = [this] { return rig.panels.windows(ourselves); };
  showCamera();
  showShortcuts();
  EXPECT_EQ(overlays->captureExclusionApplication(), ourselves);
  overlays->startSegment(0, epoch);

  std::atomic<bool> hasBegun = false;
  std::thread recorder([&] {
    for (std::uint64_t revision = 1; revision <= 200; ++revision) {
      receive(revision);
      hasBegun = true;
    }
  });
  while (!hasBegun)
    std::this_thread::yield();
  overlays->pauseCamera();
  EXPECT_EQ(errorOfFinish(0), std::nullopt);
  overlays->close();
  recorder.join();
  overlays.reset();
  main->sync([] {});
  ASSERT_THAT(rig.panels.panels, SizeIs(2));
  for (const std::shared_ptr<ScriptedPanel>& panel : rig.panels.panels) {
    EXPECT_TRUE(panel->isClosed);
    EXPECT_TRUE(panel->stayedOnItsThread);
  }
}

} // namespace
} // namespace tessarin
