#pragma once

#include "modules/media/NalUnits.hpp"
#include "modules/media/PicturePool.hpp"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/mem.h>
}

namespace tessarin::media {

// All visible bytes of a decoded picture.
using DecodedPicture = std::vector<std::uint8_t>;

// Decodes samples for tests, and takes no damage silently.
class TestDecoder {
 public:
  // The parameter sets as a byte stream with start codes.
  TestDecoder(AVCodecID codec, const Bytes& parameterSets) {
    context_ = avcodec_alloc_context3(avcodec_find_decoder(codec));
    context_->err_recognition = AV_EF_EXPLODE | AV_EF_BITSTREAM | AV_EF_BUFFER;
    context_->thread_count = 1;
    context_->extradata_size = static_cast<int>(parameterSets.size());
    context_->extradata =
        static_cast<std::uint8_t*>(av_mallocz(parameterSets.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    std::copy(parameterSets.begin(), parameterSets.end(), reinterpret_cast<std::byte*>(context_->extradata));
    if (avcodec_open2(context_, nullptr, nullptr) < 0)
      throw std::runtime_error("the decoder does not open");
  }
  ~TestDecoder() {
    avcodec_free_context(&context_);
    av_packet_free(&packet_);
    av_frame_free(&frame_);
  }
  TestDecoder(const TestDecoder&) = delete;
  TestDecoder& operator=(const TestDecoder&) = delete;

  void decodeSample(const Bytes& sample) {
    Bytes stream;
    for (const auto unit : splitSample(sample)) {
      stream.insert(stream.end(), {std::byte{0}, std::byte{0}, std::byte{1}});
      stream.insert(stream.end(), unit.begin(), unit.end());
    }
    decode(stream);
  }
  const std::vector<DecodedPicture>& finish() {
    avcodec_send_packet(context_, nullptr);
    receive();
    return pictures_;
  }

 private:
  void decode(const Bytes& stream) {
    av_new_packet(packet_, static_cast<int>(stream.size()));
    std::copy(stream.begin(), stream.end(), reinterpret_cast<std::byte*>(packet_->data));
    const int result = avcodec_send_packet(context_, packet_);
    av_packet_unref(packet_);
    if (result < 0)
      throw std::runtime_error("a packet was refused");
    receive();
  }
  void receive() {
    while (avcodec_receive_frame(context_, frame_) == 0) {
      if (frame_->decode_error_flags != 0)
        throw std::runtime_error("a picture is damaged");
      DecodedPicture picture;
      for (int plane = 0; plane < 3; ++plane) {
        const int shift = plane > 0 ? 1 : 0;
        for (int y = 0; y < frame_->height >> shift; ++y) {
          const std::uint8_t* row = frame_->data[plane] + y * frame_->linesize[plane];
          picture.insert(picture.end(), row, row + (frame_->width >> shift));
        }
      }
      pictures_.push_back(std::move(picture));
    }
  }

  AVCodecContext* context_ = nullptr;
  AVPacket* packet_ = av_packet_alloc();
  AVFrame* frame_ = av_frame_alloc();
  std::vector<DecodedPicture> pictures_;
};

// A picture of blocks in motion, different for each number.
inline std::shared_ptr<const I420Picture> paintedPicture(int width, int height, int number) {
  auto picture = std::make_shared<I420Picture>(width, height);
  const pixels::I420Planes planes = picture->planes();
  std::minstd_rand random(5);
  std::vector<std::uint8_t> texture(256);
  for (std::uint8_t& each : texture)
    each = static_cast<std::uint8_t>(16 + random() % 220);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      planes.y[y * planes.yStride + x] =
          texture[static_cast<std::size_t>(((x + 3 * number) / 5 + (y / 7) * 31) % 256)];
  for (int y = 0; y < height / 2; ++y)
    for (int x = 0; x < width / 2; ++x) {
      planes.u[y * planes.uStride + x] = static_cast<std::uint8_t>(64 + (x / 4 + number) % 128);
      planes.v[y * planes.vStride + x] = static_cast<std::uint8_t>(64 + (y / 4 + 2 * number) % 128);
    }
  return picture;
}

} // namespace tessarin::media
