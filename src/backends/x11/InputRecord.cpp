#include "backends/x11/InputRecord.hpp"

#include <xcb/record.h>
#include <xcb/xcbext.h>
#include <xcb/xinput.h>

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstring>

namespace tessarin::x11 {

namespace {

// Categories of what the record tells.
constexpr std::uint8_t fromServer = 0;
constexpr std::uint8_t startOfData = 4;

constexpr std::size_t eventSize = 32;

} // namespace

InputRecord::InputRecord(const DisplayServer& server, InputKinds kinds)
    : control_(server.open()), data_(server.open()) {
  auto* const connection = control_->get();
  const auto* record = xcb_get_extension_data(connection, &xcb_record_id);
  const auto* input = xcb_get_extension_data(connection, &xcb_input_id);
  if (!record || record->present == 0 || !input || input->present == 0)
    throw DesktopFailure();
  inputExtension_ = input->major_opcode;
  control_->required(xcb_record_query_version_reply, xcb_record_query_version(connection, 1, 13));
  control_->required(xcb_input_xi_query_version_reply, xcb_input_xi_query_version(connection, 2, 1));
  createContext(kinds);
  awaitBegin();
  selectRawEvents(kinds);
}

// The context ends with the connection that created it.
InputRecord::~InputRecord() = default;

std::vector<xcb_record_range_t> InputRecord::ranges(InputKinds kinds) const {
  xcb_record_range_t first{};
  first.device_events = {kinds.keys ? std::uint8_t{XCB_KEY_PRESS} : std::uint8_t{XCB_BUTTON_PRESS},
                         kinds.buttons ? std::uint8_t{XCB_BUTTON_PRESS} : std::uint8_t{XCB_KEY_RELEASE}};
  if (!kinds.keys)
    return {first};
  first.delivered_events = {XCB_FOCUS_IN, XCB_FOCUS_OUT};
  first.core_replies = {XCB_GRAB_KEYBOARD, XCB_GRAB_KEYBOARD};
  const auto inputReplies = [this](std::uint16_t minor) {
    return xcb_record_ext_range_t{{inputExtension_, inputExtension_}, {minor, minor}};
  };
  first.ext_replies = inputReplies(XCB_INPUT_XI_GRAB_DEVICE);
  xcb_record_range_t second{};
  second.core_replies = {XCB_QUERY_KEYMAP, XCB_QUERY_KEYMAP};
  second.ext_replies = inputReplies(XCB_INPUT_GRAB_DEVICE);
  return {first, second};
}

void InputRecord::createContext(InputKinds kinds) {
  context_ = xcb_generate_id(control_->get());
  const std::vector<xcb_record_range_t> wanted = ranges(kinds);
  const xcb_record_client_spec_t clients = XCB_RECORD_CS_ALL_CLIENTS;
  const auto created = xcb_record_create_context_checked(
      control_->get(), context_, 0, 1, static_cast<std::uint32_t>(wanted.size()), &clients, wanted.data());
  if (!control_->succeeded(created))
    throw DesktopFailure();
  sequence_ = xcb_record_enable_context(data_->get(), context_).sequence;
}

// The first answer says that all that happens from now on is told.
void InputRecord::awaitBegin() {
  const auto begin =
      data_->required(xcb_record_enable_context_reply, xcb_record_enable_context_cookie_t{sequence_});
  if (begin->category != startOfData)
    throw DesktopFailure();
  beganAt_ = begin->server_time;
}

// A server hands out what it has recorded when it has something else to send as well. These events, which are
// of no other use, are that something for what no client is told of.
void InputRecord::selectRawEvents(InputKinds kinds) {
  struct {
    xcb_input_event_mask_t head;
    std::uint32_t mask;
  } selection{{XCB_INPUT_DEVICE_ALL_MASTER, 1}, 0};
  if (kinds.buttons)
    selection.mask |= XCB_INPUT_XI_EVENT_MASK_RAW_BUTTON_PRESS;
  if (kinds.keys)
    selection.mask |= XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS;
  const auto selected =
      xcb_input_xi_select_events_checked(control_->get(), control_->root(), 1, &selection.head);
  if (!control_->succeeded(selected))
    throw DesktopFailure();
}

bool InputRecord::take(const Handler& handler) {
  while (data_->pollEvent()) {
    // Only taking events reads from the server; they themselves are of no interest.
  }
  bool hasTaken = false;
  void* answer = nullptr;
  xcb_generic_error_t* error = nullptr;
  while (xcb_poll_for_reply(data_->get(), sequence_, &answer, &error) != 0) {
    const Owned<xcb_record_enable_context_reply_t> reply(
        static_cast<xcb_record_enable_context_reply_t*>(answer));
    const Owned<xcb_generic_error_t> refusal(error);
    if (!reply || (reply->category != fromServer && reply->category != startOfData))
      throw DesktopFailure();
    hasTaken = true;
    forEachElement(reply->xid_base, reply->client_swapped != 0,
                   {xcb_record_enable_context_data(reply.get()),
                    static_cast<std::size_t>(xcb_record_enable_context_data_length(reply.get()))},
                   handler);
  }
  return hasTaken;
}

void InputRecord::wait(int milliseconds) const {
  std::array<pollfd, 2> inputs{{{data_->descriptor(), POLLIN, 0}, {control_->descriptor(), POLLIN, 0}}};
  poll(inputs.data(), inputs.size(), milliseconds);
}

void InputRecord::cut() const {
  shutdown(data_->descriptor(), SHUT_RDWR);
  shutdown(control_->descriptor(), SHUT_RDWR);
}

void forEachElement(std::uint32_t clientBase, bool isSwapped, std::span<const std::uint8_t> bytes,
                    const InputRecord::Handler& handler) {
  while (bytes.size() >= eventSize) {
    std::uint64_t size = eventSize;
    if (bytes[0] == 1) { // a reply: its length in units of four bytes beyond the least
      std::uint32_t more = 0;
      std::memcpy(&more, bytes.data() + 4, sizeof more);
      size += std::uint64_t{isSwapped ? __builtin_bswap32(more) : more} * 4;
    }
    if (size > bytes.size())
      return;
    handler({clientBase, bytes.first(static_cast<std::size_t>(size))});
    bytes = bytes.subspan(static_cast<std::size_t>(size));
  }
}

} // namespace tessarin::x11
