#include "modules/media/EncoderCheck.hpp"

#include "modules/media/LibraryCoder.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

extern "C" {
#include <libavutil/mem.h>
}

namespace tessarin::media {

namespace {

constexpr std::int64_t frameRate = 30;
constexpr std::int64_t keyInterval = 15;
// Mean distance of the luma of a decoded picture from what was painted, of 256 steps. An encoder that shows
// the wrong picture, or none, is tens away.
constexpr double mostDifference = 12;

struct Film {
  std::int32_t width, height;
  std::int64_t bitRate;
  std::int64_t pictures;
};
constexpr std::array<Film, 2> films{{{320, 240, 2'000'000, 40}, {1920, 1080, 20'000'000, 17}}};

// Every fifth picture and a still stretch across a key repeat the one before.
bool isRepetition(std::int64_t number) {
  return number % 5 == 4 || (number > keyInterval - 4 && number < keyInterval + 2);
}

// Bars in motion over a slope of grey, different for each number and easy to code.
std::shared_ptr<const I420Picture> paint(const Film& film, std::int64_t number) {
  auto picture = std::make_shared<I420Picture>(film.width, film.height);
  const pixels::I420Planes planes = picture->planes();
  const std::int64_t shift = number * film.width / 16;
  std::vector<std::uint8_t> bars(static_cast<std::size_t>(film.width));
  for (std::int32_t x = 0; x < film.width; ++x)
    bars[static_cast<std::size_t>(x)] = ((x + shift) * 8 / film.width) % 2 == 0 ? 60 : 160;
  for (std::int32_t y = 0; y < film.height; ++y) {
    const auto slope = static_cast<std::uint8_t>(y * 40 / film.height);
    std::ranges::transform(bars, planes.y + y * planes.yStride,
                           [&](std::uint8_t bar) { return static_cast<std::uint8_t>(bar + slope); });
  }
  for (std::int32_t y = 0; y < film.height / 2; ++y) {
    std::fill_n(planes.u + y * planes.uStride, film.width / 2, std::uint8_t{110});
    std::fill_n(planes.v + y * planes.vStride, film.width / 2, std::uint8_t{140});
  }
  return picture;
}

// The configuration record in a sample entry, as decoders take it; empty when there is none.
Bytes configurationOf(const container::SampleDescription& description) {
  for (const std::string_view type : {"avcC", "hvcC"}) {
    const auto code = std::as_bytes(std::span(type));
    const auto at = std::search(description.box.begin(), description.box.end(), code.begin(), code.end());
    if (at == description.box.end() || at - description.box.begin() < 4)
      continue;
    const auto head = at - 4;
    std::size_t size = 0;
    for (int i = 0; i < 4; ++i)
      size = size << 8 | std::to_integer<std::size_t>(head[i]);
    if (size >= 8 && size <= static_cast<std::size_t>(description.box.end() - head))
      return {head + 8, head + static_cast<std::ptrdiff_t>(size)};
  }
  return {};
}

// Reads the samples as a reader of the file would.
class Reader {
 public:
  Reader(RecordingCodec codec, const container::SampleDescription& description)
      : width_(description.width), height_(description.height) {
    const AVCodec* decoder =
        avcodec_find_decoder(codec == RecordingCodec::hevc ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264);
    context_.reset(checkedLibrary(avcodec_alloc_context3(decoder)));
    frame_.reset(checkedLibrary(av_frame_alloc()));
    packet_.reset(checkedLibrary(av_packet_alloc()));
    const Bytes configuration = configurationOf(description);
    context_->extradata = static_cast<std::uint8_t*>(
        checkedLibrary(av_mallocz(configuration.size() + AV_INPUT_BUFFER_PADDING_SIZE)));
    if (!configuration.empty())
      std::memcpy(context_->extradata, configuration.data(), configuration.size());
    context_->extradata_size = static_cast<int>(configuration.size());
    context_->err_recognition = AV_EF_EXPLODE | AV_EF_BITSTREAM | AV_EF_BUFFER;
    context_->thread_count = 1;
    checkLibrary(avcodec_open2(context_.get(), decoder, nullptr));
  }

  // The luma of the pictures that have become ready.
  void read(const CodedPicture& picture) {
    checkLibrary(av_new_packet(packet_.get(), static_cast<int>(picture.sample.size())));
    std::memcpy(packet_->data, picture.sample.data(), picture.sample.size());
    const int result = avcodec_send_packet(context_.get(), packet_.get());
    av_packet_unref(packet_.get());
    checkLibrary(result);
    receive();
  }
  void finish() {
    checkLibrary(avcodec_send_packet(context_.get(), nullptr));
    receive();
  }

  struct Luma {
    std::vector<std::uint8_t> bytes;
  };
  const std::vector<Luma>& pictures() const { return pictures_; }

 private:
  void receive() {
    while (avcodec_receive_frame(context_.get(), frame_.get()) == 0) {
      if (frame_->width != width_ || frame_->height != height_ || frame_->decode_error_flags != 0 ||
          frame_->format != AV_PIX_FMT_YUV420P)
        throw CoderFailure("decoder", frame_->decode_error_flags);
      Luma luma;
      for (int y = 0; y < height_; ++y) {
        const std::uint8_t* row = frame_->data[0] + std::ptrdiff_t{y} * frame_->linesize[0];
        luma.bytes.insert(luma.bytes.end(), row, row + width_);
      }
      pictures_.push_back(std::move(luma));
    }
  }

  const std::int32_t width_, height_;
  std::unique_ptr<AVCodecContext, FreeContext> context_;
  OwnFrame frame_;
  std::unique_ptr<AVPacket, FreePacket> packet_;
  std::vector<Luma> pictures_;
};

bool shows(const Reader::Luma& luma, const I420Picture& painted) {
  const pixels::I420Planes planes = painted.planes();
  std::int64_t sum = 0;
  for (std::int32_t y = 0; y < painted.height(); ++y) {
    const std::uint8_t* seen = luma.bytes.data() + std::ptrdiff_t{y} * painted.width();
    const std::uint8_t* wanted = planes.y + y * planes.yStride;
    int ofRow = 0;
    for (std::int32_t x = 0; x < painted.width(); ++x)
      ofRow += std::abs(seen[x] - wanted[x]);
    sum += ofRow;
  }
  return static_cast<double>(sum) <
         mostDifference * static_cast<double>(painted.width()) * static_cast<double>(painted.height());
}

bool encodesRightly(const EncoderCatalogue& catalogue, const Encoder& encoder, const Film& film) {
  const VideoSettings settings{.codec = encoder.codec,
                               .width = film.width,
                               .height = film.height,
                               .averageBitRate = film.bitRate,
                               .expectedFrameRate = frameRate,
                               .maximumKeyFrameInterval = keyInterval};
  const auto coder = catalogue.make(encoder, settings, CodingEffort::full);
  Reader reader(encoder.codec, coder->description());
  bool beginsWithKey = false;
  std::int64_t count = 0;
  PictureSequencer sequencer(*coder, coder->makeRepeater(), {keyInterval, keyInterval},
                             [&](const CodedPicture& picture, std::int64_t) {
                               if (count++ == 0)
                                 beginsWithKey = picture.isKey;
                               reader.read(picture);
                             });
  std::vector<std::shared_ptr<const I420Picture>> painted;
  for (std::int64_t i = 0; i < film.pictures; ++i) {
    painted.push_back(i > 0 && isRepetition(i) ? painted.back() : paint(film, i));
    sequencer.append(painted.back(), i);
  }
  sequencer.finish();
  reader.finish();
  return beginsWithKey &&
         std::ranges::equal(reader.pictures(), painted,
                            [](const auto& luma, const auto& picture) { return shows(luma, *picture); });
}

} // namespace

bool encodesRightly(const EncoderCatalogue& catalogue, const std::string& encoderName) {
  const std::optional<Encoder> encoder = encoderNamed(encoderName);
  if (!encoder || !catalogue.has(encoderName))
    return false;
  try {
    return std::ranges::all_of(films,
                               [&](const Film& film) { return encodesRightly(catalogue, *encoder, film); });
  } catch (const CoderFailure&) {
    return false;
  }
}

} // namespace tessarin::media
