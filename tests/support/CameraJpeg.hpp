#pragma once

#include "support/CameraPicture.hpp"

#include <cstdint>
#include <vector>

namespace tessarin::camera {

enum class JpegSampling : std::uint8_t { s444, s422, s420, gray };

// The picture, which must be rgb, as a JPEG of high quality. Throws std::runtime_error.
std::vector<std::uint8_t> jpegOf(const RawPicture& picture, JpegSampling sampling = JpegSampling::s422);

} // namespace tessarin::camera
