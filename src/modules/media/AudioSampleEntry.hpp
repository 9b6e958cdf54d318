#pragma once

#include "container/Movie.hpp"
#include "modules/media/NalUnits.hpp"
#include "ports/MediaWriting.hpp"

#include <span>

namespace tessarin::media {

// The sample entry of an AAC track (ISO/IEC 14496-12 and -14): "mp4a" with the coder's AudioSpecificConfig.
// Throws CoderFailure when there is none or it is too long.
container::SampleDescription makeAudioSampleEntry(const AudioSettings& settings,
                                                  std::span<const std::byte> configuration);

// The AudioSpecificConfig of such an entry. Throws CoderFailure when it holds another kind of sound, or is
// torn.
Bytes audioConfiguration(const container::SampleDescription& description);

} // namespace tessarin::media
