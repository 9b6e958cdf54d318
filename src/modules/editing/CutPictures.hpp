#pragma once

#include "container/MovieJoin.hpp"
#include "modules/editing/CutClips.hpp"
#include "modules/editing/CutCoder.hpp"
#include "modules/editing/CutStore.hpp"
#include "modules/editing/PictureReader.hpp"
#include "modules/editing/SourceFile.hpp"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <vector>

namespace tessarin::editing {

// What becomes of the pictures of a cut. Coded pictures are taken as they are from the first key of a clip
// on; those before it are coded anew, with the recorder's settings. Where that would take parameter sets
// other than the source's, and where pictures that are decoded before the end of a clip are shown behind it,
// all clips are coded anew whole, so that every player has to do with one kind of stream.
//
// Confined to one thread. Throws MovieEditingFailure, media::CoderFailure and FileFailure.
class CutPictures {
 public:
  // All outlive this. `codec` is for tracks that are of neither of the recorder's codecs.
  CutPictures(const SourceFile& file, const std::vector<CutClip>& clips, RecordingCodec codec,
              CutStore& store);

  // How many pictures are coded anew.
  std::int64_t codedPictures() const;
  // Codes them, telling after each how many are done; what that throws passes through. The track refers to
  // this and to the store.
  container::JoinTrack make(const std::function<void(std::int64_t done)>& progress);

 private:
  // Of one clip, by places in the order in which pictures are shown. Times are of the media, at the scale.
  struct Plan {
    std::int64_t start = 0;
    std::int64_t end = 0;
    std::int64_t outputStart = 0;
    std::size_t first = 0;
    std::size_t copied = 0; // from here on
    std::size_t behind = 0; // the last one
  };

  Plan planned(const CutClip& clip) const;
  bool mayCopy(const Plan& plan, std::size_t from) const;
  void avoidEqualKeys();
  bool isRefresh(std::size_t place) const;
  void decideCoding(RecordingCodec codec);
  const std::optional<VideoSettings>& likeSource(std::size_t description);
  std::int64_t scaled(std::int64_t milliseconds) const;
  std::int64_t timeOf(const Plan& plan, std::size_t place) const;
  const container::SampleDescription& descriptionAt(std::size_t place) const;
  std::vector<std::byte> bytesAt(std::size_t place) const;
  std::optional<std::uint32_t> keyNumberAt(std::size_t place) const;

  container::JoinPiece codedPiece(const Plan& plan, const std::function<void(std::int64_t)>& progress);
  container::JoinPiece copiedPiece(const Plan& plan);
  container::Track& newTrack(const container::SampleDescription* description);
  container::JoinPiece piece(const OpenFile& file, const container::Track& track, const Plan& plan,
                             std::int64_t end) const;

  const SourceFile& file_;
  CutStore& store_;
  PictureReader reader_;
  const container::Track& track_;
  std::int32_t scale_ = 0;  // of all that is written; so fine that milliseconds are exact where it can be
  std::int64_t factor_ = 1; // units of it in one of the track
  bool isInOrder_ = true;   // pictures are coded in the order in which they are shown
  std::int64_t delay_ = 0;  // from the decoding of a first picture to its show, in units of the scale
  std::vector<Plan> plans_; // a clip each
  std::optional<VideoSettings> wholeSettings_; // where all is coded anew, with other parameter sets
  std::map<std::size_t, std::optional<VideoSettings>> likeSource_; // by description
  std::deque<container::Track> tracks_;                            // what the pieces refer to
  std::optional<std::uint32_t> lastKey_; // number of the last sample so far, where it is a key
  std::int64_t done_ = 0;                // pictures coded anew
};

} // namespace tessarin::editing
