#pragma once

#include "backends/x11/Connection.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

struct xcb_record_range_t;

namespace tessarin::x11 {

struct InputKinds {
  bool buttons = false;
  bool keys = false;
};

// One event or reply that the server has told, as it stands in the protocol.
struct RecordedElement {
  std::uint32_t clientBase = 0; // of the client that got it; 0 for what devices did
  std::span<const std::uint8_t> bytes;

  std::uint8_t type() const { return bytes[0] & 0x7F; }
  bool isSentByClient() const { return (bytes[0] & 0x80) != 0; }
  // As an event or reply of the protocol, which the bytes must be long enough for.
  template<class T> const T& as() const { return *reinterpret_cast<const T*>(bytes.data()); }
};

// What the server tells of its input, in the order in which it happens there: button presses; key presses and
// releases, and, so that their order against these is known, who gets and loses the focus, which grabs are
// granted, and the answers to such questions of ours as are to have a place in the order (QueryKeymap and
// GrabKeyboard on control()). Two connections of its own. Confined to one thread, but for cut().
class InputRecord {
 public:
  using Handler = std::function<void(const RecordedElement&)>;

  // Throws DesktopFailure.
  InputRecord(const DisplayServer& server, InputKinds kinds);
  ~InputRecord();
  InputRecord(const InputRecord&) = delete;
  InputRecord& operator=(const InputRecord&) = delete;

  // The connection on which to ask, and on which the record depends.
  Connection& control() { return *control_; }
  std::uint8_t inputExtension() const { return inputExtension_; }
  // The server's time when the record began.
  std::uint32_t beganAt() const { return beganAt_; }

  // Hands on what has come meanwhile. Whether there was anything. Throws DesktopFailure when the server is
  // lost or the record was cut.
  bool take(const Handler& handler);
  // Until there may be something to take, or an event of the control connection, or the time is over.
  void wait(int milliseconds) const;

  // Any thread: all waiting on both connections ends, for good.
  void cut() const;

 private:
  std::vector<xcb_record_range_t> ranges(InputKinds kinds) const;
  void createContext(InputKinds kinds);
  void awaitBegin();
  void selectRawEvents(InputKinds kinds);

  const std::unique_ptr<Connection> control_;
  const std::unique_ptr<Connection> data_;
  std::uint8_t inputExtension_ = 0;
  std::uint32_t context_ = 0;
  unsigned int sequence_ = 0; // of the request that is answered over and over
  std::uint32_t beganAt_ = 0;
};

// The events and replies that lie one behind the other in what the server told at once; those to a client of
// the other byte order have it. What is torn at the end is left out.
void forEachElement(std::uint32_t clientBase, bool isSwapped, std::span<const std::uint8_t> bytes,
                    const InputRecord::Handler& handler);

} // namespace tessarin::x11
