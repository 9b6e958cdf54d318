#include "live/InteractionTesting.hpp"

#include "support/ScriptedInteractions.hpp"

#include <array>
#include <latch>

// What every source of interactions does, the scripted one as well as the display's.
namespace tessarin {
namespace {

// A pointer and a keyboard to be used, and the source that tells of them.
class InteractionRig {
 public:
  virtual ~InteractionRig() = default;
  virtual InteractionSource& source() = 0;
  virtual void moveTo(int x, int y) = 0;
  virtual void press(InteractionMouseButton button) = 0;
  virtual void release(InteractionMouseButton button) = 0;
  // The key goes down and up while Control is held.
  virtual void typeWithControl(std::uint16_t code) = 0;
  // The key goes down and up while a field for secrets has the focus.
  virtual void typeSecret(std::uint16_t code) = 0;

  MonotonicHostClock clock;
};

class ScriptedRig final : public InteractionRig {
 public:
  InteractionSource& source() override { return scripted_; }
  void moveTo(int x, int y) override { scripted_.moveTo(x, y); }
  void press(InteractionMouseButton button) override { scripted_.press(button); }
  void release(InteractionMouseButton button) override { scripted_.release(button); }
  void typeWithControl(std::uint16_t code) override { scripted_.key(code, {.control = true}); }
  void typeSecret(std::uint16_t code) override {
    scripted_.setSecureInput(true);
    scripted_.key(code);
  }

 private:
  ScriptedInteractions scripted_{clock};
};

class DisplayRig final : public InteractionRig {
 public:
  InteractionSource& source() override { return *source_; }
  void moveTo(int x, int y) override { input_.moveTo(x, y); }
  void press(InteractionMouseButton button) override { input_.button(numberOf(button), true); }
  void release(InteractionMouseButton button) override { input_.button(numberOf(button), false); }
  void typeWithControl(std::uint16_t code) override { input_.chord({KEY_LEFTCTRL}, code); }
  void typeSecret(std::uint16_t code) override {
    passwords_.focused = true;
    input_.tap(code);
  }

 private:
  static std::uint8_t numberOf(InteractionMouseButton button) {
    using enum InteractionMouseButton;
    return button == left ? 1 : button == right ? 3 : 2;
  }

  PrivateDesktop desktop_;
  ScriptedPasswordFocus passwords_;
  FakeInput input_{desktop_.display()};
  std::unique_ptr<InteractionSource> source_ =
      x11::makeInteractionSource(std::make_shared<x11::DisplayServer>(desktop_.display()), clock, passwords_);
};

enum class Kind : std::uint8_t { scripted, display };

class InteractionSourceConformance : public ::testing::TestWithParam<Kind> {
 protected:
  void SetUp() override {
    std::signal(SIGPIPE, SIG_IGN);
    if (GetParam() == Kind::scripted)
      rig = std::make_unique<ScriptedRig>();
    else
      rig = std::make_unique<DisplayRig>();
  }

  PointerState reading() { return rig->source().pointer().value(); }
  // The press of the key, however many others there were.
  KeyPress keyPress(std::uint16_t code) {
    for (std::size_t count = 1;; ++count) {
      const auto keys = presses.keys(count);
      if (keys.size() < count)
        throw std::runtime_error("the key was not told");
      if (keys[count - 1].evdevCode == code)
        return keys[count - 1];
    }
  }

  std::unique_ptr<InteractionRig> rig;
  Presses presses;
};

constexpr std::array<InteractionMouseButton, interactionMouseButtonCount> allButtons = {
    InteractionMouseButton::left, InteractionMouseButton::right, InteractionMouseButton::other};

TEST_P(InteractionSourceConformance, ReadsThePointerFreshly) {
  rig->moveTo(30, 40);
  EXPECT_EQ(reading().location, (PointerLocation{30, 40}));
  rig->moveTo(31, 40);
  EXPECT_EQ(reading().location, (PointerLocation{31, 40}));
}

TEST_P(InteractionSourceConformance, ReadsTheButtonsInTheirOrder) {
  for (std::size_t i = 0; i < allButtons.size(); ++i) {
    rig->press(allButtons.at(i));
    std::array<bool, interactionMouseButtonCount> expected = {};
    expected.at(i) = true;
    EXPECT_EQ(reading().isDown, expected) << i;
    rig->release(allButtons.at(i));
    EXPECT_EQ(reading().isDown, decltype(expected)()) << i;
  }
}

TEST_P(InteractionSourceConformance, TellsPressesOfButtons) {
  const auto monitor = rig->source().monitor(presses.handlers());
  ASSERT_TRUE(monitor);
  rig->moveTo(50, 60);
  const MediaTime before = rig->clock.now() - MediaTime::milliseconds(1);
  for (const auto button : allButtons) {
    rig->press(button);
    rig->release(button);
  }
  const auto seen = presses.buttons(allButtons.size());
  ASSERT_EQ(seen.size(), allButtons.size());
  for (std::size_t i = 0; i < seen.size(); ++i) {
    EXPECT_EQ(seen[i].button, allButtons.at(i));
    EXPECT_EQ(seen[i].location, (PointerLocation{50, 60}));
    EXPECT_GE(seen[i].hostTime, before);
    EXPECT_LE(seen[i].hostTime, rig->clock.now());
  }
}

TEST_P(InteractionSourceConformance, TellsPressesOfKeysWithTheirModifiers) {
  const auto monitor = rig->source().monitor(presses.handlers());
  ASSERT_TRUE(monitor);
  rig->typeWithControl(KEY_K);
  const KeyPress press = keyPress(KEY_K);
  EXPECT_EQ(press.modifiers, (KeyModifiers{.control = true}));
  EXPECT_FALSE(press.isRepeat);
  EXPECT_FALSE(press.isSecureInput);
  EXPECT_TRUE(press.hostTime.isNumeric());
}

TEST_P(InteractionSourceConformance, MarksWhatIsSecret) {
  const auto monitor = rig->source().monitor(presses.handlers());
  ASSERT_TRUE(monitor);
  EXPECT_FALSE(rig->source().isSecureInput());
  rig->typeSecret(KEY_S);
  EXPECT_TRUE(rig->source().isSecureInput());
  EXPECT_TRUE(keyPress(KEY_S).isSecureInput);
}

TEST_P(InteractionSourceConformance, WatchesNothingWithoutItsHandler) {
  InteractionHandlers handlers = presses.handlers();
  handlers.onKey = nullptr;
  const auto monitor = rig->source().monitor(std::move(handlers));
  ASSERT_TRUE(monitor);
  rig->typeWithControl(KEY_K);
  rig->press(InteractionMouseButton::left);
  EXPECT_EQ(presses.buttons(1).size(), 1U);
  EXPECT_TRUE(presses.keys(0).empty());
}

TEST_P(InteractionSourceConformance, CallsNoHandlerOnceStopped) {
  const auto monitor = rig->source().monitor(presses.handlers());
  ASSERT_TRUE(monitor);
  monitor->stop();
  monitor->stop();
  rig->press(InteractionMouseButton::left);
  rig->typeWithControl(KEY_K);
  const auto second = rig->source().monitor(presses.handlers()); // which sees what comes after
  ASSERT_TRUE(second);
  rig->press(InteractionMouseButton::right);
  const auto seen = presses.buttons(1);
  ASSERT_EQ(seen.size(), 1U);
  EXPECT_EQ(seen[0].button, InteractionMouseButton::right);
  EXPECT_TRUE(presses.keys(0).empty());
}

TEST_P(InteractionSourceConformance, IsStoppedFromAHandler) {
  std::latch isKnown(1);
  std::latch isCalled(1);
  std::atomic<int> calls = 0;
  InteractionMonitor* own = nullptr;
  const auto monitor = rig->source().monitor({.onButton =
                                                  [&](const ButtonPress&) {
                                                    isKnown.wait();
                                                    own->stop();
                                                    if (++calls == 1)
                                                      isCalled.count_down();
                                                  },
                                              .onKey = nullptr});
  ASSERT_TRUE(monitor);
  own = monitor.get();
  isKnown.count_down();
  rig->press(InteractionMouseButton::left);
  isCalled.wait();
  rig->press(InteractionMouseButton::right);
  monitor->stop();
  EXPECT_EQ(calls, 1);
}

INSTANTIATE_TEST_SUITE_P(Sources, InteractionSourceConformance,
                         ::testing::Values(Kind::scripted, Kind::display), [](const auto& each) {
                           return each.param == Kind::scripted ? "scripted" : "display";
                         });

} // namespace
} // namespace tessarin
