#pragma once

#include "modules/editing/SourceFile.hpp"
#include "modules/media/AudioDecoder.hpp"
#include "modules/media/LibraryCoder.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace tessarin::editing {

// Sound of one packet as it was decoded, valid until the next call: float samples, a plane for each channel.
struct SoundStretch {
  std::int32_t rate = 0;     // frames a second
  std::int64_t position = 0; // of the first frame on the file's time line, in frames
  std::int64_t frames = 0;
  AVChannelLayout* layout = nullptr;
  std::vector<const float*> channels;
};

// Decodes a track of sound, from wherever. Packets have their place by their times, but for those less than
// a millisecond away from the end of the packet before, which are put in a row; where two overlap the later
// one gives way. What the track does not present is left out. Confined to one thread. Failures are
// MovieEditingFailure: unreadable where a packet is damaged.
class SoundReader {
 public:
  // The file outlives the reader.
  SoundReader(const SourceFile& file, const container::Track& track);

  // The next stretch is the first one that ends behind the time of the file's time line.
  void seek(MediaTime fileTime);
  // Nothing at the end. Stretches do not overlap, and no position comes before an earlier one.
  std::optional<SoundStretch> next();

 private:
  void begin(std::size_t sample);
  bool decodeNext();
  std::optional<SoundStretch> placed();

  const SourceFile& file_;
  const container::Track& track_;
  std::unique_ptr<AVCodecContext, media::FreeContext> decoder_;
  std::unique_ptr<AVPacket, media::FreePacket> packet_;
  media::OwnFrame frame_;
  std::size_t description_ = 0; // that the decoder is open for
  std::size_t nextSample_ = 0;
  std::int64_t from_ = 0;           // units of the track, on the file's time line
  std::optional<std::int64_t> end_; // of the last stretch, frames
};

} // namespace tessarin::editing
