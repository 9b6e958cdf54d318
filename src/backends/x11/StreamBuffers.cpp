#include "backends/x11/StreamBuffers.hpp"

#include "backends/x11/CanvasReader.hpp"

#include <algorithm>

namespace tessarin::x11 {

// One for the present picture, which no receiver may hold any more, and one for the picture to come.
StreamBuffers::StreamBuffers(PixelReader& reader, std::size_t depth) : reader_(reader), slots_(depth + 1) {}

bool StreamBuffers::begin(std::int32_t width, std::int32_t height) {
  const auto isHeld = [](const Slot& slot) { return slot.buffer.isHeld(); };
  const auto held = std::count_if(slots_.begin(), slots_.end(), isHeld);
  if (static_cast<std::size_t>(held) + 1 >= slots_.size()) {
    return false;
  }
  for (std::size_t i = 0; i < slots_.size(); ++i) {
    if (i == present_ || isHeld(slots_[i])) {
      continue;
    }
    begun_ = i;
    const auto bytes = packedBytes({0, 0, width, height});
    if (slots_[i].buffer.size() < bytes) {
      slots_[i].buffer = reader_.makeBuffer(bytes);
    }
    canvas_ = packedCanvas(slots_[i].buffer.data(), width, height, PixelFormat::bgrx8);
    return true;
  }
  return false;
}

void StreamBuffers::publish() {
  present_ = begun_;
  slots_[present_].view = canvas_.view();
}

Picture StreamBuffers::present() {
  auto& slot = slots_[present_];
  return {slot.view, slot.buffer.hold()};
}

} // namespace tessarin::x11
