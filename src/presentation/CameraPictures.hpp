#pragma once

#include "presentation/CameraPresentationRenderer.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Camera frames and layers for tests of what is made of them.
namespace tessarin::camera_pictures {

using Pixel = std::array<int, 4>; // B, G, R, A

constexpr Pixel clear{0, 0, 0, 0};
constexpr Pixel white{255, 255, 255, 255};
constexpr Pixel red{20, 30, 200, 255};
constexpr Pixel green{10, 180, 60, 255};
constexpr Pixel blue{220, 80, 40, 255};

inline Pixel pixelAt(const PictureView& view, int x, int y) {
  const std::uint8_t* pixel = view.data + y * view.stride + std::ptrdiff_t{x} * 4;
  return {pixel[0], pixel[1], pixel[2], pixel[3]};
}

// A frame of a camera; the fourth bytes hold what must not be looked at.
class Frame {
 public:
  template<class Paint> Frame(int width, int height, const Paint& paint) : width_(width), height_(height) {
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        const Pixel pixel = paint(x, y);
        for (std::size_t channel = 0; channel < 3; ++channel)
          bytes_.push_back(static_cast<std::uint8_t>(pixel[channel]));
        bytes_.push_back(static_cast<std::uint8_t>(x * 7));
      }
  }
  Frame(int width, int height, const Pixel& flat) : Frame(width, height, [&](int, int) { return flat; }) {}

  PictureView view() const {
    return {bytes_.data(), width_, height_, std::ptrdiff_t{width_} * 4, PixelFormat::bgrx8};
  }

 private:
  int width_, height_;
  std::vector<std::uint8_t> bytes_;
};

inline Pixel noise(int x, int y) {
  const auto value = static_cast<unsigned>(x * 73 + y * 151) * 2654435761U >> 8;
  return {static_cast<int>(value & 255), static_cast<int>(value >> 8 & 255),
          static_cast<int>(value >> 16 & 255), 255};
}

inline VideoCameraLayerDTO layerOf(VideoCameraShapeDTO shape,
                                   const NormalizedVideoRectDTO& rect = {0, 0, 1, 1}) {
  return {true, rect, shape, std::nullopt, std::nullopt, std::nullopt};
}

inline VideoCameraLayerDTO bordered(VideoCameraLayerDTO layer) {
  layer.borderVisible = true;
  return layer;
}

inline VideoCameraLayerDTO mirrored(VideoCameraLayerDTO layer) {
  layer.mirrored = true;
  return layer;
}

inline Picture drawn(const PictureView& frame, const VideoCameraLayerDTO& layer, const SizeDTO& canvas) {
  return CameraPresentationRenderer().image(frame, layer, canvas).picture;
}

// All that can be seen of a picture.
inline std::vector<std::uint8_t> bytesOf(const Picture& picture) {
  std::vector<std::uint8_t> bytes;
  for (int y = 0; y < picture.view.height; ++y) {
    const std::uint8_t* row = picture.view.data + y * picture.view.stride;
    bytes.insert(bytes.end(), row, row + std::ptrdiff_t{picture.view.width} * 4);
  }
  return bytes;
}

} // namespace tessarin::camera_pictures
