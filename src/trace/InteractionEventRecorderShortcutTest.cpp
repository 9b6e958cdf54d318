#include "support/InteractionRecorderRig.hpp"

#include "model/Errors.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/input-event-codes.h>

#include <cerrno>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using testing::InteractionRecorderRig;
using ::testing::IsEmpty;
using testing::Shortcut;
using Times = std::vector<std::int64_t>;

constexpr KeyModifiers command = {.command = true};
constexpr KeyModifiers shift = {.shift = true};

class InteractionEventRecorderShortcutTest : public ::testing::Test, protected InteractionRecorderRig {
 protected:
  InteractionEventRecorderShortcutTest() {
    setup.recordsCursor = false;
    setup.recordsClicks = false;
  }

  static RecordingShortcutUpdate cleared(std::uint64_t revision) {
    return {revision, std::nullopt, std::nullopt};
  }
  RecordingShortcutUpdate shown(std::uint64_t revision, const Shortcut& keys) const {
    return {revision, keys, clock.now() + MediaTime::milliseconds(1500)};
  }
};

TEST_F(InteractionEventRecorderShortcutTest, WritesAndShowsAShortcut) {
  begin();
  clock.advance(1234ms);
  source.key(KEY_C, command);
  EXPECT_EQ(text(), R"({"keys":["Command","C"],"kind":"shortcut","timestampMs":1234})"
                    "\n");
  EXPECT_THAT(updates, ElementsAre(cleared(1), shown(2, {"Command", "C"})));
  EXPECT_EQ(updates.back().expiresAt, clock.now() + MediaTime(3, 2));
}

TEST_F(InteractionEventRecorderShortcutTest, RecordsShortcutsAndNothingElse) {
  begin();
  source.key(KEY_C, command);
  source.key(KEY_A, shift);
  source.key(KEY_A);
  source.key(KEY_TAB, shift);
  source.key(KEY_F5);
  source.key(KEY_C, command, true);
  source.key(KEY_F5, {}, true);
  source.key(KEY_LEFTCTRL);
  source.key(KEY_KP5, command);
  source.key(KEY_K, {true, true, true, true});
  EXPECT_THAT(shortcuts(), ElementsAre(Shortcut{"Command", "C"}, Shortcut{"Shift", "Tab"}, Shortcut{"F5"},
                                       Shortcut{"Control", "Option", "Shift", "Command", "K"}));
  EXPECT_EQ(updates.size(), 5U); // the start's and one for each
}

TEST_F(InteractionEventRecorderShortcutTest, TakesTheBadgeDownAtEachTurn) {
  begin();
  recorder->pauseSegment();
  recorder->startSegment(5, std::nullopt);
  recorder->stop();
  recorder->stop();
  EXPECT_THAT(updates, ElementsAre(cleared(1), cleared(2), cleared(3), cleared(4)));
}

TEST_F(InteractionEventRecorderShortcutTest, RecordsNothingSecretAndTakesTheBadgeDown) {
  begin();
  source.key(KEY_C, command);
  source.setSecureInput(true);
  source.key(KEY_H);
  source.key(KEY_V, command);
  source.key(KEY_ENTER);
  source.key(KEY_KP5); // also a key of no label
  source.setSecureInput(false);
  source.key(KEY_F5);
  EXPECT_THAT(shortcuts(), ElementsAre(Shortcut{"Command", "C"}, Shortcut{"F5"}));
  EXPECT_THAT(updates, ElementsAre(cleared(1), shown(2, {"Command", "C"}), cleared(3), cleared(4), cleared(5),
                                   cleared(6), shown(7, {"F5"})));
}

TEST_F(InteractionEventRecorderShortcutTest, RecordsNothingWhilePaused) {
  observe();
  source.key(KEY_F1);
  recorder->startSegment(0, std::nullopt);
  recorder->pauseSegment();
  source.key(KEY_F2);
  source.setSecureInput(true);
  source.key(KEY_F3);
  source.setSecureInput(false);
  clock.advance(1s);
  source.setDelay(MediaTime::milliseconds(1));
  recorder->startSegment(0, std::nullopt);
  source.key(KEY_F4); // told late, pressed in the pause
  clock.advance(1ms);
  source.key(KEY_F5);
  EXPECT_THAT(shortcuts(), ElementsAre(Shortcut{"F5"}));
  EXPECT_EQ(timesOf<InteractionShortcutEvent>(), Times{0});
  EXPECT_EQ(updates.size(), 4U); // two starts, a pause, one shortcut
}

TEST_F(InteractionEventRecorderShortcutTest, WritesWithoutABadge) {
  setup.shortcutHandler = nullptr;
  begin();
  source.key(KEY_F5);
  source.setSecureInput(true);
  source.key(KEY_F6);
  recorder->pauseSegment();
  recorder->stop();
  EXPECT_THAT(shortcuts(), ElementsAre(Shortcut{"F5"}));
}

TEST_F(InteractionEventRecorderShortcutTest, ShowsNothingThatWasNotAskedFor) {
  setup.recordsShortcuts = false;
  setup.recordsClicks = true;
  begin();
  source.key(KEY_F5);
  recorder->recordShortcut({KEY_F5, {}, false, false, {}});
  recorder->recordShortcut({KEY_F5, {}, false, true, {}});
  recorder->pauseSegment();
  recorder->stop();
  EXPECT_THAT(shortcuts(), IsEmpty());
  EXPECT_THAT(updates, IsEmpty());
}

TEST_F(InteractionEventRecorderShortcutTest, TakesTheBadgeDownWhenTheDiskFails) {
  begin();
  source.key(KEY_F5);
  files.failNth(FileOperation::write, 1, EIO);
  source.key(KEY_F6);
  source.key(KEY_F7);
  source.setSecureInput(true);
  source.key(KEY_F8);
  EXPECT_THAT(shortcuts(), ElementsAre(Shortcut{"F5"}));
  EXPECT_THAT(updates, ElementsAre(cleared(1), shown(2, {"F5"}), cleared(3)));
  EXPECT_THROW(recorder->finish(), NativeServiceError);
}

TEST_F(InteractionEventRecorderShortcutTest, MayBeCalledByItsHandler) {
  setup.shortcutHandler = [this](const RecordingShortcutUpdate& update) {
    updates.push_back(update);
    if (update.keys)
      recorder->stop();
  };
  begin();
  source.key(KEY_F5);
  source.key(KEY_F6);
  EXPECT_THAT(shortcuts(), ElementsAre(Shortcut{"F5"}));
  EXPECT_THAT(updates, ElementsAre(cleared(1), shown(2, {"F5"}), cleared(3)));
  EXPECT_EQ(source.monitorCount(), 0U);
}

} // namespace
} // namespace tessarin
