#include "recording/SystemAudioLevelCollector.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <span>
#include <vector>

namespace tessarin {
namespace {

PcmView floats(const std::vector<float>& samples, std::int32_t channelCount) {
  return {std::as_bytes(std::span<const float>(samples)), PcmFormat::float32, channelCount,
          samples.size() / static_cast<std::size_t>(channelCount)};
}

TEST(SystemAudioLevelCollector, NothingHasNoLevel) {
  const SystemAudioLevelCollector collector;
  EXPECT_EQ(collector.level(), (RecordingAudioLevelPayload{0, 0, 0}));
  EXPECT_EQ(json::encode(collector.level()), R"({"peak":0,"rms":0,"sampleCount":0})");
}

TEST(SystemAudioLevelCollector, SilenceCountsItsSamples) {
  SystemAudioLevelCollector collector;
  collector.collect(floats(std::vector<float>(512), 2));
  EXPECT_EQ(collector.level(), (RecordingAudioLevelPayload{0, 0, 512}));
}

TEST(SystemAudioLevelCollector, SumsOverChannelsAndBuffers) {
  SystemAudioLevelCollector collector;
  collector.collect(floats({0.5F, -0.75F, 0, 0}, 2));
  collector.collect(floats({0.25F}, 1));
  const RecordingAudioLevelPayload level = collector.level();
  EXPECT_EQ(level.sampleCount, 5);
  EXPECT_EQ(level.peak, 0.75);
  EXPECT_DOUBLE_EQ(level.rms, std::sqrt((0.25 + 0.5625 + 0.0625) / 5));
}

// A sum in single precision would stop growing long before.
TEST(SystemAudioLevelCollector, ALongTimeLosesNothing) {
  SystemAudioLevelCollector collector;
  const std::vector<float> samples(1 << 16, 0.125F);
  for (int i = 0; i < 600; ++i)
    collector.collect(floats(samples, 2));
  EXPECT_EQ(collector.level().sampleCount, 600LL << 16);
  EXPECT_NEAR(collector.level().rms, 0.125, 1e-12);
}

TEST(SystemAudioLevelCollector, OtherBuffersAreIgnored) {
  SystemAudioLevelCollector collector;
  const std::vector<float> samples(8, 0.5F);
  for (const PcmFormat format : {PcmFormat::int16, PcmFormat::int32, PcmFormat::other}) {
    PcmView pcm = floats(samples, 2);
    pcm.format = format;
    collector.collect(pcm);
  }
  PcmView longerThanItsData = floats(samples, 2);
  ++longerThanItsData.frameCount;
  collector.collect(longerThanItsData);
  longerThanItsData.frameCount = std::numeric_limits<std::size_t>::max();
  collector.collect(longerThanItsData);
  for (const std::int32_t channelCount : {0, -2}) {
    PcmView pcm = floats(samples, 2);
    pcm.channelCount = channelCount;
    collector.collect(pcm);
  }
  EXPECT_EQ(collector.level(), (RecordingAudioLevelPayload{0, 0, 0}));
  collector.collect(floats(samples, 2));
  EXPECT_EQ(collector.level(), (RecordingAudioLevelPayload{0.5, 0.5, 8}));
}

TEST(SystemAudioLevelCollector, SamplesMayLieAnywhere) {
  std::vector<std::byte> bytes(2 * sizeof(float) + 1);
  const float values[] = {0.5F, -0.5F};
  std::memcpy(bytes.data() + 1, values, sizeof values);
  SystemAudioLevelCollector collector;
  collector.collect({std::span(bytes).subspan(1), PcmFormat::float32, 2, 1});
  EXPECT_EQ(collector.level(), (RecordingAudioLevelPayload{0.5, 0.5, 2}));
}

} // namespace
} // namespace tessarin
