#pragma once

#include "backends/x11/SharedMemory.hpp"
#include "backends/x11/WindowPixmap.hpp"
#include "pixels/Canvas.hpp"

#include <cstdint>

namespace tessarin::x11 {

// What a stream looks at. Confined to the connection's thread; every operation may throw DesktopFailure when
// the server is lost.
//
//   prepare(); request(); collect(); the events that came meanwhile go to handle(), and unless they have made
//   it stale, what was read is right.
class StreamSource {
 public:
  enum class Sign : std::uint8_t { none, changed, ended };

  virtual ~StreamSource() = default;

  virtual Sign handle(const xcb_generic_event_t& event) = 0;
  // Takes up what changes with the time alone.
  virtual Sign handleTime() { return Sign::none; }
  // Takes up what has changed in the arrangement of windows and screen. Events that come while it waits go
  // to the handler. Throws CaptureFailure.
  virtual void prepare(const PixelRect& screen, const EventHandler& others) = 0;
  // Whether prepare() has to come once more.
  virtual bool isStale() const = 0;
  // What is delivered, on the root window; empty when there is nothing to be seen at present.
  virtual PixelRect area() const = 0;

  // Reads a part of the area; see CanvasReader.
  virtual void request(const PixelRect& wanted, const PixelBuffer& buffer, const pixels::Canvas& canvas) = 0;
  // False when it was refused; it is stale then.
  virtual bool collect(const PixelRect& wanted, const pixels::Canvas& canvas) = 0;
  // Where the content may have changed between the last two requests.
  virtual PixelRect changedArea() const = 0;
  // What was read last was not used: its changes count for the next request as well.
  virtual void keepChanges() = 0;
};

// Where changes are noted between requests. Plain value.
class ChangeNotes {
 public:
  void add(const PixelRect& rectangle) { coming_ = enclosing(coming_, rectangle); }
  void beginRead() {
    read_ = coming_;
    coming_ = {};
  }
  void keep() { coming_ = enclosing(coming_, read_); }
  const PixelRect& read() const { return read_; }

 private:
  PixelRect coming_;
  PixelRect read_;
};

} // namespace tessarin::x11
