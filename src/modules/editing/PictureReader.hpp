#pragma once

#include "modules/editing/SampleEntries.hpp"
#include "modules/editing/SourceFile.hpp"
#include "modules/media/LibraryCoder.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace tessarin::editing {

using SharedFrame = std::shared_ptr<const AVFrame>;

// Decodes the pictures of a track, whichever is asked for. Cheap when asked for in the order in which they
// are shown; otherwise decoding begins anew at the key picture before. Confined to one thread. Memory: the
// decoder's pictures, and 16 bytes for each picture of the track.
class PictureReader {
 public:
  // The file outlives the reader. Throws MovieEditingFailure.
  PictureReader(const SourceFile& file, const container::Track& track);

  // Of the picture on show at a time of the file's time line, in units of the track: its place in the order
  // in which they are shown. Nothing where the track shows none.
  std::optional<std::size_t> pictureAt(std::int64_t fileTime) const;
  // The same, but the first one where the track has not begun, and the last one where it has ended.
  std::size_t nearestPicture(std::int64_t fileTime) const;
  // As coded. Throws MovieEditingFailure: unreadable when it, or what it depends on, is damaged.
  SharedFrame picture(std::size_t place);

  const container::Track& track() const { return track_; }
  // When a picture comes on show, of the media, units of the track; and which sample it is.
  std::int64_t mediaTime(std::size_t place) const { return shown_[place].time; }
  std::size_t sample(std::size_t place) const { return shown_[place].sample; }

 private:
  struct Shown {
    std::int64_t time = 0; // of the media, units of the track
    std::uint32_t sample = 0;
  };

  std::size_t keyBefore(std::size_t place) const;
  std::int64_t timeOf(std::size_t sample) const;
  void beginAt(std::size_t sample);
  void feed();
  SharedFrame received();
  std::size_t placeOf(const AVFrame& frame) const;

  const SourceFile& file_;
  const container::Track& track_;
  std::vector<Shown> shown_;           // in the order of time
  std::vector<std::uint32_t> keys_;    // samples at which decoding may begin, ascending
  std::vector<std::int64_t> keyTimes_; // their times of the media

  std::unique_ptr<AVCodecContext, media::FreeContext> decoder_;
  std::unique_ptr<AVPacket, media::FreePacket> packet_;
  std::size_t description_ = 0; // that the decoder is open for
  Strictness strictness_ = Strictness::full;
  std::size_t nextSample_ = 0; // to be fed
  std::int64_t beginning_ = 0; // what is shown before this time cannot be decoded from where decoding began
  std::size_t nextPlace_ = 0;  // not yet received; those before it have gone by
  bool hasBegun_ = false;      // the decoder is somewhere
  bool isDrained_ = false;     // the decoder has been told that nothing follows
};

} // namespace tessarin::editing
