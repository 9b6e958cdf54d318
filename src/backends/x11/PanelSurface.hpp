#pragma once

#include "backends/x11/Connection.hpp"
#include "backends/x11/SharedMemory.hpp"
#include "model/Picture.hpp"

#include <xcb/shape.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace tessarin::x11 {

// What a window shows: a picture in the server, from which the server repaints what comes to light by
// itself, and the window's shape. Confined to the connection's thread. Every call throws DesktopFailure when
// the server is lost.
class PanelSurface {
 public:
  // A new surface shows nothing. The reader makes its memory; both outlive the surface. Where it takes the
  // pointer, it does so with the pixels of at least half an alpha; all others let it through.
  PanelSurface(Connection& connection, PixelReader& reader, xcb_window_t window, std::uint8_t depth,
               bool takesPointer);
  ~PanelSurface();
  PanelSurface(const PanelSurface&) = delete;
  PanelSurface& operator=(const PanelSurface&) = delete;

  // Shows the picture at the window's top left: with its alpha where windows are mixed, else cut to its
  // opaque parts. Without pixels nothing is shown. While the server has not taken the picture before, this
  // one is kept in its place, and the newest one is shown then.
  void show(const Picture& picture, bool isMixed);
  // Of the window; empty shows nothing.
  void setSize(std::int32_t width, std::int32_t height);
  // Whether the event tells that the server has taken a picture, or refused it.
  bool handle(const xcb_generic_event_t& event);

 private:
  struct Kept {
    Picture picture;
    bool isMixed = false;
  };

  void take(const Kept& kept);
  void reserve(std::int32_t width, std::int32_t height);
  bool hasRead(const xcb_generic_event_t& event) const;
  void put();
  void putRows();
  std::uint32_t askForAnswer();
  void present();
  void applyShapes();
  void applyShape(xcb_shape_sk_t kind, const std::vector<PixelRect>& wanted,
                  std::optional<std::vector<PixelRect>>& present);

  Connection& connection_;
  PixelReader& reader_;
  const xcb_window_t window_;
  const std::uint8_t depth_;
  const bool takesPointer_;
  const xcb_gcontext_t graphics_;
  xcb_pixmap_t pixmap_ = XCB_NONE;
  std::int32_t pixmapWidth_ = 0;
  std::int32_t pixmapHeight_ = 0;
  PixelBuffer buffer_;
  std::int32_t rowsPut_ = 0;             // of the picture in the buffer
  std::optional<std::uint32_t> reading_; // the request by which the server has yet to read them
  std::optional<Kept> next_;             // to be shown when it has
  std::vector<PixelRect> seen_;          // of the picture
  std::vector<PixelRect> touched_;       // likewise
  std::int32_t width_ = 0;
  std::int32_t height_ = 0;
  // The window's shapes as the server has them.
  std::optional<std::vector<PixelRect>> boundingShape_;
  std::optional<std::vector<PixelRect>> inputShape_;
};

} // namespace tessarin::x11
