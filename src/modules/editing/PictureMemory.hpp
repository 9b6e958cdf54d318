#pragma once

#include "modules/editing/PictureReader.hpp"
#include "pixels/PictureBuffers.hpp"

#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

struct AVBufferPool;

namespace tessarin::editing {

struct PixelSize {
  std::int32_t width = 0;
  std::int32_t height = 0;

  bool operator==(const PixelSize&) const = default;
};

// The memory of pictures that are made one after another, for all threads of an export: what one lets go of
// serves the next one. What was taken may outlive this. Any thread. Throws MovieEditingFailure and
// std::bad_alloc.
class PictureMemory {
 public:
  // 4:2:0 of eight bits, of undefined content; the size is even.
  std::shared_ptr<AVFrame> frame(PixelSize size);
  // Four bytes a pixel, of undefined content.
  pixels::PictureBuffers::Sheet sheet(PixelSize size);

 private:
  struct FreePool {
    void operator()(AVBufferPool* pool) const;
  };

  std::mutex mutex_;
  // Under the mutex.
  pixels::PictureBuffers sheets_;
  std::vector<std::pair<PixelSize, std::unique_ptr<AVBufferPool, FreePool>>> pools_;
};

} // namespace tessarin::editing
