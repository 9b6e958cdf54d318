#pragma once

#include "backends/x11/Connection.hpp"
#include "backends/x11/InteractionSource.hpp"
#include "ports/SecureInput.hpp"
#include "support/PrivateDesktop.hpp"

#include <gtest/gtest.h>
#include <linux/input-event-codes.h>
#include <xcb/xtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace tessarin {

// A pointer and a keyboard that a test uses as a person would. Keys by their evdev codes.
class FakeInput {
 public:
  explicit FakeInput(const std::string& display) : connection(display) {}

  void moveTo(int x, int y) {
    xcb_test_fake_input(connection.get(), XCB_MOTION_NOTIFY, 0, XCB_CURRENT_TIME, connection.root(),
                        static_cast<std::int16_t>(x), static_cast<std::int16_t>(y), 0);
    connection.sync();
  }
  void button(std::uint8_t number, bool isDown) {
    fake(isDown ? XCB_BUTTON_PRESS : XCB_BUTTON_RELEASE, number);
    connection.sync();
  }
  // Press and release, with no time in between.
  void click(std::uint8_t number = 1) {
    fake(XCB_BUTTON_PRESS, number);
    fake(XCB_BUTTON_RELEASE, number);
    connection.sync();
  }
  void key(std::uint16_t code, bool isDown) {
    fake(isDown ? XCB_KEY_PRESS : XCB_KEY_RELEASE, static_cast<std::uint8_t>(code + 8));
    connection.sync();
  }
  void tap(std::uint16_t code) {
    key(code, true);
    key(code, false);
  }
  // The key while the others are held.
  void chord(const std::vector<std::uint16_t>& held, std::uint16_t code) {
    for (const auto each : held)
      key(each, true);
    tap(code);
    for (auto each = held.rbegin(); each != held.rend(); ++each)
      key(*each, false);
  }

  x11::Connection connection;

 private:
  void fake(std::uint8_t type, std::uint8_t detail) {
    xcb_test_fake_input(connection.get(), type, detail, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
  }
};

// Another program that takes the keyboard; tests/desktop/keyboard-holder.cpp has its commands.
class KeyboardHolder {
 public:
  explicit KeyboardHolder(const PrivateDesktop& desktop)
      : process_({TESSARIN_TEST_KEYBOARD_HOLDER},
                 {.environment = {{"DISPLAY", desktop.display()}}, .hasInput = true}) {
    const auto line = process_.readLine();
    if (!line || !line->starts_with("ready "))
      throw std::runtime_error("the holder of the keyboard did not start");
  }
  void command(const std::string& line) {
    if (!process_.writeLine(line) || process_.readLine() != "done")
      throw std::runtime_error("the holder did not carry out: " + line);
  }
  void crash() { process_.end(SIGKILL); }

 private:
  ChildProcess process_;
};

class ScriptedPasswordFocus final : public PasswordFocus {
 public:
  void begin() override { ++beginnings; }
  bool isFocused() override { return focused; }
  bool wasFocusedSince(MediaTime hostTime) override {
    return focused || (hostTime.isNumeric() && hostTime <= MediaTime::nanoseconds(leftAt));
  }
  void leave(MediaTime now) {
    leftAt = now.convertedTo(MediaTime::nanosecondScale).value();
    focused = false;
  }

  std::atomic<int> beginnings = 0;
  std::atomic<bool> focused = false;
  std::atomic<std::int64_t> leftAt = -1; // host time in nanoseconds
};

// What a monitor tells.
class Presses {
 public:
  InteractionHandlers handlers() {
    return {.onButton = [this](const ButtonPress& press) { add(buttons_, press); },
            .onKey = [this](const KeyPress& press) { add(keys_, press); }};
  }
  std::vector<ButtonPress> buttons(std::size_t count) { return wait(buttons_, count); }
  std::vector<KeyPress> keys(std::size_t count) { return wait(keys_, count); }
  // All others when there are so many of that key.
  std::vector<KeyPress> keysBefore(std::uint16_t code, std::size_t count) {
    const auto isCode = [code](const KeyPress& press) { return press.evdevCode == code; };
    std::unique_lock lock(mutex_);
    const bool hasCome = changed_.wait_for(lock, std::chrono::seconds(10), [&] {
      return std::count_if(keys_.begin(), keys_.end(), isCode) >= static_cast<std::ptrdiff_t>(count);
    });
    EXPECT_TRUE(hasCome);
    std::vector<KeyPress> others = keys_;
    std::erase_if(others, isCode);
    return others;
  }

 private:
  template<class Press> void add(std::vector<Press>& presses, const Press& press) {
    const std::lock_guard guard(mutex_);
    presses.push_back(press);
    changed_.notify_all();
  }
  // All there are when there are so many, or after a time that is long enough for anything.
  template<class Press> std::vector<Press> wait(const std::vector<Press>& presses, std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, std::chrono::seconds(10), [&] { return presses.size() >= count; });
    return presses;
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<ButtonPress> buttons_;
  std::vector<KeyPress> keys_;
};

// A desktop of the test's own, with somebody at its pointer and keyboard.
class InteractionFixture : public ::testing::Test {
 protected:
  InteractionFixture() {
    // As the program does: a lost server is nothing that ends the process.
    std::signal(SIGPIPE, SIG_IGN);
  }

  void startDesktop(const PrivateDesktop::Options& options = {}) {
    desktop = std::make_unique<PrivateDesktop>(options);
    input = std::make_unique<FakeInput>(desktop->display());
    makeSource();
  }
  void makeSource() {
    server = std::make_shared<x11::DisplayServer>(desktop->display());
    source = x11::makeInteractionSource(server, clock, passwords);
  }
  void watch() {
    monitor = source->monitor(presses.handlers());
    ASSERT_TRUE(monitor);
  }

  // The presses of keys up to now. What comes behind them is a key of no other use.
  std::vector<KeyPress> keysSoFar() {
    input->tap(sentinel);
    return presses.keysBefore(sentinel, ++sentinels_);
  }
  std::vector<std::uint16_t> codesSoFar() {
    std::vector<std::uint16_t> codes;
    for (const KeyPress& press : keysSoFar())
      codes.push_back(press.evdevCode);
    return codes;
  }

  static constexpr std::uint16_t sentinel = KEY_F19;

  MonotonicHostClock clock;
  ScriptedPasswordFocus passwords;
  Presses presses;
  std::unique_ptr<PrivateDesktop> desktop;
  std::unique_ptr<FakeInput> input;
  std::shared_ptr<x11::DisplayServer> server;
  std::unique_ptr<InteractionSource> source;
  std::unique_ptr<InteractionMonitor> monitor;

 private:
  std::size_t sentinels_ = 0;
};

} // namespace tessarin
