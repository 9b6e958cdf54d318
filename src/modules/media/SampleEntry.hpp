#pragma once

#include "container/Movie.hpp"
#include "modules/media/NalUnits.hpp"
#include "ports/MediaWriting.hpp"

#include <span>

namespace tessarin::media {

// The sample entry of a video track (ISO/IEC 14496-12 and -15): "avc1" or "hvc1" with the parameter sets,
// BT.709 in video range, square pixels. Throws CoderFailure when a parameter set is missing or torn.
container::SampleDescription makeSampleEntry(const VideoSettings& settings,
                                             std::span<const std::byte> parameterSets);

} // namespace tessarin::media
