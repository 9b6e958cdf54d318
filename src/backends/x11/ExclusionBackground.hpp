#pragma once

#include "backends/x11/Displays.hpp"
#include "backends/x11/SharedMemory.hpp"
#include "model/Picture.hpp"

namespace tessarin::x11 {

// What the root window shows where no window lies. Confined to the connection's thread.
class ExclusionBackground {
 public:
  ExclusionBackground(Connection& connection, PixelReader& reader)
      : connection_(connection), reader_(reader) {}

  // It may be another one now.
  void forget() { area_ = {}; }
  // Makes sure that the rectangle, a part of the screen, is there; more is read than that, so that a window
  // dragged about does not cause a reading with every step. Throws DesktopFailure.
  void provide(const PixelRect& rectangle, const PixelRect& screen, bool isComposited);
  // What is there, and where it lies on the root window.
  PictureView view() const;
  const PixelRect& area() const { return area_; }

 private:
  bool readPixmap();
  bool readWindow(bool isComposited);

  Connection& connection_;
  PixelReader& reader_;
  PixelBuffer buffer_;
  PixelRect area_;
};

} // namespace tessarin::x11
