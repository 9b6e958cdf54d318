#include "pixels/PictureBuffers.hpp"

#include <cstddef>
#include <mutex>
#include <utility>
#include <vector>

namespace tessarin::pixels {

namespace {

struct Buffer {
  std::unique_ptr<std::uint8_t[]> bytes;
  std::size_t size = 0;

  explicit Buffer(std::size_t bytesNeeded)
      : bytes(std::make_unique_for_overwrite<std::uint8_t[]>(bytesNeeded)), size(bytesNeeded) {}

  // Neither too small nor so large that it would better be given back.
  bool suits(std::size_t bytesNeeded) const { return size >= bytesNeeded && size / 4 <= bytesNeeded; }
};

// So many that a user may hold a picture while the next one is made and another one is on its way.
constexpr std::size_t mostIdle = 3;

} // namespace

struct PictureBuffers::Shelf {
  std::mutex mutex;
  std::vector<Buffer> idle; // under the mutex; never grows beyond what is reserved

  Shelf() { idle.reserve(mostIdle); }

  Buffer take(std::size_t bytes) {
    {
      const std::lock_guard lock(mutex);
      std::erase_if(idle, [&](const Buffer& buffer) { return !buffer.suits(bytes); });
      if (!idle.empty()) {
        Buffer buffer = std::move(idle.back());
        idle.pop_back();
        return buffer;
      }
    }
    return Buffer(bytes);
  }

  void putBack(Buffer buffer) {
    const std::lock_guard lock(mutex);
    if (idle.size() < mostIdle)
      idle.push_back(std::move(buffer));
  }
};

// What the copies of one picture share.
class PictureBuffers::Loan {
 public:
  Loan(std::shared_ptr<Shelf> shelf, std::size_t bytes)
      : shelf_(std::move(shelf)), buffer_(shelf_->take(bytes)) {}
  ~Loan() { shelf_->putBack(std::move(buffer_)); }
  Loan(const Loan&) = delete;
  Loan& operator=(const Loan&) = delete;

  std::uint8_t* bytes() const { return buffer_.bytes.get(); }

 private:
  std::shared_ptr<Shelf> shelf_;
  Buffer buffer_;
};

PictureBuffers::PictureBuffers() : shelf_(std::make_shared<Shelf>()) {}

PictureBuffers::Sheet PictureBuffers::take(std::int32_t width, std::int32_t height, PixelFormat format) {
  const std::ptrdiff_t stride = std::ptrdiff_t{width} * 4;
  const auto loan = std::make_shared<Loan>(shelf_, static_cast<std::size_t>(stride * height));
  return {{loan->bytes(), width, height, stride, format}, loan};
}

} // namespace tessarin::pixels
