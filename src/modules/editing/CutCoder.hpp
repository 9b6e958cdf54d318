#pragma once

#include "container/Movie.hpp"
#include "modules/editing/CutStore.hpp"
#include "modules/editing/PictureMemory.hpp"
#include "modules/editing/PictureReader.hpp"
#include "modules/media/VideoCoder.hpp"
#include "ports/MediaWriting.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

// Pictures coded anew as the recorder codes them, so that copied ones may follow.
namespace tessarin::editing {

// How pictures of the recorder are coded at the size and rate, richly: they are few, and have been coded
// once.
VideoSettings richSettings(RecordingCodec codec, std::int32_t width, std::int32_t height,
                           std::int64_t frameRate);

// The settings under which the recorder's coder makes the parameter sets of the description. The rate is that
// of the track's pictures on average. Nothing for what another coder, or another setting, has made. Throws
// media::CoderFailure.
std::optional<VideoSettings> settingsLike(const container::SampleDescription& description, double frameRate);

// The number by which a key picture of H.264 differs from the one right before it (idr_pic_id); nothing for
// other pictures, and for streams that the recorder would not write.
std::optional<std::uint32_t> keyNumber(const container::SampleDescription& description,
                                       std::span<const std::byte> sample);

// One run of pictures, whose first one is a key and which refers to nothing before it. Confined to one
// thread. Throws media::CoderFailure, FileFailure and MovieEditingFailure.
class CutCoder {
 public:
  // The first key is numbered 0, or 1 where that is asked for. The store outlives the coder.
  CutCoder(const VideoSettings& settings, CutStore& store, bool isNumberedOne);

  const container::SampleDescription& description() const { return coder_->description(); }
  // Pictures come in the order in which they are shown, with their times as they are to stand in the samples.
  // One of another size or form is converted. A key is put in when the one before is a second old.
  void append(const SharedFrame& picture, std::int64_t time);
  // All of them, in the store; the last one's duration is not set.
  std::vector<container::Sample> finish();

 private:
  std::shared_ptr<const media::I420Picture> loaded(const SharedFrame& picture);
  void received(const std::vector<media::CodedPicture>& pictures);

  const VideoSettings settings_;
  PictureMemory memory_;
  CutStore& store_;
  std::unique_ptr<media::VideoCoder> coder_;
  const std::int64_t surplus_; // pictures at the beginning that are coded for their number alone
  std::int64_t dropped_ = 0;   // of those
  std::int64_t next_ = 0;      // handed in
  std::size_t coded_ = 0;      // received and kept
  std::vector<container::Sample> samples_;
};

} // namespace tessarin::editing
