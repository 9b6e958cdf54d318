#pragma once

#include "ClientOptions.hpp"
#include "ClientServer.hpp"

#include <cstdint>
#include <vector>

namespace tessarin::client {

// AARRGGBB with colour multiplied by alpha, as windows of 32 bits hold it.
std::uint32_t premultiplied(std::uint32_t colour);

// What a window shows behind its client-drawn shadow.
inline constexpr std::uint32_t shadowColour = 0xFF101418;
inline constexpr std::uint32_t translucentShadowColour = 0x40000000;

// Paints a still picture of the kind into a new pixmap, which the caller frees. Always the same pixels for
// the same arguments.
xcb_pixmap_t paintPixmap(Server& server, xcb_window_t window, std::uint8_t depth, const Options& options,
                         int width, int height);

// A frame counter with a moving coloured background. Every frame counts from the beginning of its own clock;
// one that comes too late is left out.
class CounterPainting {
 public:
  CounterPainting(Server& server, xcb_window_t window, std::uint8_t depth, int frameRate);
  ~CounterPainting();
  CounterPainting(const CounterPainting&) = delete;
  CounterPainting& operator=(const CounterPainting&) = delete;

  // Becomes readable when the next frame is due.
  int timer() const { return timer_; }
  void paintDueFrame(int width, int height);

 private:
  void makeBackground(int width, int height);

  Server& server_;
  xcb_window_t window_;
  std::uint8_t depth_;
  int frameRate_;
  int timer_;
  std::uint64_t frame_ = 0;
  xcb_gcontext_t graphics_;
  xcb_pixmap_t blocks_;
  xcb_pixmap_t background_ = XCB_NONE;
  int backgroundWidth_ = 0;
  int backgroundHeight_ = 0;
};

} // namespace tessarin::client
