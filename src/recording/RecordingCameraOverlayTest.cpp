// The camera's panel while nothing goes wrong, and where it is; its file and its failures are tested in
// RecordingCameraOverlayFileTest.

#include "recording/RecordingCameraOverlay.hpp"

#include "support/RecordingOverlayRig.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <linux/input-event-codes.h>

#include <utility>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using namespace tessarin::testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class RecordingCameraOverlayTest : public ::testing::Test {
 protected:
  void show() {
    overlay.emplace(rig.environment(), rig.source, rig.request, rig.plan, [this] { ++failures; });
  }
  ScriptedPanel& panel() { return rig.panel(); }

  // A picture whose left half is dark and whose right half is light.
  CameraFrame halves() {
    CameraFrame frame = numberedCameraFrame(20, 64, 48, rig.clock.now());
    const auto bytes = std::make_shared<std::vector<std::uint8_t>>(bytesOf(frame.picture));
    for (std::size_t i = 0; i < bytes->size(); ++i)
      if (i / 4 % 64 >= 32)
        (*bytes)[i] = 220;
    frame.picture.view.data = bytes->data();
    frame.picture.view.stride = std::ptrdiff_t{64} * 4;
    frame.picture.owner = bytes;
    return frame;
  }

  RecordingOverlayRig rig;
  std::optional<RecordingCameraOverlay> overlay;
  int failures = 0;
};

TEST_F(RecordingCameraOverlayTest, ShowsAPanelAtItsPlaceOverTheCapture) {
  show();
  ASSERT_THAT(rig.panels.panels, SizeIs(1));
  EXPECT_EQ(panel().setup.frame, (RectDTO{1612, 818, 384, 288}));
  EXPECT_EQ(panel().setup.accessibilityLabel, "Camera / \xE6\x91\x84\xE5\x83\x8F\xE5\xA4\xB4");
  EXPECT_FALSE(panel().setup.ignoresMouseEvents);
  EXPECT_EQ(overlay->windowID(), panel().windowID);
}

TEST_F(RecordingCameraOverlayTest, StandsWhereItsPlacementOrPositionSays) {
  rig.request.settings.cameraPosition = CameraPosition::topLeft;
  show();
  EXPECT_EQ(panel().frame(), (RectDTO{124, 74, 384, 288}));
  overlay.reset();
  rig.files.remove(rig.layoutPath());
  rig.request.settings.presentation.emplace().cameraPlacement = RecordingCameraPlacementDTO{2500, 10000};
  show();
  EXPECT_EQ(rig.panels.panels.at(1)->frame(), (RectDTO{484, 842, 384, 288}));
}

TEST_F(RecordingCameraOverlayTest, ScalesItsPlaceFromPixelsToPointsOfTheCapture) {
  rig.plan.captureRect = {-300, 40, 960, 540};
  show();
  EXPECT_EQ(panel().frame(), (RectDTO{-300 + 756, 40 + 384, 192, 144}));
}

TEST_F(RecordingCameraOverlayTest, ShowsTheNewestPictureThirtyTimesASecond) {
  show();
  rig.scheduler.advance(100ms);
  EXPECT_THAT(panel().pictures, IsEmpty()) << "no picture has come yet";
  rig.deliver(1);
  EXPECT_THAT(panel().pictures, IsEmpty()) << "only as the timer fires";
  rig.scheduler.advance(34ms);
  ASSERT_THAT(panel().pictures, SizeIs(1));
  EXPECT_EQ(panel().pictures[0].view.width, 384);
  EXPECT_EQ(panel().pictures[0].view.height, 288);
  EXPECT_EQ(panel().pictures[0].view.format, PixelFormat::bgra8Premultiplied);
  for (std::uint8_t number = 2; number < 92; ++number) {
    rig.deliver(number);
    rig.scheduler.advance(std::chrono::nanoseconds(33'333'333));
  }
  EXPECT_THAT(panel().pictures, SizeIs(91));
}

TEST_F(RecordingCameraOverlayTest, DoesNotDrawTheSamePictureAgain) {
  show();
  rig.deliver(1);
  rig.scheduler.advance(1s);
  EXPECT_THAT(panel().pictures, SizeIs(1));
  rig.deliver(1);
  rig.scheduler.advance(1s);
  EXPECT_THAT(panel().pictures, SizeIs(2)) << "another one, however alike";
}

TEST_F(RecordingCameraOverlayTest, DrawsTheSamePictureAgainInAnotherSizeOfThePanel) {
  show();
  rig.deliver(1);
  overlay->refresh();
  overlay->move({0.5, 0});
  overlay->refresh();
  ASSERT_THAT(panel().pictures, SizeIs(2));
  EXPECT_EQ(panel().pictures[1].view.width, 385) << "between two pixels it touches one more";
  overlay->refresh();
  EXPECT_THAT(panel().pictures, SizeIs(2));
}

TEST_F(RecordingCameraOverlayTest, DrawsAPictureWithoutAnOwnerEachTime) {
  show();
  const std::vector<std::uint8_t> bytes(std::size_t{64} * 48 * 4, 7);
  CameraFrame frame = numberedCameraFrame(7, 64, 48, rig.clock.now());
  frame.picture.view.data = bytes.data();
  frame.picture.owner.reset();
  rig.deliver(frame);
  overlay->refresh();
  overlay->refresh();
  EXPECT_THAT(panel().pictures, SizeIs(2)) << "what is in its memory may have changed";
}

TEST_F(RecordingCameraOverlayTest, DrawsInPixelsOfThePanelsDisplay) {
  rig.panels.backingScale = 2;
  show();
  rig.deliver(1);
  overlay->refresh();
  EXPECT_EQ(panel().pictures.at(0).view.width, 768);
  EXPECT_EQ(panel().pictures.at(0).view.height, 576);
}

TEST_F(RecordingCameraOverlayTest, APanelWithoutPixelsShowsNothing) {
  rig.plan.captureRect = {100, 50, 0, 0};
  show();
  rig.deliver(1);
  overlay->refresh();
  EXPECT_THAT(panel().pictures, IsEmpty());
}

TEST_F(RecordingCameraOverlayTest, ShapesThePictureAsItsLayerSays) {
  struct Row {
    std::optional<bool> mirrored, border; // as the request says
    bool isMirrored, hasBorder;
  };
  for (const Row& row :
       {Row{std::nullopt, std::nullopt, true, true}, Row{true, true, true, true},
        Row{false, false, false, false}, Row{false, true, false, true}, Row{true, false, true, false}}) {
    RecordingOverlayRig own;
    own.request.settings.cameraPreviewMirrored = row.mirrored;
    if (row.border)
      own.request.settings.presentation.emplace().cameraBorder = *row.border;
    RecordingCameraOverlay camera(own.environment(), own.source, own.request, own.plan, [] {});
    const CameraFrame frame = halves();
    own.deliver(frame);
    camera.refresh();

    VideoCameraLayerDTO layer;
    layer.rect = {0, 0, 1, 1};
    layer.mirrored = row.isMirrored;
    layer.borderVisible = row.hasBorder;
    CameraPresentationRenderer renderer;
    const Picture expected = renderer.image(frame.picture.view, layer, {384, 288}).picture;
    const Picture& shown = own.panel().pictures.at(0);
    EXPECT_EQ(bytesOf(shown), bytesOf(expected));
    // Near the left edge, and at it, in the middle of its height.
    const std::uint8_t* const row144 = shown.view.data + 144 * shown.view.stride;
    EXPECT_EQ(row144[40 * 4], row.isMirrored ? 220 : 20);
    EXPECT_EQ(row144[0], row.hasBorder ? 255 : row144[40 * 4]);
  }
}

TEST_F(RecordingCameraOverlayTest, MovesToTheRightAndDownwards) {
  rig.request.settings.cameraPosition = CameraPosition::topLeft;
  show();
  overlay->move({10, 0});
  overlay->move({0, 20});
  overlay->move({-5, -4});
  EXPECT_THAT(panel().frames, ElementsAre(RectDTO{124, 74, 384, 288}, RectDTO{134, 74, 384, 288},
                                          RectDTO{134, 94, 384, 288}, RectDTO{129, 90, 384, 288}));
}

TEST_F(RecordingCameraOverlayTest, StaysWithinTheCapture) {
  show();
  overlay->move({-5000, -5000});
  EXPECT_EQ(panel().frame(), (RectDTO{100, 50, 384, 288}));
  overlay->move({5000, 5000});
  EXPECT_EQ(panel().frame(), (RectDTO{100 + 1920 - 384, 50 + 1080 - 288, 384, 288}));
  const std::size_t placed = panel().frames.size();
  overlay->move({1, 1});
  overlay->move({0, 0});
  EXPECT_THAT(panel().frames, SizeIs(placed)) << "nothing has changed";
  overlay->move({1, -1});
  EXPECT_EQ(panel().frame(), (RectDTO{1636, 841, 384, 288}));
}

TEST_F(RecordingCameraOverlayTest, FollowsTheHandThatDragsIt) {
  show();
  panel().mouseDown(1700, 900);
  panel().mouseDragged(1690, 880);
  panel().mouseDragged(1650, 850);
  panel().mouseUp();
  EXPECT_EQ(panel().frame(), (RectDTO{1562, 768, 384, 288}));
  panel().mouseDown(1600, 800);
  panel().mouseDragged(1300, 500);
  panel().keyDown(KEY_ESC);
  EXPECT_EQ(panel().frame(), (RectDTO{1562, 768, 384, 288})) << "back where this drag began";
  panel().mouseDragged(1200, 400);
  panel().mouseUp();
  EXPECT_EQ(panel().frame(), (RectDTO{1562, 768, 384, 288}));
}

TEST_F(RecordingCameraOverlayTest, FollowsTheArrowKeys) {
  show();
  for (const std::uint16_t key : {KEY_LEFT, KEY_LEFT, KEY_UP, KEY_RIGHT, KEY_DOWN, KEY_DOWN, KEY_A})
    panel().keyDown(key);
  EXPECT_EQ(panel().frame(), (RectDTO{1611, 819, 384, 288}));
}

TEST_F(RecordingCameraOverlayTest, TakesThePanelAwayWhenItIsClosed) {
  show();
  rig.deliver(1);
  overlay->close();
  EXPECT_TRUE(panel().isClosed);
  EXPECT_EQ(overlay->windowID(), std::nullopt);
  EXPECT_EQ(rig.scheduler.timerCount(), 0U);
  rig.scheduler.advance(1s);
  overlay->refresh();
  overlay->move({-5, -5});
  overlay->close();
  EXPECT_THAT(panel().pictures, IsEmpty());
  EXPECT_THAT(panel().frames, SizeIs(1));
}

TEST_F(RecordingCameraOverlayTest, LetsTheCamerasPictureGoWhenItIsClosed) {
  show();
  const CameraFrame frame = halves();
  rig.deliver(frame);
  overlay->refresh();
  rig.source.stop();
  EXPECT_GT(frame.picture.owner.use_count(), 1) << "while the panel shows it";
  overlay->close();
  EXPECT_EQ(frame.picture.owner.use_count(), 1);
}

} // namespace
} // namespace tessarin
