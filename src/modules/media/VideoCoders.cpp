#include "modules/media/VideoCoders.hpp"

#include "modules/media/CoderFailure.hpp"
#include "modules/media/HardwareCoder.hpp"
#include "modules/media/SoftwareCoder.hpp"
#include "modules/media/SteppingCoder.hpp"

#include <algorithm>
#include <array>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/log.h>
}

namespace tessarin::media {

namespace {

// In the order of preference.
constexpr std::array<Encoder, 6> encoders{{{RecordingCodec::h264, EncoderKind::nvenc, "h264_nvenc"},
                                           {RecordingCodec::h264, EncoderKind::vaapi, "h264_vaapi"},
                                           {RecordingCodec::h264, EncoderKind::software, "libx264"},
                                           {RecordingCodec::hevc, EncoderKind::nvenc, "hevc_nvenc"},
                                           {RecordingCodec::hevc, EncoderKind::vaapi, "hevc_vaapi"},
                                           {RecordingCodec::hevc, EncoderKind::software, "libx265"}}};

std::unique_ptr<VideoCoder> makeOfLibrary(const Encoder& encoder, const VideoSettings& settings,
                                          CodingEffort effort) {
  // What a library prints is no protocol of this program.
  av_log_set_level(AV_LOG_QUIET);
  return encoder.kind == EncoderKind::software ? makeSoftwareCoder(encoder, settings, effort)
                                               : makeHardwareCoder(encoder, settings);
}

} // namespace

bool areCodable(const VideoSettings& settings) {
  constexpr std::int64_t longestSide = 16384;
  constexpr std::int64_t highestRate = 1000;
  const auto fits = [](std::int64_t side) { return side >= 2 && side <= longestSide && side % 2 == 0; };
  return fits(settings.width) && fits(settings.height) && settings.averageBitRate > 0 &&
         settings.expectedFrameRate > 0 && settings.expectedFrameRate <= highestRate &&
         settings.maximumKeyFrameInterval > 0;
}

std::optional<Encoder> encoderNamed(const std::string& name) {
  const auto found =
      std::find_if(encoders.begin(), encoders.end(), [&](const Encoder& each) { return each.name == name; });
  return found == encoders.end() ? std::nullopt : std::optional(*found);
}

EncoderCatalogue libraryEncoders(HardwareEncoderProbe probe) {
  const auto has = [](const std::string& name) {
    return avcodec_find_encoder_by_name(name.c_str()) != nullptr;
  };
  return {.has = has, .probe = std::move(probe), .make = makeOfLibrary};
}

bool VideoCoders::isUsable(const Encoder& encoder) const {
  if (!catalogue_.has(encoder.name))
    return false;
  if (encoder.kind == EncoderKind::software)
    return true;
  {
    const std::lock_guard lock(mutex_);
    if (failedNames_.contains(encoder.name))
      return false;
  }
  return catalogue_.probe && catalogue_.probe(encoder.name);
}

bool VideoCoders::canCode(const VideoSettings& settings) const {
  if (!areCodable(settings))
    return false;
  // Software comes last in the order and costs nothing to look for.
  return std::any_of(encoders.rbegin(), encoders.rend(),
                     [&](const Encoder& each) { return each.codec == settings.codec && isUsable(each); });
}

NamedCoder VideoCoders::make(const VideoSettings& settings) {
  for (const Encoder& encoder : encoders) {
    if (encoder.codec != settings.codec || !isUsable(encoder))
      continue;
    try {
      NamedCoder made;
      made.coder = make(encoder, settings);
      made.encoderName = encoder.name;
      return made;
    } catch (const CoderFailure&) {
      if (encoder.kind == EncoderKind::software)
        throw;
      failed(encoder.name);
    }
  }
  throw CoderFailure("libav", AVERROR_ENCODER_NOT_FOUND);
}

std::unique_ptr<VideoCoder> VideoCoders::make(const Encoder& encoder, const VideoSettings& settings) {
  const auto makeAt = [this, encoder, settings](CodingEffort effort) {
    return catalogue_.make(encoder, settings, effort);
  };
  const bool hasEfforts = encoder.kind == EncoderKind::software && encoder.codec == RecordingCodec::h264;
  if (hasEfforts && settings.expectsMediaDataInRealTime)
    return std::make_unique<SteppingCoder>(makeAt, effort_);
  return makeAt(CodingEffort::full);
}

void VideoCoders::failed(const std::string& encoderName) {
  const std::optional<Encoder> encoder = encoderNamed(encoderName);
  if (!encoder || encoder->kind == EncoderKind::software)
    return;
  const std::lock_guard lock(mutex_);
  failedNames_.insert(encoderName);
}

} // namespace tessarin::media
