#pragma once

#include "model/RecordingCodec.hpp"
#include "modules/editing/FrameConversion.hpp"
#include "modules/media/LibraryCoder.hpp"

#include <cstdint>
#include <memory>
#include <vector>

namespace tessarin::editing {

struct CodedFrame {
  media::Bytes data;
  std::int64_t decodeTime = 0;       // frames; the first ones may lie before 0
  std::int64_t presentationTime = 0; // frames
  bool isKey = false;
};

// Codes the pictures of a finished film by x264 or x265: of constant quality rather than of a rate, with
// pictures that are predicted from later ones, and a key at least each two seconds. BT.709 in video range.
// Confined to one thread. Throws media::CoderFailure.
class PictureCoder {
 public:
  // The size is even.
  PictureCoder(RecordingCodec codec, PixelSize size, MediaTime frameDuration);

  // Pictures come in order, one a frame. The chroma of all of them is sited as that of the first one, which
  // tells the stream. Yields what has become ready.
  std::vector<CodedFrame> encode(const SharedFrame& picture);
  std::vector<CodedFrame> finish();

  // Once the first picture has been handed in.
  const container::SampleDescription& description() const { return description_; }

 private:
  void open(const AVFrame& first);
  std::vector<CodedFrame> received();

  const RecordingCodec codec_;
  const PixelSize size_;
  const MediaTime frameDuration_;
  std::unique_ptr<AVCodecContext, media::FreeContext> context_;
  std::unique_ptr<AVPacket, media::FreePacket> packet_;
  container::SampleDescription description_;
  std::int64_t next_ = 0; // frame
};

} // namespace tessarin::editing
