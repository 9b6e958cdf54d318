#pragma once

#include "modules/media/CoderFailure.hpp"
#include "modules/media/VideoCoder.hpp"
#include "modules/media/VideoCoders.hpp"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace tessarin::media {

struct FreeContext {
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FreeFrame {
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct FreePacket {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
using OwnFrame = std::unique_ptr<AVFrame, FreeFrame>;

// Throws CoderFailure for a negative result of the library.
void checkLibrary(int result);
// Throws CoderFailure when the library had no memory.
template<class T> T* checkedLibrary(T* pointer) {
  if (pointer == nullptr)
    checkLibrary(AVERROR(ENOMEM));
  return pointer;
}
// Sets an option that the encoder is known to have.
void setOption(AVCodecContext& context, const char* name, const std::string& value);

// What coders of the codec library share: size, rate, colours and keys of the stream, the description, and
// the way of pictures through it. Kinds of coders derive from it, set what is their own, and open it.
class LibraryCoder : public VideoCoder {
 public:
  std::vector<CodedPicture> encode(const std::shared_ptr<const I420Picture>& picture, std::int64_t time,
                                   bool asKey) final;
  std::vector<CodedPicture> finish() final;
  const container::SampleDescription& description() const final { return description_; }
  std::unique_ptr<PictureRepeater> makeRepeater() const final;

 protected:
  LibraryCoder(const Encoder& encoder, const VideoSettings& settings);

  const VideoSettings& settings() const { return settings_; }
  AVCodecContext& context() { return *context_; }
  // Once all is set; what makes the stream's description. Throws CoderFailure.
  void open();
  // Makes the frame show the picture, in the form that the coder takes. Throws CoderFailure.
  virtual void load(AVFrame& frame, const std::shared_ptr<const I420Picture>& picture) = 0;

 private:
  std::vector<CodedPicture> receive();
  CodedPicture sampleOf(const AVPacket& packet) const;
  std::span<const std::byte> parameterSets() const;
  bool isParameterSet(std::span<const std::byte> unit) const;
  bool isDescribed(std::span<const std::byte> parameterSet) const;

  const VideoSettings settings_;
  std::unique_ptr<AVCodecContext, FreeContext> context_;
  OwnFrame frame_;
  std::unique_ptr<AVPacket, FreePacket> packet_;
  container::SampleDescription description_;
};

// The frame of the library refers to the picture's planes and keeps the picture until it lets go of them.
void wrapPicture(AVFrame& frame, const std::shared_ptr<const I420Picture>& picture);

} // namespace tessarin::media
