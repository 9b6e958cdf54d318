#pragma once

#include "backends/x11/Connection.hpp"
#include "backends/x11/Displays.hpp"

#include <xcb/shm.h>
#include <xcb/xproto.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <variant>

namespace tessarin::x11 {

// Memory that the display server may write into as well. Outlives the connection; given back with its last
// owner, on any thread.
class PixelMemory {
 public:
  virtual ~PixelMemory() = default;
  PixelMemory(const PixelMemory&) = delete;
  PixelMemory& operator=(const PixelMemory&) = delete;

  std::uint8_t* data() const { return data_; }
  std::size_t size() const { return size_; }

 protected:
  PixelMemory(std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

 private:
  std::uint8_t* data_;
  std::size_t size_;
};

// Memory as the server knows it. Ends before its connection does.
class PixelBuffer {
 public:
  PixelBuffer() = default;
  // Segment 0: the server does not share this memory.
  PixelBuffer(Connection& connection, std::shared_ptr<PixelMemory> memory, xcb_shm_seg_t segment);
  ~PixelBuffer();
  PixelBuffer(PixelBuffer&& other) noexcept;
  PixelBuffer& operator=(PixelBuffer&& other) noexcept;

  std::uint8_t* data() const { return memory_->data(); }
  std::size_t size() const { return memory_ ? memory_->size() : 0; }
  xcb_shm_seg_t segment() const { return segment_; }

  // Keeps the memory, and says that somebody looks at what is in it, as long as a copy of it lives. Copies go
  // to any thread.
  std::shared_ptr<const void> hold() const;
  // Whether a hold lives. Once none does, everything that was read under one has been read.
  bool isHeld() const { return holders_ && holders_->load(std::memory_order_acquire) > 0; }

 private:
  Connection* connection_ = nullptr;
  std::shared_ptr<PixelMemory> memory_;
  std::shared_ptr<std::atomic<int>> holders_; // holds; with the memory
  xcb_shm_seg_t segment_ = 0;
};

// How pixels come from the server: into memory whose descriptor was passed to it, into memory that both find
// by its system-wide number, or through the connection.
enum class PixelTransport : std::uint8_t { descriptor, systemNumber, connection };

// Reads rectangles of drawables as 32-bit pixels, rows packed. Requests are pipelined: send all of them, then
// collect. Confined to the connection's thread.
class PixelReader {
 public:
  // `best` bounds what is tried. Throws CaptureFailure where the server's pixels are not laid out in 32 bits
  // with blue in the lowest byte.
  explicit PixelReader(Connection& connection, PixelTransport best = PixelTransport::descriptor);

  // Throws CaptureFailure when memory can't be had.
  PixelBuffer makeBuffer(std::size_t bytes);

  struct Pending {
    std::variant<xcb_shm_get_image_cookie_t, xcb_get_image_cookie_t> cookie;
    std::uint8_t* target = nullptr;
    std::size_t bytes = 0;
  };
  // The rectangle is in the drawable's coordinates and lies within it; its pixels go to `offset`, a multiple
  // of 4, where the buffer has room for them.
  Pending request(xcb_drawable_t drawable, const PixelRect& rectangle, const PixelBuffer& buffer,
                  std::size_t offset = 0);
  // False when the server refused: the drawable is gone or smaller. Throws DesktopFailure.
  bool collect(const Pending& pending);

  // Whether pixels of this depth and visual are 32 bits with blue in the lowest byte and, at depth 32, alpha
  // in the highest.
  bool understands(std::uint8_t depth, xcb_visualid_t visual) const;

  PixelTransport transport() const { return transport_; }

 private:
  std::optional<PixelBuffer> descriptorBuffer(std::size_t bytes);
  std::optional<PixelBuffer> systemNumberBuffer(std::size_t bytes);

  Connection& connection_;
  PixelTransport transport_;
};

inline std::size_t packedBytes(const PixelRect& rectangle) {
  return rectangle.isEmpty()
             ? 0
             : static_cast<std::size_t>(rectangle.width) * static_cast<std::size_t>(rectangle.height) * 4;
}

} // namespace tessarin::x11
