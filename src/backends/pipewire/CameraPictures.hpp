#pragma once

#include "model/Picture.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

// From what cameras deliver to pictures of our own.
namespace tessarin::pipewire {

// How a camera lays out its pixels. Names of packed formats tell the bytes in memory order.
enum class CameraCoding : std::uint8_t { yuy2, uyvy, nv12, i420, bgrx, rgbx, bgr, rgb, gray8, jpeg };

enum class ColourMatrix : std::uint8_t { bt601, bt709, bt2020 };

struct CameraFormat {
  CameraCoding coding = CameraCoding::bgrx;
  std::int32_t width = 0;  // pixels; for jpeg each frame tells its own
  std::int32_t height = 0; // pixels
  ColourMatrix matrix = ColourMatrix::bt601;
  bool isFullRange = false; // luma and chroma from 0 to 255

  bool operator==(const CameraFormat&) const = default;
};

// The largest width and height that are taken from a camera.
inline constexpr std::int32_t largestCameraSide = 8192;

// A block of a frame's memory.
struct CameraBlock {
  std::span<const std::uint8_t> bytes;
  std::int32_t stride = 0; // bytes from one row to the next; 0 says that rows follow one another closely
};

// Memory of pictures, used again when its picture is gone. Any thread; memory may outlive the pool.
class PicturePool {
 public:
  PicturePool();
  std::shared_ptr<std::uint8_t> memory(std::size_t size);

 private:
  struct Store;
  std::shared_ptr<Store> store_;
};

// A bgrx8 picture of its own memory from one frame; nothing when the frame is too short for its format, or is
// no picture at all. Several planes are in a block each, or one behind the other in a single one. Not for
// jpeg. Any thread.
std::optional<Picture> convertFrame(const CameraFormat& format, std::span<const CameraBlock> blocks,
                                    PicturePool& pool);

} // namespace tessarin::pipewire
