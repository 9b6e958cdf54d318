#include "modules/media/PicturePool.hpp"

#include <mutex>
#include <new>
#include <utility>
#include <vector>

namespace tessarin::media {

namespace {

// Rows begin at the coders' widest vectors.
constexpr std::size_t alignment = 64;

std::ptrdiff_t alignedStride(std::int32_t bytes) {
  constexpr auto step = static_cast<std::ptrdiff_t>(alignment);
  return (bytes + step - 1) / step * step;
}

} // namespace

void I420Picture::Free::operator()(std::uint8_t* bytes) const {
  ::operator delete (bytes, std::align_val_t{alignment});
}

I420Picture::I420Picture(std::int32_t width, std::int32_t height) : width_(width), height_(height) {
  const std::ptrdiff_t lumaStride = alignedStride(width);
  const std::ptrdiff_t chromaStride = alignedStride(width / 2);
  const std::ptrdiff_t lumaBytes = lumaStride * height;
  const std::ptrdiff_t chromaBytes = chromaStride * (height / 2);
  const auto bytes = static_cast<std::size_t>(lumaBytes + 2 * chromaBytes);
  bytes_.reset(static_cast<std::uint8_t*>(::operator new (bytes, std::align_val_t{alignment})));
  planes_ = {bytes_.get(),
             bytes_.get() + lumaBytes,
             bytes_.get() + lumaBytes + chromaBytes,
             lumaStride,
             chromaStride,
             chromaStride};
}

struct PicturePool::Shelf {
  const std::int32_t width, height;
  const std::size_t limit;
  std::mutex mutex;
  std::vector<std::unique_ptr<I420Picture>> idle{}; // under the mutex
  std::size_t inUse = 0;                            // under the mutex
};

PicturePool::PicturePool(std::int32_t width, std::int32_t height, std::size_t limit)
    : shelf_(new Shelf{width, height, limit, {}}) {}

std::shared_ptr<I420Picture> PicturePool::take() {
  std::unique_ptr<I420Picture> picture;
  {
    const std::lock_guard lock(shelf_->mutex);
    if (shelf_->inUse == shelf_->limit)
      return nullptr;
    if (!shelf_->idle.empty()) {
      picture = std::move(shelf_->idle.back());
      shelf_->idle.pop_back();
    }
    ++shelf_->inUse;
  }
  const auto putBack = [shelf = shelf_](I420Picture* used) {
    std::unique_ptr<I420Picture> back(used);
    const std::lock_guard lock(shelf->mutex);
    --shelf->inUse;
    if (back)
      shelf->idle.push_back(std::move(back));
  };
  try {
    if (!picture)
      picture = std::make_unique<I420Picture>(shelf_->width, shelf_->height);
  } catch (const std::bad_alloc&) {
    putBack(nullptr);
    return nullptr;
  }
  return {picture.release(), putBack};
}

} // namespace tessarin::media
