#pragma once

#include "container/Movie.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

struct AVCodecContext;

namespace tessarin::media {
struct FreeContext;
}

namespace tessarin::editing {

// What a sample description says to a decoder.
struct SampleEntry {
  std::string decoder; // its name in the codec library; empty for what is not decoded here
  std::vector<std::byte> configuration;
  // "avc1"; of AAC "aac ", with spectral band replication "aach", with parametric stereo too "aacp".
  std::string subtype;
  double pixelAspect = 1; // width of a pixel by its height
};

// Never throws for a damaged entry, which has no decoder.
SampleEntry readSampleEntry(const container::SampleDescription& description, container::TrackKind kind);

// Whether every description of the track can be decoded.
bool isDecodable(const container::Track& track);

// Whether the sample, a key of the track, forgets all that came before it. In H.264 decoding may also begin
// at pictures that still name earlier ones.
bool isWholeRefresh(const SampleEntry& entry, std::span<const std::byte> sample);

enum class Strictness : std::uint8_t {
  full,       // whatever is not as it should be is a failure
  missingPast // what is not there may be named, as where decoding began in the middle
};

// An open decoder for the entry, with times in units of the timescale. Throws MovieEditingFailure.
std::unique_ptr<AVCodecContext, media::FreeContext> openDecoder(const SampleEntry& entry,
                                                                std::int32_t timescale, int threads,
                                                                Strictness strictness = Strictness::full);

} // namespace tessarin::editing
