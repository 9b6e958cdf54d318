#include "live/InteractionTesting.hpp"

#include <array>
#include <filesystem>
#include <fstream>
#include <latch>
#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;

// Another program that takes the keyboard, and the keys that are typed meanwhile.
class InteractionSecrecy : public InteractionFixture {
 protected:
  void start() {
    startDesktop();
    holder = std::make_unique<KeyboardHolder>(*desktop);
  }

  // Whether the key is told as secret when it is typed now.
  bool isSecret(std::uint16_t code = KEY_C) {
    input->tap(code);
    const auto keys = keysSoFar();
    if (keys.empty() || keys.back().evdevCode != code) {
      ADD_FAILURE() << "the key was not told";
      return false;
    }
    return keys.back().isSecureInput;
  }

  // Whether keys become ordinary ones; right after the end of a grab some may still count as secret.
  bool becomesFree() {
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (isSecret(probe))
      if (std::chrono::steady_clock::now() >= deadline)
        return false;
    return true;
  }

  static constexpr std::uint16_t probe = KEY_F18;
  std::unique_ptr<KeyboardHolder> holder;
};

TEST_F(InteractionSecrecy, PasswordFieldsAreSecret) {
  start();
  EXPECT_FALSE(source->isSecureInput());
  passwords.focused = true;
  EXPECT_TRUE(source->isSecureInput());
  passwords.focused = false;
  watch();
  EXPECT_EQ(passwords.beginnings, 1);
  EXPECT_FALSE(isSecret());
  passwords.focused = true;
  EXPECT_TRUE(source->isSecureInput());
  EXPECT_TRUE(isSecret());
  passwords.focused = false;
  EXPECT_FALSE(isSecret());
}

// As a dialog for a password closes with the key that ends it.
TEST_F(InteractionSecrecy, APressIsSecretThoughThePasswordHasLostTheFocusBeforeItIsTold) {
  start();
  std::latch mayGoOn(1);
  InteractionHandlers handlers = presses.handlers();
  handlers.onKey = [&, tell = handlers.onKey](const KeyPress& press) {
    tell(press);
    if (press.evdevCode == KEY_A)
      mayGoOn.wait();
  };
  monitor = source->monitor(handlers);
  ASSERT_TRUE(monitor);
  input->tap(KEY_A); // what follows is told later
  presses.keys(1);
  std::this_thread::sleep_for(5ms);
  passwords.focused = true;
  input->tap(KEY_ENTER);
  passwords.leave(clock.now());
  std::this_thread::sleep_for(5ms);
  input->tap(KEY_B);
  mayGoOn.count_down();
  const auto keys = keysSoFar();
  ASSERT_EQ(keys.size(), 3U);
  EXPECT_FALSE(keys[0].isSecureInput);
  EXPECT_TRUE(keys[1].isSecureInput);
  EXPECT_FALSE(keys[2].isSecureInput);
}

TEST_F(InteractionSecrecy, WhatIsTypedWhileAnotherHasTheKeyboardIsSecret) {
  start();
  watch();
  struct Case {
    std::string take;
    std::string release;
  };
  for (const auto& [take, release] : {Case{"grab", "ungrab"}, Case{"grab-xi", "ungrab-xi"}}) {
    EXPECT_FALSE(isSecret()) << take;
    holder->command(take);
    EXPECT_TRUE(isSecret()) << take; // the first key already
    EXPECT_TRUE(isSecret(KEY_A)) << take;
    EXPECT_TRUE(source->isSecureInput()) << take;
    holder->command(release);
    EXPECT_TRUE(becomesFree()) << take;
    EXPECT_FALSE(isSecret()) << take;
  }
}

TEST_F(InteractionSecrecy, TheKeyThatEndsAGrabIsSecretToo) {
  start();
  watch();
  holder->command("grab");
  input->key(KEY_ENTER, true);
  holder->command("ungrab");
  input->key(KEY_ENTER, false);
  const auto keys = keysSoFar();
  ASSERT_EQ(keys.size(), 1U);
  EXPECT_TRUE(keys[0].isSecureInput);
}

TEST_F(InteractionSecrecy, AGrabThatWasThereBeforeIsSecret) {
  start();
  holder->command("grab");
  EXPECT_TRUE(source->isSecureInput());
  watch();
  EXPECT_TRUE(source->isSecureInput());
  EXPECT_TRUE(isSecret());
  holder->command("ungrab");
  EXPECT_TRUE(becomesFree());
  EXPECT_FALSE(isSecret());
}

TEST_F(InteractionSecrecy, AGrabEndsWithItsProgram) {
  start();
  watch();
  holder->command("grab");
  EXPECT_TRUE(isSecret());
  holder->crash();
  EXPECT_TRUE(becomesFree());
  EXPECT_FALSE(isSecret());
}

TEST_F(InteractionSecrecy, GrabsAreSeenWhereverTheFocusIs) {
  start();
  const auto client = desktop->client({});
  KeyboardHolder third(*desktop);
  watch();
  auto& connection = input->connection;
  const auto focus = [&](std::uint32_t window) {
    xcb_set_input_focus(connection.get(), XCB_INPUT_FOCUS_POINTER_ROOT, window, XCB_CURRENT_TIME);
    connection.sync();
  };
  for (const std::uint32_t window : {client->window(), static_cast<std::uint32_t>(XCB_NONE),
                                     static_cast<std::uint32_t>(XCB_INPUT_FOCUS_POINTER_ROOT),
                                     static_cast<std::uint32_t>(connection.root()), client->window()}) {
    focus(window);
    EXPECT_FALSE(isSecret()) << window;
    holder->command("grab");
    EXPECT_TRUE(isSecret()) << window;
    focus(window == client->window() ? connection.root() : client->window()); // while it is taken
    third.command("focus");
    EXPECT_TRUE(isSecret()) << window;
    holder->command("ungrab");
    EXPECT_TRUE(becomesFree()) << window;
    EXPECT_FALSE(isSecret()) << window;
  }
}

TEST_F(InteractionSecrecy, ManyShortGrabsHideExactlyWhatIsTypedInThem) {
  start();
  watch();
  for (int i = 0; i < 50; ++i) {
    holder->command("grab");
    input->tap(KEY_S); // secret
    holder->command("ungrab");
    ASSERT_TRUE(becomesFree());
    input->tap(KEY_P);
  }
  for (const KeyPress& press : keysSoFar()) {
    if (press.evdevCode != probe) {
      EXPECT_EQ(press.isSecureInput, press.evdevCode == KEY_S);
    }
  }
}

TEST_F(InteractionSecrecy, WhatClientsPretendChangesNothing) {
  start();
  const auto client = desktop->client({});
  holder->command("focus");
  watch();
  holder->command("grab");
  EXPECT_TRUE(isSecret());
  KeyboardHolder liar(*desktop);
  liar.command("pretend 2"); // the end of the grab
  EXPECT_TRUE(isSecret());
  holder->command("ungrab");
  EXPECT_TRUE(becomesFree());
  liar.command("pretend 1");
  EXPECT_FALSE(isSecret());
}

TEST_F(InteractionSecrecy, AShortcutThatAnotherProgramHasReservedIsNoSecret) {
  start();
  watch();
  holder->command("grab-key " + std::to_string(KEY_E + 8));
  input->key(KEY_LEFTMETA, true);
  input->key(KEY_E, true); // the holder has the keyboard as long as this is down
  EXPECT_FALSE(isSecret(KEY_K));
  EXPECT_FALSE(source->isSecureInput());
  input->key(KEY_E, false);
  input->key(KEY_LEFTMETA, false);
  for (const KeyPress& press : keysSoFar())
    EXPECT_FALSE(press.isSecureInput) << press.evdevCode;

  // Now it holds on to the keyboard.
  input->key(KEY_E, true);
  holder->command("grab");
  EXPECT_TRUE(isSecret());
  input->key(KEY_E, false);
  EXPECT_TRUE(isSecret());
  holder->command("ungrab");
  EXPECT_TRUE(becomesFree());
  EXPECT_FALSE(isSecret());
}

// As window managers do that want to know of a key first.
TEST_F(InteractionSecrecy, WhatIsTypedWhileAProgramHoldsTheKeyboardBackIsToldOnce) {
  start();
  const auto client = desktop->client({});
  watch();
  holder->command("freeze-key " + std::to_string(KEY_LEFTMETA + 8));
  for (int i = 0; i < 10; ++i) {
    input->key(KEY_LEFTMETA, true);
    input->tap(KEY_J);
    holder->command("replay");
    input->tap(KEY_K);
    input->key(KEY_LEFTMETA, false);
    EXPECT_TRUE(becomesFree());
  }
  std::vector<KeyPress> keys = keysSoFar();
  std::erase_if(keys, [](const KeyPress& press) { return press.evdevCode == probe; });
  ASSERT_EQ(keys.size(), 30U);
  constexpr std::array<std::uint16_t, 3> order = {KEY_LEFTMETA, KEY_J, KEY_K};
  for (std::size_t i = 0; i < keys.size(); ++i) {
    EXPECT_EQ(keys[i].evdevCode, order.at(i % order.size()));
    EXPECT_FALSE(keys[i].isSecureInput);
    EXPECT_FALSE(keys[i].isRepeat);
    if (keys[i].evdevCode == KEY_K) {
      EXPECT_TRUE(keys[i].modifiers.command);
    }
  }
}

TEST_F(InteractionSecrecy, AWindowManagersShortcutsAreNoSecret) {
  startDesktop({.hasWindowManager = true});
  const auto first = desktop->client({"--title", "one"});
  const auto second = desktop->client({"--title", "two"});
  watch();
  input->chord({KEY_LEFTALT}, KEY_TAB);
  const auto keys = keysSoFar();
  ASSERT_EQ(keys.size(), 2U);
  EXPECT_EQ(keys[1].evdevCode, KEY_TAB);
  EXPECT_EQ(keys[1].modifiers, (KeyModifiers{.option = true}));
  EXPECT_FALSE(keys[1].isSecureInput);
  EXPECT_TRUE(becomesFree());
  EXPECT_FALSE(isSecret());
}

TEST_F(InteractionSecrecy, AGrabOfThePointerIsNone) {
  start();
  watch();
  holder->command("grab-pointer");
  EXPECT_TRUE(becomesFree());
  EXPECT_FALSE(source->isSecureInput());
  input->click();
  EXPECT_EQ(presses.buttons(1).size(), 1U);
}

// How often the thread that watches has gone to sleep so far.
long sleepsOfTheWatch() {
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream status(task.path() / "status");
    std::string name;
    std::string word;
    long count = 0;
    while (status >> word)
      if (word == "Name:")
        status >> name;
      else if (word == "voluntary_ctxt_switches:")
        status >> count;
    if (name == "input-watch")
      return count;
  }
  return -1;
}

TEST_F(InteractionSecrecy, WhetherAGrabHasEndedIsAskedNowAndThen) {
  start();
  watch();
  holder->command("grab");
  EXPECT_TRUE(isSecret());
  const long before = sleepsOfTheWatch();
  ASSERT_GE(before, 0);
  std::this_thread::sleep_for(1s);
  const long asked = sleepsOfTheWatch() - before;
  EXPECT_GE(asked, 3);
  EXPECT_LE(asked, 100) << "a question is put ten times a second, and each wakes the thread a few times";
}

// This process is the recorder here, and the connection one of its panels'.
TEST_F(InteractionSecrecy, OurOwnGrabIsNoneAndHidesWhatIsTypedForUs) {
  start();
  watch();
  auto& panels = input->connection;
  const auto grab = [&] {
    return panels
        .required(xcb_grab_keyboard_reply, xcb_grab_keyboard(panels.get(), 0, panels.root(), XCB_CURRENT_TIME,
                                                             XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC))
        ->status;
  };
  input->tap(KEY_A);
  ASSERT_EQ(grab(), XCB_GRAB_STATUS_SUCCESS);
  input->tap(KEY_B);
  input->click();
  EXPECT_EQ(presses.buttons(1).size(), 1U) << "clicks are seen";
  EXPECT_FALSE(source->isSecureInput());
  xcb_ungrab_keyboard(panels.get(), XCB_CURRENT_TIME);
  panels.sync();
  std::this_thread::sleep_for(300ms); // it is asked now and then
  input->tap(KEY_C);
  EXPECT_EQ(codesSoFar(), (std::vector<std::uint16_t>{KEY_A, KEY_C}));
}

TEST_F(InteractionSecrecy, WhatIsTypedIntoOurOwnWindowsIsNotTold) {
  start();
  const auto client = desktop->client({});
  auto& panels = input->connection;
  const auto window = xcb_generate_id(panels.get());
  const std::uint32_t unmanaged = 1;
  xcb_create_window(panels.get(), XCB_COPY_FROM_PARENT, window, panels.root(), 600, 400, 100, 100, 0,
                    XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_OVERRIDE_REDIRECT,
                    &unmanaged);
  xcb_map_window(panels.get(), window);
  const auto focus = [&](std::uint32_t to) {
    xcb_set_input_focus(panels.get(), XCB_INPUT_FOCUS_POINTER_ROOT, to, XCB_CURRENT_TIME);
    panels.sync();
    std::this_thread::sleep_for(100ms); // nobody moves the focus and types at once
  };
  focus(client->window());
  watch();
  for (int i = 0; i < 5; ++i) {
    focus(window);
    input->tap(KEY_ESC);
    focus(client->window());
    input->tap(KEY_A);
  }
  EXPECT_EQ(codesSoFar(), std::vector<std::uint16_t>(5, KEY_A));

  // Where no window has the focus, the one at the pointer gets what is typed.
  focus(XCB_INPUT_FOCUS_POINTER_ROOT);
  input->moveTo(650, 450);
  input->tap(KEY_B);
  input->moveTo(5, 700);
  input->tap(KEY_C);
  EXPECT_EQ(codesSoFar().back(), KEY_C);
  const auto codes = codesSoFar();
  EXPECT_EQ(std::count(codes.begin(), codes.end(), KEY_B), 0);
}

} // namespace
} // namespace tessarin
