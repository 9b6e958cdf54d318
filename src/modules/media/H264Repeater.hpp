#pragma once

#include "modules/media/H264Syntax.hpp"
#include "modules/media/PictureSequencer.hpp"

namespace tessarin::media {

// Repeats pictures of an H.264 stream whose coder predicts every picture from the one before it alone.
// Each repeated picture counts in frame_num, so the coder's own pictures behind it are numbered anew up to
// the next key picture. Confined to one thread.
class H264Repeater final : public PictureRepeater {
 public:
  explicit H264Repeater(const h264::ParameterSets& parameters);

  void fitIn(CodedPicture& picture) override;
  CodedPicture repeated() override;
  CodedPicture repeatedKey() override;

 private:
  std::uint32_t nextNumber();

  h264::ParameterSets parameters_;
  std::uint32_t number_ = 0; // of the last reference picture
  Bytes key_;                // the slices of the coder's last key picture, as a sample
  Bytes repeated_;           // the repeated picture, but for its number
};

} // namespace tessarin::media
