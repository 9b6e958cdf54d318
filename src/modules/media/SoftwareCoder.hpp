#pragma once

#include "modules/media/VideoCoders.hpp"

#include <memory>

namespace tessarin::media {

// x264 and x265 through the codec library. Throws CoderFailure.
std::unique_ptr<VideoCoder> makeSoftwareCoder(const Encoder& encoder, const VideoSettings& settings,
                                              CodingEffort effort);

} // namespace tessarin::media
