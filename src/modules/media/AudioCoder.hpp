#pragma once

#include "container/Movie.hpp"
#include "modules/media/NalUnits.hpp"
#include "ports/MediaWriting.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace tessarin::media {

// Frames of one coded packet, and how far the first frame lies behind the beginning of the first packet.
inline constexpr std::size_t framesPerPacket = 1024;
inline constexpr std::int64_t primingFrames = 1024;

// So many frames, each channel by itself.
struct SoundBlock {
  std::vector<std::array<float, framesPerPacket>> channels;
};

// A coder of sound whose packets each overlap the next one: after the first block it yields a packet with
// every block, and all packets are one more than the blocks. A packet depends on no other one.
class AudioCoder {
 public:
  virtual ~AudioCoder() = default;
  // Yields what has become ready. Throws CoderFailure.
  virtual std::vector<Bytes> encode(const SoundBlock& block) = 0;
  // Yields all that is left; nothing may be handed in any more. Throws CoderFailure.
  virtual std::vector<Bytes> finish() = 0;
};

// AAC by the codec library. Confined to one thread once made.
class AacCoder : public AudioCoder {
 public:
  virtual const container::SampleDescription& description() const = 0;
};

// Whether these settings can be coded at all.
bool canCode(const AudioSettings& settings);

// How the coder looks for what is worth its bits.
enum class AacSearch : std::uint8_t {
  quick,   // half of the time; loud pure tones come out softer
  thorough // for a finished film
};

// Throws CoderFailure.
std::unique_ptr<AacCoder> makeAacCoder(const AudioSettings& settings, AacSearch search = AacSearch::quick);

} // namespace tessarin::media
