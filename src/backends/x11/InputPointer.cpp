#include "backends/x11/InputPointer.hpp"

#include "backends/x11/Displays.hpp"
#include "backends/x11/InputQuestions.hpp"
#include "backends/x11/InputRules.hpp"

#include <xcb/xcbext.h>
#include <xcb/xinput.h>

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <utility>

namespace tessarin::x11 {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds longestReading(200);
constexpr double fixedPoint = 65536;

std::uint16_t firstPointer(const xcb_input_xi_query_device_reply_t& devices) {
  for (auto device = xcb_input_xi_query_device_infos_iterator(&devices); device.rem > 0;
       xcb_input_xi_device_info_next(&device))
    if (device.data->type == XCB_INPUT_DEVICE_TYPE_MASTER_POINTER)
      return device.data->deviceid;
  throw DesktopFailure();
}

} // namespace

InputPointer::InputPointer(std::unique_ptr<Connection> connection) : connection_(std::move(connection)) {
  auto* const server = connection_->get();
  const auto* input = xcb_get_extension_data(server, &xcb_input_id);
  if (!input || input->present == 0)
    throw DesktopFailure();
  DisplayQuery displays(*connection_);
  const auto version = xcb_input_xi_query_version(server, 2, 1);
  const auto devices = xcb_input_xi_query_device(server, XCB_INPUT_DEVICE_ALL_MASTER);
  scale_ = displays.result().scale;
  connection_->required(xcb_input_xi_query_version_reply, version);
  device_ = firstPointer(*connection_->required(xcb_input_xi_query_device_reply, devices));
  unseen_ = makeUnseenWindow(*connection_);
}

std::optional<PointerState> InputPointer::read() {
  if (!isIdle())
    return std::nullopt;
  const auto reply = answer<xcb_input_xi_query_pointer_reply_t>(
      xcb_input_xi_query_pointer(connection_->get(), connection_->root(), device_).sequence);
  if (!reply)
    return std::nullopt;
  PointerState state;
  state.location = {reply->root_x / fixedPoint / scale_, reply->root_y / fixedPoint / scale_};
  const auto* const masks = xcb_input_xi_query_pointer_buttons(reply.get());
  const auto count = static_cast<std::uint32_t>(xcb_input_xi_query_pointer_buttons_length(reply.get())) * 32;
  for (std::uint32_t number = 0; number < count; ++number)
    if (((masks[number / 32] >> (number % 32)) & 1U) != 0)
      if (const auto button = mouseButton(number))
        state.isDown.at(static_cast<std::size_t>(*button)) = true;
  return state;
}

std::optional<bool> InputPointer::isKeyboardTaken() {
  if (!isIdle())
    return std::nullopt;
  const auto reply = answer<xcb_grab_keyboard_reply_t>(askForKeyboard(*connection_, unseen_).sequence);
  return reply ? std::optional(saysTaken(*reply)) : std::nullopt;
}

// Whether the server has answered all that it was asked; gives it the time of a reading for that.
bool InputPointer::isIdle() {
  if (unanswered_) {
    void* late = nullptr;
    if (!await(*unanswered_, &late))
      return false;
    std::free(late);
    unanswered_.reset();
  }
  return !connection_->isLost();
}

template<class Reply> Owned<Reply> InputPointer::answer(unsigned int sequence) {
  void* reply = nullptr;
  if (!await(sequence, &reply))
    unanswered_ = sequence;
  return Owned<Reply>(static_cast<Reply*>(reply));
}

// Whether the answer came in time, or no answer will come; null then.
bool InputPointer::await(unsigned int sequence, void** reply) {
  using std::chrono::milliseconds;
  const auto deadline = Clock::now() + longestReading;
  xcb_flush(connection_->get());
  for (;;) {
    while (auto* const event = xcb_poll_for_event(connection_->get()))
      std::free(event); // every client is told when the keyboard's layout changes
    xcb_generic_error_t* error = nullptr;
    if (xcb_poll_for_reply(connection_->get(), sequence, reply, &error) != 0) {
      std::free(error);
      return true;
    }
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
    if (left <= milliseconds(0))
      return false;
    pollfd input{connection_->descriptor(), POLLIN, 0};
    poll(&input, 1, static_cast<int>(left.count()));
  }
}

} // namespace tessarin::x11
