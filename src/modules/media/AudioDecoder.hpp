#pragma once

#include "container/Movie.hpp"
#include "modules/media/LibraryCoder.hpp"
#include "ports/MediaWriting.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>

struct SwrContext;

namespace tessarin::media {

struct FreeResampler {
  void operator()(SwrContext* resampler) const;
};

// Decodes a stretch of a track of AAC into interleaved sound of another rate and number of channels.
//
// Packets are placed by their times: where one is missing or cannot be decoded there is silence, and where
// two overlap the later one gives way. Confined to one thread. Failures are thrown as CoderFailure.
class AudioDecoder {
 public:
  using Output = std::function<void(std::span<const float> frames)>;

  // The stretch is from the track's presentation start on, as long as is told.
  AudioDecoder(const container::Track& track, MediaTime duration, const AudioSettings& into, Output output);

  // Whether a sample reaches into the stretch.
  bool needs(const container::Sample& sample) const;
  // Samples come in order.
  void decode(const container::Sample& sample, std::span<const std::byte> data);
  // Outputs what is left.
  void finish();

 private:
  void place(std::int64_t decodeTime);
  void prepare();
  void feed(std::int64_t skipped, std::int64_t frames);
  void feedSilence(std::int64_t frames);
  void convert(const std::uint8_t** planes, std::int64_t frames);

  const container::Track& track_;
  const MediaTime duration_;
  const AudioSettings into_;
  const Output output_;
  std::unique_ptr<AVCodecContext, FreeContext> context_;
  OwnFrame frame_;
  std::unique_ptr<AVPacket, FreePacket> packet_;

  // Once the first packet has told its form: frames at the rate of the source from the start of the stretch.
  std::unique_ptr<SwrContext, FreeResampler> resampler_;
  std::int32_t rate_ = 0;
  std::int64_t position_ = 0;
  std::int64_t end_ = 0;
};

} // namespace tessarin::media
