#include "recording/RecordingShortcutOverlay.hpp"

#include "support/RecordingOverlayRig.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using namespace tessarin::testing;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using Keys = std::vector<std::string>;

class RecordingShortcutOverlayTest : public ::testing::Test {
 protected:
  void show() { overlay.emplace(rig.environment(), captureRect); }
  ScriptedPanel& panel() { return rig.panel(); }

  // Of a badge that lasts 1.5 seconds from now.
  void receive(std::uint64_t revision, Keys keys = {"Control", "C"}) {
    receiveUntil(revision, rig.clock.now() + MediaTime::milliseconds(1500), std::move(keys));
  }
  void receiveUntil(std::uint64_t revision, MediaTime expiresAt, Keys keys = {"Control", "C"}) {
    overlay->receive({revision, std::move(keys), expiresAt});
  }
  bool isShown() { return panel().showsPicture(); }
  void expectEmpty() {
    EXPECT_EQ(panel().frame(), (RectDTO{1060, 590, 0, 0}));
    EXPECT_TRUE(panel().pictures.empty() || panel().pictures.back().view.data == nullptr);
    EXPECT_EQ(rig.scheduler.timerCount(), 0U);
  }
  ShortcutBadgeRenderer::Badge expectedBadge(const Keys& keys, double scale = 1) {
    ScriptedTypesetter typesetter;
    return ShortcutBadgeRenderer(typesetter)
        .image(keys, InteractionShortcutStyleDTO::dark, {1920, 1080}, scale)
        .value();
  }

  RecordingOverlayRig rig;
  const RectDTO captureRect{100, 50, 1920, 1080};
  std::optional<RecordingShortcutOverlay> overlay;
};

TEST_F(RecordingShortcutOverlayTest, BeginsWithAnEmptyPanelThatThePointerGoesThrough) {
  show();
  ASSERT_THAT(rig.panels.panels, SizeIs(1));
  EXPECT_EQ(panel().setup.frame, (RectDTO{1060, 590, 0, 0}));
  EXPECT_TRUE(panel().setup.ignoresMouseEvents);
  EXPECT_EQ(overlay->windowID(), panel().windowID);
  expectEmpty();
}

TEST_F(RecordingShortcutOverlayTest, NeedsAPanel) {
  rig.panels.refuses = true;
  EXPECT_EQ(serviceErrorOf([&] { show(); }),
            (NativeServiceError{NativeErrorCode::contentUnavailable,
                                "Shareable screen content is temporarily unavailable.", true}));
}

TEST_F(RecordingShortcutOverlayTest, ShowsTheDarkBadgeAtTheBottomOfTheCapture) {
  for (const double scale : {1.0, 2.0}) {
    rig.panels.panels.clear();
    rig.panels.backingScale = scale;
    show();
    receive(1);
    const ShortcutBadgeRenderer::Badge badge = expectedBadge({"Control", "C"}, scale);
    EXPECT_EQ(panel().frame(),
              (RectDTO{100 + badge.rect.x, 50 + badge.rect.y, badge.rect.width, badge.rect.height}));
    EXPECT_TRUE(isShown());
    EXPECT_EQ(bytesOf(panel().pictures.back()), bytesOf(badge.picture));
    EXPECT_EQ(rig.typesetter.texts.back(), "Control  +  C");
  }
  // Centred, and 5.5 % of the height off the bottom.
  const RectDTO& frame = panel().frame();
  EXPECT_NEAR(frame.x + frame.width / 2, 100 + 960, 1e-9);
  EXPECT_NEAR(frame.y + frame.height, 50 + 1080 - 59.4, 1e-9);
}

TEST_F(RecordingShortcutOverlayTest, ShowsTheNewestUpdateAndNoOlderOne) {
  show();
  receive(6, {"Control", "X"});
  const RectDTO frame = panel().frame();
  receive(5, {"Control", "Option", "Page Down"});
  receive(6, {"Control", "Option", "Page Down"});
  EXPECT_EQ(panel().frame(), frame);
  EXPECT_THAT(rig.typesetter.texts, SizeIs(1));
  receive(7, {"Control", "Option", "Page Down"});
  EXPECT_NE(panel().frame(), frame);
  EXPECT_EQ(rig.typesetter.texts.back(), "Control  +  Option  +  Page Down");
}

TEST_F(RecordingShortcutOverlayTest, AnOlderUpdateTakesNoBadgeDownAndANewerOneDoes) {
  show();
  receive(6);
  overlay->receive({5, std::nullopt, std::nullopt});
  overlay->receive({6, std::nullopt, std::nullopt});
  EXPECT_TRUE(isShown());
  overlay->receive({7, std::nullopt, std::nullopt});
  expectEmpty();
  receive(6);
  expectEmpty();
}

TEST_F(RecordingShortcutOverlayTest, AnUpdateWithoutKeysOrWithoutATimeTakesTheBadgeDown) {
  const MediaTime later = rig.clock.now() + MediaTime::milliseconds(1500);
  for (const RecordingShortcutUpdate& update :
       {RecordingShortcutUpdate{2, std::nullopt, later}, RecordingShortcutUpdate{2, Keys{"F5"}, std::nullopt},
        RecordingShortcutUpdate{2, Keys{"F5"}, MediaTime()}, RecordingShortcutUpdate{2, Keys{}, later}}) {
    rig.panels.panels.clear();
    show();
    receive(1);
    EXPECT_TRUE(isShown());
    overlay->receive(update);
    expectEmpty();
  }
}

TEST_F(RecordingShortcutOverlayTest, ShowsNothingWhoseTimeIsOver) {
  show();
  receiveUntil(1, rig.clock.now() - MediaTime::nanoseconds(1));
  expectEmpty();
  receiveUntil(2, rig.clock.now());
  expectEmpty();
  EXPECT_THAT(rig.typesetter.texts, IsEmpty());
  receiveUntil(3, rig.clock.now() + MediaTime::nanoseconds(1));
  EXPECT_TRUE(isShown());
  receiveUntil(4, rig.clock.now());
  expectEmpty();
}

TEST_F(RecordingShortcutOverlayTest, TakesTheBadgeDownAtItsExpiry) {
  show();
  receive(1);
  rig.scheduler.advance(1500ms - 1ns);
  EXPECT_TRUE(isShown());
  rig.scheduler.advance(1ns);
  expectEmpty();
}

TEST_F(RecordingShortcutOverlayTest, ANewerBadgeHasItsOwnTime) {
  show();
  receive(1);
  rig.scheduler.advance(1s);
  receive(2);
  EXPECT_EQ(rig.scheduler.timerCount(), 1U);
  rig.scheduler.advance(1500ms - 1ns);
  EXPECT_TRUE(isShown());
  rig.scheduler.advance(1ns);
  expectEmpty();
}

TEST_F(RecordingShortcutOverlayTest, ShowsNothingWhileInputIsSecret) {
  show();
  rig.interactions.setSecureInput(true);
  receive(1);
  expectEmpty();
  EXPECT_THAT(rig.typesetter.texts, IsEmpty());
  rig.interactions.setSecureInput(false);
  receive(2);
  EXPECT_TRUE(isShown());
  rig.interactions.setSecureInput(true);
  receive(3);
  expectEmpty();
}

TEST_F(RecordingShortcutOverlayTest, ARefreshTakesTheBadgeDownWhenInputIsSecretOrItsTimeIsOver) {
  show();
  overlay->refresh();
  expectEmpty();
  receive(1);
  overlay->refresh();
  EXPECT_TRUE(isShown());
  rig.interactions.setSecureInput(true);
  overlay->refresh();
  expectEmpty();
  rig.interactions.setSecureInput(false);
  receive(2);
  rig.clock.advance(1500ms - 1ns);
  overlay->refresh();
  EXPECT_TRUE(isShown());
  rig.clock.advance(1ns);
  overlay->refresh();
  expectEmpty();
}

TEST_F(RecordingShortcutOverlayTest, TakesTheOldBadgeDownWhenTheNewOneCannotBeDrawn) {
  show();
  receive(1);
  rig.typesetter.isUnavailable = true;
  receive(2);
  expectEmpty();
}

TEST_F(RecordingShortcutOverlayTest, CanBeClearedAndShowsTheNextOne) {
  show();
  overlay->clear();
  expectEmpty();
  receive(1);
  overlay->clear();
  expectEmpty();
  receive(2);
  EXPECT_TRUE(isShown());
}

TEST_F(RecordingShortcutOverlayTest, DoesNothingOnceItIsClosed) {
  show();
  receive(1);
  overlay->close();
  EXPECT_TRUE(panel().isClosed);
  EXPECT_EQ(overlay->windowID(), std::nullopt);
  EXPECT_EQ(rig.scheduler.timerCount(), 0U);
  const std::size_t frames = panel().frames.size();
  receive(2);
  overlay->refresh();
  overlay->clear();
  overlay->close();
  EXPECT_THAT(panel().frames, SizeIs(frames));
  EXPECT_THAT(rig.typesetter.texts, SizeIs(1));
}

} // namespace
} // namespace tessarin
