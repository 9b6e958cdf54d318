#include "backends/x11/InputWatch.hpp"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <utility>

namespace tessarin::x11 {

namespace {

// How often it is asked whether a keyboard that was taken still is.
constexpr MediaTime askingInterval = MediaTime::milliseconds(100);
constexpr int withoutEnd = -1;
constexpr int preparingMilliseconds = 50;
constexpr std::chrono::seconds longestPreparation(10);

} // namespace

InputWatch::InputWatch(const DisplayServer& server, double scale, const HostClock& clock,
                       PasswordFocus& passwords, InteractionHandlers handlers)
    : scale_(scale), clock_(clock), passwords_(passwords), handlers_(std::move(handlers)),
      record_(server, {.buttons = handlers_.onButton != nullptr, .keys = handlers_.onKey != nullptr}),
      times_(record_.beganAt(), clock.now()),
      keyboardState_(handlers_.onKey ? std::make_shared<KeyboardState>() : nullptr) {
  readButtonMapping();
  prepare();
  record_.control().setPatience(std::nullopt); // end() cuts it
  thread_ = std::thread([this] { run(); });
}

InputWatch::~InputWatch() {
  end();
}

// Cutting the connections ends whatever the thread waits for. Only the handler that calls this goes on.
void InputWatch::end() {
  isStopping_ = true;
  if (keyboardState_)
    keyboardState_->isWatched = false;
  record_.cut();
  if (threadID_.load() == std::this_thread::get_id())
    return;
  const std::lock_guard lock(mutex_);
  if (thread_.joinable())
    thread_.join();
}

// Until the state of the keyboard is known.
void InputWatch::prepare() {
  if (!handlers_.onKey)
    return;
  keyboard_.emplace(record_);
  const MediaTime deadline = clock_.now() + MediaTime(longestPreparation.count(), 1);
  for (takeAll(); !keyboard_->isReady(); takeAll()) {
    if (clock_.now() >= deadline)
      throw DesktopFailure();
    record_.wait(preparingMilliseconds);
  }
}

void InputWatch::run() {
  pthread_setname_np(pthread_self(), "input-watch");
  threadID_ = std::this_thread::get_id();
  isTelling_ = true;
  try {
    while (!isStopping_) {
      takeAll();
      record_.wait(longestWait());
      askWhenDue();
    }
  } catch (const DesktopFailure&) {
    // The server is lost, or this was stopped: nothing more is told.
  }
  if (keyboardState_)
    keyboardState_->isWatched = false;
}

// In milliseconds: until it is time to ask again, while somebody has the keyboard.
int InputWatch::longestWait() {
  if (!keyboard_ || !keyboard_->isHeld()) {
    asksAt_ = MediaTime();
    return withoutEnd;
  }
  const MediaTime now = clock_.now();
  if (!asksAt_.isNumeric())
    asksAt_ = now + askingInterval;
  return static_cast<int>(std::max(asksAt_ - now, MediaTime::zero()).wholeMilliseconds()) + 1;
}

// What the wait brought says nothing of this: the answers themselves end waits.
void InputWatch::askWhenDue() {
  if (!asksAt_.isNumeric() || clock_.now() < asksAt_)
    return;
  asksAt_ = MediaTime();
  keyboard_->ask();
}

// Reading one of the connections may take in what the other's wait would have told of, so that both are read
// until nothing is left.
void InputWatch::takeAll() {
  do {
    if (keyboard_)
      keyboard_->refresh();
    while (takeNotices()) {
      // Asking what has changed may bring more of them.
    }
  } while (record_.take([this](const RecordedElement& element) { handle(element); }));
}

// Of the control connection's events only those count that tell of other meanings of keys and buttons.
bool InputWatch::takeNotices() {
  bool isKeyMapping = false;
  bool isButtonMapping = false;
  while (const auto event = record_.control().pollEvent()) {
    if ((event->response_type & 0x7F) != XCB_MAPPING_NOTIFY)
      continue;
    const auto& notice = reinterpret_cast<const xcb_mapping_notify_event_t&>(*event);
    (notice.request == XCB_MAPPING_POINTER ? isButtonMapping : isKeyMapping) = true;
  }
  if (isButtonMapping)
    readButtonMapping();
  if (isKeyMapping && keyboard_)
    keyboard_->mappingChanged();
  return isButtonMapping || isKeyMapping;
}

// A record numbers buttons as the device does.
void InputWatch::readButtonMapping() {
  const auto reply = record_.control().required(xcb_get_pointer_mapping_reply,
                                                xcb_get_pointer_mapping(record_.control().get()));
  const auto* const first = xcb_get_pointer_mapping_map(reply.get());
  buttonMapping_.assign(first, first + xcb_get_pointer_mapping_map_length(reply.get()));
}

void InputWatch::handle(const RecordedElement& element) {
  if (isStopping_)
    return;
  if (element.type() == XCB_BUTTON_PRESS) {
    if (isTelling_)
      tell(element.as<xcb_button_press_event_t>());
  } else if (keyboard_) {
    const auto press = keyboard_->handle(element);
    if (press && isTelling_)
      tell(*press);
    keyboardState_->isTaken = keyboard_->isTaken();
  }
}

void InputWatch::tell(const xcb_button_press_event_t& event) {
  if (event.detail == 0)
    return;
  const std::size_t index = event.detail - 1U;
  const auto button = mouseButton(index < buttonMapping_.size() ? buttonMapping_[index] : event.detail);
  if (!button)
    return;
  handlers_.onButton(
      {*button, {event.root_x / scale_, event.root_y / scale_}, times_.hostTime(event.time, clock_.now())});
}

// A press may itself have taken the focus away from a password by now.
void InputWatch::tell(RecordedKeyPress recorded) {
  recorded.press.hostTime = times_.hostTime(recorded.serverTime, clock_.now());
  recorded.press.isSecureInput =
      recorded.press.isSecureInput || passwords_.wasFocusedSince(recorded.press.hostTime);
  handlers_.onKey(recorded.press);
}

} // namespace tessarin::x11
