#include "recording/CameraOverlayView.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <linux/input-event-codes.h>

#include <string>
#include <vector>

namespace tessarin {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// A view whose panel goes where it is told to.
class CameraOverlayViewTest : public ::testing::Test {
 protected:
  void tookMove(const PointerLocation& delta) {
    origin = {origin.x + delta.x, origin.y + delta.y};
    const auto whole = [](double points) { return std::to_string(static_cast<int>(points)); };
    calls.push_back("move " + whole(delta.x) + " " + whole(delta.y));
  }

  PointerLocation origin{1000, 500};
  std::vector<std::string> calls;
  CameraOverlayView view{{.onMove = [this](const PointerLocation& delta) { tookMove(delta); },
                          .onFinish = [this] { calls.emplace_back("finish"); },
                          .panelOrigin = [this] { return origin; }}};
};

TEST_F(CameraOverlayViewTest, ADragMovesByEachChangeOfThePointerAndFinishesWithTheButton) {
  view.mouseDown({1100, 600});
  view.mouseDragged({1103, 604});
  view.mouseDragged({1101, 610});
  view.mouseUp();
  EXPECT_THAT(calls, ElementsAre("move 3 4", "move -2 6", "finish"));
}

TEST_F(CameraOverlayViewTest, NothingIsDraggedBeforeThePressAndBehindTheRelease) {
  view.mouseDragged({1103, 604});
  view.mouseDown({1100, 600});
  view.mouseUp();
  view.mouseDragged({1200, 700});
  EXPECT_THAT(calls, ElementsAre("finish"));
}

TEST_F(CameraOverlayViewTest, EscapeTakesThePanelBackToWhereTheDragBeganAndEndsIt) {
  view.mouseDown({1100, 600});
  view.mouseDragged({1130, 590});
  view.mouseDragged({1150, 580});
  EXPECT_TRUE(view.keyDown(KEY_ESC));
  EXPECT_EQ(origin, (PointerLocation{1000, 500}));
  view.mouseDragged({1200, 700});
  view.keyDown(KEY_ESC);
  view.mouseUp();
  EXPECT_THAT(calls, ElementsAre("move 30 -10", "move 20 -10", "move -50 20", "finish"));
}

TEST_F(CameraOverlayViewTest, TheNextDragBeginsAnewBehindAnEscape) {
  view.mouseDown({1100, 600});
  view.mouseDragged({1130, 600});
  view.keyDown(KEY_ESC);
  view.mouseUp();
  calls.clear();
  view.mouseDown({1010, 510});
  view.mouseDragged({1011, 510});
  view.mouseUp();
  view.mouseDown({1011, 510});
  view.mouseDragged({1021, 510});
  view.keyDown(KEY_ESC);
  EXPECT_EQ(origin, (PointerLocation{1001, 500})) << "where the last drag began, not the first";
  EXPECT_THAT(calls, ElementsAre("move 1 0", "finish", "move 10 0", "move -10 0"));
}

TEST_F(CameraOverlayViewTest, EscapeWithoutADragIsNotForThePanel) {
  EXPECT_FALSE(view.keyDown(KEY_ESC));
  view.mouseDown({1100, 600});
  view.mouseUp();
  calls.clear();
  EXPECT_FALSE(view.keyDown(KEY_ESC));
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(CameraOverlayViewTest, ArrowsMoveByAPointTheirWayAndFinish) {
  for (const std::uint16_t key : {KEY_LEFT, KEY_RIGHT, KEY_DOWN, KEY_UP})
    EXPECT_TRUE(view.keyDown(key)) << key;
  EXPECT_THAT(calls, ElementsAre("move -1 0", "finish", "move 1 0", "finish", "move 0 1", "finish",
                                 "move 0 -1", "finish"));
}

TEST_F(CameraOverlayViewTest, OtherKeysDoNothing) {
  // A and KP_ENTER, whose own codes are 0 and 76, and keys that no table knows.
  for (const std::uint16_t key :
       {KEY_A, KEY_SPACE, KEY_ENTER, KEY_KPENTER, KEY_HOME, KEY_LEFTSHIFT, KEY_MUTE})
    EXPECT_FALSE(view.keyDown(key)) << key;
  EXPECT_FALSE(view.keyDown(0));
  EXPECT_FALSE(view.keyDown(53));  // a slash here, though Escape's own code
  EXPECT_FALSE(view.keyDown(123)); // likewise of Left
  EXPECT_THAT(calls, IsEmpty());
}

} // namespace
} // namespace tessarin
