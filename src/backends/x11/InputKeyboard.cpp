#include "backends/x11/InputKeyboard.hpp"

#include "backends/x11/InputQuestions.hpp"

#include <xcb/xinput.h>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace tessarin::x11 {

namespace {

constexpr std::size_t keymapReplySize = sizeof(xcb_query_keymap_reply_t);

} // namespace

InputKeyboard::InputKeyboard(InputRecord& record)
    : record_(record), connection_(record.control()), unseen_(makeUnseenWindow(connection_)),
      focus_(connection_) {
  const auto keymap = xcb_query_keymap(connection_.get());
  xcb_discard_reply(connection_.get(), keymap.sequence); // the record brings it, in its place
  ask();
  mappingChanged();
  focus_.refresh();
}

void InputKeyboard::ask() {
  if (isAsking_) {
    asksAgain_ = true; // what is on its way may be older than what asks for it
    return;
  }
  isAsking_ = true;
  const auto asked = askForKeyboard(connection_, unseen_);
  xcb_discard_reply(connection_.get(), asked.sequence);
  connection_.flush();
}

void InputKeyboard::mappingChanged() {
  const auto& setup = connection_.setup();
  const auto count = static_cast<std::uint8_t>(setup.max_keycode - setup.min_keycode + 1);
  const auto modifiersAsked = xcb_get_modifier_mapping(connection_.get());
  const auto symbolsAsked = xcb_get_keyboard_mapping(connection_.get(), setup.min_keycode, count);
  const auto modifiers = connection_.required(xcb_get_modifier_mapping_reply, modifiersAsked);
  const auto symbols = connection_.required(xcb_get_keyboard_mapping_reply, symbolsAsked);
  const std::span<const std::uint8_t> keycodes(
      xcb_get_modifier_mapping_keycodes(modifiers.get()),
      static_cast<std::size_t>(xcb_get_modifier_mapping_keycodes_length(modifiers.get())));
  const std::span<const std::uint32_t> all(
      xcb_get_keyboard_mapping_keysyms(symbols.get()),
      static_cast<std::size_t>(xcb_get_keyboard_mapping_keysyms_length(symbols.get())));
  const std::size_t each = symbols->keysyms_per_keycode;
  masks_ = modifierMasks(keycodes, [&](std::uint8_t keycode) -> std::span<const std::uint32_t> {
    const auto first = keycode >= setup.min_keycode ? (keycode - setup.min_keycode) * each : all.size();
    return first + each <= all.size() ? all.subspan(first, each) : std::span<const std::uint32_t>();
  });
}

std::optional<RecordedKeyPress> InputKeyboard::handle(const RecordedElement& element) {
  switch (element.type()) {
  case XCB_KEY_PRESS:
    return pressed(element.as<xcb_key_press_event_t>());
  case XCB_KEY_RELEASE:
    keys_.release(element.as<xcb_key_release_event_t>().detail);
    break;
  case XCB_FOCUS_IN:
  case XCB_FOCUS_OUT:
    focusChanged(element);
    break;
  case 1:
    replied(element);
    break;
  default:
    break;
  }
  return std::nullopt;
}

std::optional<RecordedKeyPress> InputKeyboard::pressed(const xcb_key_press_event_t& event) {
  const bool isRepeat = keys_.press(event.detail);
  const std::optional<std::uint16_t> code = evdevCode(event.detail);
  if (!isReady() || !code || grabs_.isOurs() ||
      (!grabs_.isTaken() && focus_.isOurs(event.root_x, event.root_y)))
    return std::nullopt;
  return RecordedKeyPress{{.evdevCode = *code,
                           .modifiers = keyModifiers(event.state, masks_),
                           .isRepeat = isRepeat,
                           .isSecureInput = grabs_.isTaken(),
                           .hostTime = {}},
                          event.time};
}

// What clients send each other proves nothing.
void InputKeyboard::focusChanged(const RecordedElement& element) {
  if (element.isSentByClient())
    return;
  const auto mode = element.as<xcb_focus_in_event_t>().mode;
  if (mode == XCB_NOTIFY_MODE_GRAB || mode == XCB_NOTIFY_MODE_UNGRAB)
    ask();
  else
    focus_.moved();
}

void InputKeyboard::replied(const RecordedElement& reply) {
  if (reply.clientBase != connection_.setup().resource_id_base) {
    granted(reply);
  } else if (reply.bytes.size() == keymapReplySize) {
    HeldKeys::Keymap keymap = {};
    std::copy_n(reply.as<xcb_query_keymap_reply_t>().keys, keymap.size(), keymap.begin());
    keys_.replace(keymap);
    knowsKeys_ = true;
  } else {
    grabs_.told(saysTaken(reply.as<xcb_grab_keyboard_reply_t>()));
    isAsking_ = false;
    if (std::exchange(asksAgain_, false))
      ask();
  }
}

// The answers to requests of the input extension carry the request's number; the core's carries the status
// there, which is never as great.
void InputKeyboard::granted(const RecordedElement& reply) {
  if (reply.bytes.size() == keymapReplySize)
    return;
  const std::uint8_t kind = reply.bytes[1];
  const bool isOfExtension = kind == XCB_INPUT_GRAB_DEVICE || kind == XCB_INPUT_XI_GRAB_DEVICE;
  const std::uint8_t status =
      isOfExtension ? reply.as<xcb_input_xi_grab_device_reply_t>().status : reply.bytes[1];
  if (status != XCB_GRAB_STATUS_SUCCESS)
    return;
  grabs_.granted(focus_.isOurClient(reply.clientBase), !isOfExtension);
  ask();
}

} // namespace tessarin::x11
