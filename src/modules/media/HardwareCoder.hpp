#pragma once

#include "modules/media/VideoCoders.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace tessarin::media {

// A hardware encoder through the codec library, set up for the same stream as software: the same rate, keys
// where they are asked for, no picture predicted from a later one, BT.709. Throws CoderFailure when the
// machine has none of the kind.
std::unique_ptr<VideoCoder> makeHardwareCoder(const Encoder& encoder, const VideoSettings& settings);

// Writes the picture's planes as NV12: the luma, and the two chroma planes mixed. Strides in bytes.
void writeAsNv12(const I420Picture& picture, std::uint8_t* luma, std::ptrdiff_t lumaStride,
                 std::uint8_t* chroma, std::ptrdiff_t chromaStride);

} // namespace tessarin::media
