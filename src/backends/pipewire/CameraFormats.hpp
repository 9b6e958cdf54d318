#pragma once

#include "backends/pipewire/CameraPictures.hpp"

#include <cstdint>
#include <optional>
#include <vector>

struct spa_pod;

// What is agreed with a camera, in the server's notation.
namespace tessarin::pipewire {

// Parameters in the server's notation together with the memory that they lie in.
class CameraParameters {
 public:
  // The formats that are taken, the most wanted first: 1920 x 1080 at about 30 frames a second, then what
  // comes near, then anything; pixels before JPEG where both are as good.
  static CameraParameters formats();
  // What is wanted of buffers: plain memory, and a header that tells a frame's time.
  static CameraParameters buffers();

  std::vector<const spa_pod*> pods() const;

 private:
  std::vector<std::uint64_t> memory_;  // a unit is as wide as a parameter's alignment
  std::vector<std::size_t> positions_; // in units
};

// The format that was agreed on; nothing when it is none of ours. A camera that does not tell how its luma
// and chroma stand for colours means BT.601 with limited range, and full range for grey.
std::optional<CameraFormat> parseCameraFormat(const spa_pod* format);

} // namespace tessarin::pipewire
