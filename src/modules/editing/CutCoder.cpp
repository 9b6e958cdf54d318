#include "modules/editing/CutCoder.hpp"

#include "modules/editing/FrameConversion.hpp"
#include "modules/editing/SampleEntries.hpp"
#include "modules/media/BitStream.hpp"
#include "modules/media/H264Syntax.hpp"

#include <libyuv/planar_functions.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace tessarin::editing {

namespace {

// The recorder's rates at its higher quality.
struct RateRule {
  double bitsPerPixel = 0;
  double least = 0; // bits a second
  double most = 0;
};
constexpr RateRule h264Rule{0.16, 4e6, 60e6};
constexpr RateRule hevcRule{0.1, 3e6, 40e6};

// Parameter sets are the same at every effort; the rate makes good what a quick search loses.
std::unique_ptr<media::VideoCoder> makeCoder(const VideoSettings& settings) {
  const char* const name = settings.codec == RecordingCodec::hevc ? "libx265" : "libx264";
  return media::libraryEncoders(nullptr).make(*media::encoderNamed(name), settings,
                                              media::CodingEffort::reduced);
}

// Rates that the recorder may have been set to, the likeliest first.
std::vector<std::int64_t> likelyRates(double frameRate) {
  std::vector<std::int64_t> rates{std::max<std::int64_t>(std::llround(frameRate), 1)};
  for (const std::int64_t usual : {60, 30, 24, 25, 50, 15}) {
    if (usual != rates.front())
      rates.push_back(usual);
  }
  return rates;
}

// Whether the configurations may differ by nothing but what a level tells.
bool areLevelsApart(std::span<const std::byte> a, std::span<const std::byte> b) {
  constexpr std::size_t profileByte = 1;
  const auto difference = std::abs(std::ssize(a) - std::ssize(b));
  return difference <= 1 && std::min(a.size(), b.size()) > profileByte && a[profileByte] == b[profileByte];
}

// The parameter sets of an H.264 configuration that holds one of each.
struct ConfigurationSets {
  std::span<const std::byte> sequence;
  std::span<const std::byte> picture;
};

std::optional<ConfigurationSets> setsOf(std::span<const std::byte> configuration) {
  constexpr std::size_t head = 5;
  const auto take = [&](std::size_t at) -> std::span<const std::byte> {
    if (configuration.size() < at + 3 || (std::to_integer<unsigned>(configuration[at]) & 31U) != 1)
      return {};
    const std::size_t length = std::to_integer<std::size_t>(configuration[at + 1]) << 8U |
                               std::to_integer<std::size_t>(configuration[at + 2]);
    return configuration.size() - at - 3 < length ? std::span<const std::byte>{}
                                                  : configuration.subspan(at + 3, length);
  };
  const auto sequence = take(head);
  const auto picture = sequence.empty() ? sequence : take(head + 3 + sequence.size());
  return picture.empty() ? std::nullopt : std::optional(ConfigurationSets{sequence, picture});
}

} // namespace

VideoSettings richSettings(RecordingCodec codec, std::int32_t width, std::int32_t height,
                           std::int64_t frameRate) {
  const RateRule rule = codec == RecordingCodec::hevc ? hevcRule : h264Rule;
  const double rate = static_cast<double>(frameRate) * width * height * rule.bitsPerPixel;
  VideoSettings settings;
  settings.codec = codec;
  settings.width = width;
  settings.height = height;
  settings.averageBitRate = std::llround(std::clamp(rate, rule.least, rule.most));
  settings.expectedFrameRate = frameRate;
  settings.maximumKeyFrameInterval = frameRate;
  settings.expectsMediaDataInRealTime = false;
  return settings;
}

std::optional<VideoSettings> settingsLike(const container::SampleDescription& description, double frameRate) {
  const bool isHevc = description.codec == "hvc1";
  if (!isHevc && description.codec != "avc1")
    return std::nullopt;
  const auto wanted = readSampleEntry(description, container::TrackKind::video).configuration;
  for (const std::int64_t rate : likelyRates(frameRate)) {
    VideoSettings settings = richSettings(isHevc ? RecordingCodec::hevc : RecordingCodec::h264,
                                          description.width, description.height, rate);
    // A coder chooses its level by the rate of bits too.
    const std::int64_t rich = settings.averageBitRate;
    for (const double part : {1.0, 0.5, 0.25, 0.125, 1.0 / 16, 1.0 / 64, 1.0 / 1024, 2.0, 4.0}) {
      settings.averageBitRate = std::max<std::int64_t>(std::llround(static_cast<double>(rich) * part), 1000);
      if (!media::areCodable(settings))
        continue;
      const auto made =
          readSampleEntry(makeCoder(settings)->description(), container::TrackKind::video).configuration;
      if (made == wanted)
        return settings;
      if (!areLevelsApart(made, wanted))
        break;
    }
  }
  return std::nullopt;
}

std::optional<std::uint32_t> keyNumber(const container::SampleDescription& description,
                                       std::span<const std::byte> sample) {
  constexpr std::size_t headerBytes = 32; // more than what stands up to the number
  const SampleEntry entry = readSampleEntry(description, container::TrackKind::video);
  const auto sets = entry.decoder == "h264" ? setsOf(entry.configuration) : std::nullopt;
  const auto parameters =
      sets ? media::h264::parseParameterSets(sets->sequence, sets->picture) : std::nullopt;
  if (!parameters)
    return std::nullopt;
  for (const auto unit : media::splitSample(sample)) {
    if (media::h264::typeOf(unit) != media::h264::UnitType::idrSlice)
      continue;
    const media::Bytes payload =
        media::withoutEmulationPrevention(unit.first(std::min(unit.size(), headerBytes)));
    media::BitReader reader(payload);
    reader.bits(8);
    for (int i = 0; i < 3; ++i)
      reader.ue(); // first macroblock, type, parameter set
    reader.bits(parameters->frameNumberBits);
    const std::uint32_t number = reader.ue();
    return reader.isBeyondEnd() ? std::nullopt : std::optional(number);
  }
  return std::nullopt;
}

CutCoder::CutCoder(const VideoSettings& settings, CutStore& store, bool isNumberedOne)
    : settings_(settings), store_(store), coder_(makeCoder(settings)), surplus_(isNumberedOne ? 1 : 0) {}

std::shared_ptr<const media::I420Picture> CutCoder::loaded(const SharedFrame& picture) {
  const auto width = static_cast<std::int32_t>(settings_.width);
  const auto height = static_cast<std::int32_t>(settings_.height);
  SharedFrame frame = picture;
  if (frame->format != AV_PIX_FMT_YUV420P || frame->width != width || frame->height != height)
    frame = shaped(picture, {0, false, {width, height}}, memory_);
  auto loaded = std::make_shared<media::I420Picture>(width, height);
  const pixels::I420Planes planes = loaded->planes();
  libyuv::I420Copy(frame->data[0], frame->linesize[0], frame->data[1], frame->linesize[1], frame->data[2],
                   frame->linesize[2], planes.y, static_cast<int>(planes.yStride), planes.u,
                   static_cast<int>(planes.uStride), planes.v, static_cast<int>(planes.vStride), width,
                   height);
  return loaded;
}

void CutCoder::append(const SharedFrame& picture, std::int64_t time) {
  const auto own = loaded(picture);
  // The coder numbers its keys in turn, so that one more at the beginning makes the next one number 1.
  for (std::int64_t i = 0; samples_.empty() && i < surplus_; ++i)
    received(coder_->encode(own, next_++, true));
  container::Sample sample;
  sample.decodeTime = time;
  sample.isSync = static_cast<std::int64_t>(samples_.size()) % settings_.maximumKeyFrameInterval == 0;
  samples_.push_back(sample);
  received(coder_->encode(own, next_++, sample.isSync));
}

std::vector<container::Sample> CutCoder::finish() {
  received(coder_->finish());
  if (coded_ != samples_.size())
    throw MovieEditingFailure(MovieEditingError::notWritten);
  return std::move(samples_);
}

void CutCoder::received(const std::vector<media::CodedPicture>& pictures) {
  for (const media::CodedPicture& picture : pictures) {
    if (dropped_ < surplus_) {
      ++dropped_;
      continue;
    }
    container::Sample& sample = samples_.at(coded_++);
    sample.offset = store_.append(picture.sample);
    sample.size = static_cast<std::uint32_t>(picture.sample.size());
    sample.isSync = picture.isKey;
  }
}

} // namespace tessarin::editing
