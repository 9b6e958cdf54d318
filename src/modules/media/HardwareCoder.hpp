#pragma once

#include "modules/media/VideoCoders.hpp"

#include <memory>

namespace tessarin::media {

// A hardware encoder through the codec library, set up for the same stream as software: the same rate, keys
// where they are asked for, no picture predicted from a later one, BT.709. Throws CoderFailure when the
// machine has none of the kind.
std::unique_ptr<VideoCoder> makeHardwareCoder(const Encoder& encoder, const VideoSettings& settings);

} // namespace tessarin::media
