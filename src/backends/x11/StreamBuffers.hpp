#pragma once

#include "backends/x11/SharedMemory.hpp"
#include "model/Picture.hpp"
#include "pixels/Canvas.hpp"

#include <cstddef>
#include <memory>
#include <vector>

namespace tessarin::x11 {

// The buffers of a stream: receivers hold some, each until its picture's last copy is gone, and the stream
// itself keeps the one with the present picture. Confined to the stream's thread; pictures go anywhere.
class StreamBuffers {
 public:
  // Receivers may hold `depth` pictures at once.
  StreamBuffers(PixelReader& reader, std::size_t depth);

  // A canvas for a picture to come, and the buffer behind it; it stays free for the next call until it is
  // published. False while receivers hold too many.
  bool begin(std::int32_t width, std::int32_t height);
  const PixelBuffer& buffer() const { return slots_[begun_].buffer; }
  const pixels::Canvas& canvas() const { return canvas_; }

  // The begun picture becomes the present one.
  void publish();
  bool hasPresent() const { return present_ != none; }
  // As long as no other is published.
  const PictureView& presentView() const { return slots_[present_].view; }
  // A copy for receivers.
  Picture present();

 private:
  struct Slot {
    PixelBuffer buffer;
    PictureView view;
  };
  static constexpr std::size_t none = ~std::size_t{0};

  PixelReader& reader_;
  std::vector<Slot> slots_;
  std::size_t begun_ = none;
  std::size_t present_ = none;
  pixels::Canvas canvas_;
};

} // namespace tessarin::x11
