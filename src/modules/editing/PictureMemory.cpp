#include "modules/editing/PictureMemory.hpp"

#include <algorithm>
#include <cstddef>

namespace tessarin::editing {

namespace {

constexpr int alignment = 64; // bytes, of rows, as vectors like them
constexpr int margin = 64;    // bytes behind the last row, which vectors may touch

int aligned(int bytes) {
  return (bytes + alignment - 1) / alignment * alignment;
}

[[noreturn]] void failMemory() {
  throw MovieEditingFailure(MovieEditingError::unreadable);
}

} // namespace

void PictureMemory::FreePool::operator()(AVBufferPool* pool) const {
  av_buffer_pool_uninit(&pool);
}

std::shared_ptr<AVFrame> PictureMemory::frame(PixelSize size) {
  const std::ptrdiff_t lumaStride = aligned(size.width);
  const std::ptrdiff_t chromaStride = aligned(size.width / 2);
  const std::ptrdiff_t lumaBytes = lumaStride * size.height;
  const std::ptrdiff_t chromaBytes = chromaStride * (size.height / 2);
  std::shared_ptr<AVFrame> frame(av_frame_alloc(), [](AVFrame* each) { av_frame_free(&each); });
  if (!frame)
    failMemory();
  {
    const std::lock_guard lock(mutex_);
    auto pool =
        std::find_if(pools_.begin(), pools_.end(), [&](const auto& each) { return each.first == size; });
    if (pool == pools_.end()) {
      const auto bytes = static_cast<std::size_t>(lumaBytes + 2 * chromaBytes + margin);
      pools_.emplace_back(size, av_buffer_pool_init(bytes, nullptr));
      pool = std::prev(pools_.end());
    }
    frame->buf[0] = pool->second ? av_buffer_pool_get(pool->second.get()) : nullptr;
  }
  if (frame->buf[0] == nullptr)
    failMemory();
  frame->format = AV_PIX_FMT_YUV420P;
  frame->width = size.width;
  frame->height = size.height;
  frame->data[0] = frame->buf[0]->data;
  frame->data[1] = frame->data[0] + lumaBytes;
  frame->data[2] = frame->data[1] + chromaBytes;
  frame->linesize[0] = static_cast<int>(lumaStride);
  frame->linesize[1] = frame->linesize[2] = static_cast<int>(chromaStride);
  return frame;
}

pixels::PictureBuffers::Sheet PictureMemory::sheet(PixelSize size) {
  const std::lock_guard lock(mutex_);
  return sheets_.take(size.width, size.height, PixelFormat::bgrx8);
}

} // namespace tessarin::editing
