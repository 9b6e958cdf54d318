#include "recording/RecordingConfiguration.hpp"

#include <algorithm>
#include <cmath>
#include <optional>

namespace tessarin::RecordingConfigurationBuilder {

namespace {

struct PixelSize {
  std::int64_t width = 0;
  std::int64_t height = 0;
};

std::optional<PixelSize> limitOf(RecordingOutputScale scale) {
  switch (scale) {
  case RecordingOutputScale::original:
    return std::nullopt;
  case RecordingOutputScale::hd1080:
    return PixelSize{1920, 1080};
  case RecordingOutputScale::hd720:
    return PixelSize{1280, 720};
  }
  return std::nullopt;
}

// Coders take even sizes only. A picture at its own size gains a pixel, one that is scaled down loses one.
PixelSize outputSize(PixelSize source, RecordingOutputScale scale) {
  const std::optional<PixelSize> limit = limitOf(scale);
  if (!limit)
    return {source.width + source.width % 2, source.height + source.height % 2};
  const double factor =
      std::min({static_cast<double>(limit->width) / static_cast<double>(source.width),
                static_cast<double>(limit->height) / static_cast<double>(source.height), 1.0});
  const auto scaled = [factor](std::int64_t length) {
    const auto whole = static_cast<std::int64_t>(std::floor(factor * static_cast<double>(length)));
    return std::max<std::int64_t>(whole, 2) & ~std::int64_t{1};
  };
  return {scaled(source.width), scaled(source.height)};
}

struct BitRateRule {
  double bitsPerPixel;
  std::int64_t floor;   // bits per second
  std::int64_t ceiling; // bits per second
};

BitRateRule bitRateRule(RecordingCodec codec, RecordingQuality quality) {
  const bool high = quality == RecordingQuality::high;
  if (codec == RecordingCodec::hevc)
    return high ? BitRateRule{0.1, 3'000'000, 40'000'000} : BitRateRule{0.065, 1'500'000, 24'000'000};
  return high ? BitRateRule{0.16, 4'000'000, 60'000'000} : BitRateRule{0.1, 2'000'000, 35'000'000};
}

} // namespace

std::int64_t averageBitRate(RecordingCodec codec, RecordingQuality quality, std::int64_t pixels,
                            std::int64_t frameRate) {
  const BitRateRule rule = bitRateRule(codec, quality);
  const double raw =
      std::round(static_cast<double>(frameRate) * static_cast<double>(pixels) * rule.bitsPerPixel);
  return static_cast<std::int64_t>(
      std::clamp(raw, static_cast<double>(rule.floor), static_cast<double>(rule.ceiling)));
}

RecordingConfigurationPlan plan(const ValidatedRecordingRequest& validated) {
  const RecordingSettingsDTO& settings = validated.request.settings;
  const RectDTO& source = validated.sourceRectPoints;
  const double scale = validated.display.scaleFactor;

  const double minX = std::floor(source.x * scale);
  const double minY = std::floor(source.y * scale);
  const double maxX = std::ceil((source.x + source.width) * scale);
  const double maxY = std::ceil((source.y + source.height) * scale);
  const PixelSize sourcePixels{static_cast<std::int64_t>(maxX - minX),
                               static_cast<std::int64_t>(maxY - minY)};
  const PixelSize output = outputSize(sourcePixels, settings.outputScale);

  const RectDTO& origin = validated.request.kind == CaptureKind::window ? validated.request.rectPoints
                                                                        : validated.display.framePoints;
  RecordingConfigurationPlan plan;
  plan.sourceRect = {minX / scale, minY / scale, (maxX - minX) / scale, (maxY - minY) / scale};
  plan.captureRect = {plan.sourceRect.x + origin.x, plan.sourceRect.y + origin.y, plan.sourceRect.width,
                      plan.sourceRect.height};
  plan.outputWidth = output.width;
  plan.outputHeight = output.height;
  plan.minimumFrameInterval = MediaTime(1, static_cast<std::int32_t>(settings.frameRate));
  plan.averageBitRate = averageBitRate(settings.effectiveCodec(), settings.quality,
                                       output.width * output.height, settings.frameRate);
  return plan;
}

StreamConfiguration streamConfiguration(const RecordingConfigurationPlan& plan,
                                        const RecordingSettingsDTO& settings) {
  StreamConfiguration configuration;
  configuration.sourceRect = plan.sourceRect;
  configuration.width = plan.outputWidth;
  configuration.height = plan.outputHeight;
  configuration.minimumFrameInterval = plan.minimumFrameInterval;
  configuration.queueDepth = 5;
  configuration.pixelFormat = 0x42475241; // "BGRA"
  configuration.capturesAudio = settings.systemAudio;
  configuration.sampleRate = 48000;
  configuration.channelCount = 2;
  // A light or dark pointer is drawn later from the trace, and clicks always are, so they stay out of the
  // pixels.
  configuration.showsCursor =
      settings.showsCursor &&
      (!settings.presentation || settings.presentation->cursorStyle == RecordingCursorStyle::system);
  configuration.showMouseClicks = false;
  return configuration;
}

} // namespace tessarin::RecordingConfigurationBuilder
