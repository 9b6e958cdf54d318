#include "backends/x11/StreamBuffers.hpp"

#include "backends/x11/CanvasReader.hpp"

#include <algorithm>

namespace tessarin::x11 {

namespace {

// What a picture's copies share.
class Hold {
 public:
  Hold(std::shared_ptr<PixelMemory> memory, std::shared_ptr<std::atomic<int>> holders)
      : memory_(std::move(memory)), holders_(std::move(holders)) {
    holders_->fetch_add(1, std::memory_order_relaxed);
  }
  // Everything that was read of the pixels was read before they are written again.
  ~Hold() { holders_->fetch_sub(1, std::memory_order_release); }
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;

 private:
  std::shared_ptr<PixelMemory> memory_;
  std::shared_ptr<std::atomic<int>> holders_;
};

} // namespace

// One for the present picture, which no receiver may hold any more, and one for the picture to come.
StreamBuffers::StreamBuffers(PixelReader& reader, std::size_t depth) : reader_(reader), slots_(depth + 1) {}

bool StreamBuffers::begin(std::int32_t width, std::int32_t height) {
  const auto isHeld = [](const Slot& slot) { return slot.holders->load(std::memory_order_acquire) > 0; };
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
  return {slot.view, std::make_shared<Hold>(slot.buffer.memory(), slot.holders)};
}

} // namespace tessarin::x11
