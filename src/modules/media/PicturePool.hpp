#pragma once

#include "pixels/ColorConversion.hpp"
#include "ports/MediaWriting.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace tessarin::media {

// A picture as the coders take it: 4:2:0 in three planes of 8 bits, BT.709, video range.
class I420Picture final : public CodablePicture {
 public:
  // Sizes in pixels, even.
  I420Picture(std::int32_t width, std::int32_t height);

  std::int32_t width() const { return width_; }
  std::int32_t height() const { return height_; }
  pixels::I420Planes planes() const { return planes_; }

 private:
  struct Free {
    void operator()(std::uint8_t* bytes) const;
  };

  std::int32_t width_, height_;
  std::unique_ptr<std::uint8_t, Free> bytes_;
  pixels::I420Planes planes_;
};

// Hands out pictures of one size and takes them back when their last user lets go, on any thread. The
// pictures keep the pool's memory alive on their own.
class PicturePool {
 public:
  PicturePool(std::int32_t width, std::int32_t height, std::size_t limit);

  // With undefined content; null when `limit` pictures are in use. Any thread.
  std::shared_ptr<I420Picture> take();

 private:
  struct Shelf;
  std::shared_ptr<Shelf> shelf_;
};

} // namespace tessarin::media
