#include "live/InteractionTesting.hpp"

#include "base/FileSystem.hpp"
#include "support/TemporaryDirectory.hpp"
#include "trace/InteractionEventFile.hpp"
#include "trace/InteractionEventRecorder.hpp"

#include <gmock/gmock.h>

#include <map>
#include <thread>
#include <variant>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;
using ::testing::Not;
using Shortcut = std::vector<std::string>;

// The recorder of traces over a real pointer, keyboard and file.
class InteractionTrace : public InteractionFixture {
 protected:
  void record() {
    startDesktop();
    recorder = std::make_unique<InteractionEventRecorder>(
        InteractionRecorderSetup{.outputDirectory = directory.path(),
                                 .captureRect = {100, 100, 800, 400},
                                 .recordsCursor = true,
                                 .recordsClicks = true,
                                 .recordsShortcuts = true,
                                 .cursorRenderedInSource = false,
                                 .shortcutHandler =
                                     [this](const RecordingShortcutUpdate& update) {
                                       const std::lock_guard guard(mutex);
                                       updates[update.revision] = update;
                                       changed.notify_all();
                                     }},
        *source, clock, machineFileSystem(), [](const std::string& label) { return makeThreadQueue(label); });
    recorder->startObserving();
    recorder->startSegment(0, std::nullopt);
  }

  // Waits until a badge with these keys was to be shown: all that was typed before has been dealt with.
  void awaitBadge(const Shortcut& keys) {
    std::unique_lock lock(mutex);
    EXPECT_TRUE(changed.wait_for(lock, 10s, [&] {
      return std::any_of(updates.begin(), updates.end(),
                         [&](const auto& each) { return each.second.keys == keys; });
    }));
  }

  bool isSoonNoSecret() {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (source->isSecureInput() && std::chrono::steady_clock::now() < deadline)
      std::this_thread::sleep_for(1ms);
    return !source->isSecureInput();
  }

  template<class Event> std::vector<Event> events() {
    std::vector<Event> found;
    for (const auto& each : InteractionEventFile::load(machineFileSystem(), path))
      if (const auto* event = std::get_if<Event>(&each.event))
        found.push_back(*event);
    return found;
  }
  std::vector<Shortcut> shortcuts() {
    std::vector<Shortcut> found;
    for (const auto& event : events<InteractionShortcutEvent>())
      found.push_back(event.keys);
    return found;
  }

  TemporaryDirectory directory;
  const std::string path = directory / "interaction-events.jsonl";
  std::mutex mutex;
  std::condition_variable changed;
  std::map<std::uint64_t, RecordingShortcutUpdate> updates; // guarded by mutex
  std::unique_ptr<InteractionEventRecorder> recorder;
};

TEST_F(InteractionTrace, HasPathClicksAndShortcuts) {
  record();
  for (int x = 100; x <= 900; x += 100) {
    input->moveTo(x, 300);
    std::this_thread::sleep_for(50ms);
  }
  input->moveTo(500, 200);
  input->click(1);
  input->click(3);
  input->click(2);
  input->click(4); // a wheel
  input->moveTo(50, 50);
  input->click(1); // beside the rectangle
  input->chord({KEY_LEFTMETA}, KEY_C);
  input->chord({KEY_LEFTCTRL, KEY_LEFTSHIFT}, KEY_T);
  input->tap(KEY_F5);
  awaitBadge({"F5"});
  recorder->finish();

  EXPECT_EQ(shortcuts(), (std::vector<Shortcut>{{"Command", "C"}, {"Control", "Shift", "T"}, {"F5"}}));
  std::vector<InteractionMouseButton> buttons;
  for (const auto& click : events<InteractionClickEvent>()) {
    buttons.push_back(click.button);
    EXPECT_EQ(click.x, 0.5);
    EXPECT_EQ(click.y, 0.25);
  }
  EXPECT_EQ(buttons, (std::vector{InteractionMouseButton::left, InteractionMouseButton::right,
                                  InteractionMouseButton::other}));
  const auto cursors = events<InteractionCursorEvent>();
  ASSERT_GE(cursors.size(), 9U);
  EXPECT_GE(std::count_if(cursors.begin(), cursors.end(), [](const auto& each) { return each.y == 0.5; }), 8);
}

TEST_F(InteractionTrace, HasNothingOfWhatIsTyped) {
  record();
  const std::vector<std::uint16_t> word = {KEY_Q, KEY_W, KEY_X, KEY_J, KEY_7};
  for (const auto code : word) {
    input->tap(code);
    input->chord({KEY_LEFTSHIFT}, code);
    input->chord({KEY_RIGHTSHIFT}, code);
  }
  KeyboardHolder holder(*desktop);
  holder.command("grab");
  for (const auto code : word) {
    input->tap(code);
    input->chord({KEY_LEFTCTRL}, code); // even shortcuts
  }
  input->tap(KEY_ENTER);
  input->tap(KEY_F9);
  holder.command("ungrab");
  EXPECT_TRUE(isSoonNoSecret());
  passwords.focused = true;
  input->chord({KEY_LEFTCTRL}, KEY_J);
  input->tap(KEY_HOME);
  passwords.leave(clock.now()); // of what was typed not all has been told yet
  std::this_thread::sleep_for(5ms);
  input->tap(KEY_F6);
  awaitBadge({"F6"});
  recorder->finish();

  EXPECT_EQ(shortcuts(), (std::vector<Shortcut>{{"F6"}}));
  const std::string bytes = directory.read("interaction-events.jsonl");
  EXPECT_THAT(bytes, HasSubstr("\"F6\""));
  for (const std::string label :
       {"Q", "W", "X", "J", "7", "Return", "F9", "Home", "Control", "Shift", "q", "w", "j"})
    EXPECT_THAT(bytes, Not(HasSubstr("\"" + label + "\""))) << label;
}

TEST_F(InteractionTrace, HasNothingOfAHeldKeyButItsPress) {
  record();
  desktop->run({"xset", "r", "rate", "200", "50"});
  input->key(KEY_F8, true);
  std::this_thread::sleep_for(600ms);
  input->key(KEY_F8, false);
  input->tap(KEY_F6);
  awaitBadge({"F6"});
  recorder->finish();
  EXPECT_EQ(shortcuts(), (std::vector<Shortcut>{{"F8"}, {"F6"}}));
}

TEST_F(InteractionTrace, SeesEachOfManyShortClicks) {
  record();
  constexpr int count = 40;
  for (int i = 0; i < count; ++i) {
    input->moveTo(150 + (i % 10) * 50, 150 + (i / 10) * 50); // further apart than one click's two sightings
    input->click();
  }
  input->tap(KEY_F6);
  awaitBadge({"F6"});
  recorder->finish();
  EXPECT_EQ(events<InteractionClickEvent>().size(), std::size_t{count});
}

} // namespace
} // namespace tessarin
