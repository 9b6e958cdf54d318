#pragma once

#include "ClientOptions.hpp"
#include "ClientPainting.hpp"
#include "ClientServer.hpp"

#include <cstdint>
#include <memory>
#include <string>

namespace tessarin::client {

// The client's window, with its properties as the options ask.
class ClientWindow {
 public:
  ClientWindow(Server& server, Options options);

  xcb_window_t id() const { return window_; }
  // Maps the window and returns when it is to be seen, managed and painted.
  void show();
  // Carries out a line of standard input and returns when the server, and the window manager, have done it:
  // "move X Y", "resize W H", "paint AARRGGBB", "title TEXT", "raise", "unmap", "map", "close" (destroys the
  // window), "cover" (puts another window over it), "uncover"; "flash T MS" (turns white at T nanoseconds on
  // the monotonic clock and, after the milliseconds, looks as before).
  void carryOut(const std::string& line);
  void handle(const xcb_generic_event_t& event);

  // Of a counter; otherwise null.
  CounterPainting* counter() const { return counter_.get(); }
  void paintDueFrame() { counter_->paintDueFrame(width_, height_); }
  void closeWindow();

 private:
  bool isManaged() const;
  void create();
  void setProperties();
  void setTitle(const std::string& title);
  void setSizeHints();
  void setShape();
  void setBackground();
  void paintNow();
  void waitUntilShown();
  void waitForConfiguration();
  xcb_window_t frame();
  void waitUntilHidden(xcb_window_t window);
  void configure(std::uint16_t mask, const std::uint32_t* values);
  void cover();
  void flash(std::int64_t at, int milliseconds);
  void askTray();

  Server& server_;
  Options options_;
  int width_;
  int height_;
  std::uint8_t depth_;
  xcb_window_t window_;
  xcb_window_t covering_ = XCB_NONE;
  bool isWindowManagerThere_;
  bool isConfigured_ = false;
  std::unique_ptr<CounterPainting> counter_;
};

} // namespace tessarin::client
