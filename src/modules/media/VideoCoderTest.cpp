#include "modules/media/CoderFailure.hpp"
#include "modules/media/TestDecoder.hpp"
#include "modules/media/VideoCoders.hpp"

#include <gtest/gtest.h>

#include <string>

// The HEVC library is not built for the sanitizers: they cannot see how its threads agree, and it keeps some
// memory of each of its coders.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions() {
  return "race:libx265.so\n";
}
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
  return "leak:libx265.so\n";
}

namespace tessarin::media {
namespace {

VideoSettings settings(RecordingCodec codec, std::int64_t keyInterval = 30) {
  return {.codec = codec,
          .width = 320,
          .height = 240,
          .averageBitRate = 1'000'000,
          .expectedFrameRate = 30,
          .maximumKeyFrameInterval = keyInterval};
}

std::unique_ptr<VideoCoder> makeVideoCoder(const VideoSettings& wanted,
                                           CodingEffort effort = CodingEffort::full) {
  const char* name = wanted.codec == RecordingCodec::hevc ? "libx265" : "libx264";
  return libraryEncoders(nullptr).make(*encoderNamed(name), wanted, effort);
}

TEST(VideoCoder, describesEqualSettingsEqually) {
  for (const RecordingCodec codec : {RecordingCodec::h264, RecordingCodec::hevc}) {
    const auto first = makeVideoCoder(settings(codec));
    const auto second = makeVideoCoder(settings(codec));
    for (int i = 0; i < 5; ++i)
      second->encode(paintedPicture(320, 240, i), i, i == 0);
    EXPECT_EQ(first->description(), second->description());
  }
}

// Segments of different efforts join without another description, and a coder is replaced at any key.
TEST(VideoCoder, describesItsStreamAlikeAtEveryEffort) {
  const struct {
    std::int64_t width, height, bitRate;
  } sizes[] = {{16, 16, 100'000},        {320, 240, 2'000'000},    {1280, 720, 5'000'000},
               {1366, 768, 6'000'000},   {1920, 1080, 12'400'000}, {2560, 1440, 20'000'000},
               {3840, 2160, 35'000'000}, {3840, 2160, 60'000'000}};
  for (const auto& size : sizes)
    for (const std::int64_t rate : {1, 5, 15, 24, 30, 60, 120}) {
      const VideoSettings wanted{.codec = RecordingCodec::h264,
                                 .width = size.width,
                                 .height = size.height,
                                 .averageBitRate = size.bitRate,
                                 .expectedFrameRate = rate,
                                 .maximumKeyFrameInterval = rate};
      const auto full = makeVideoCoder(wanted, CodingEffort::full);
      for (const CodingEffort effort : {CodingEffort::reduced, CodingEffort::least}) {
        const auto eased = makeVideoCoder(wanted, effort);
        EXPECT_EQ(eased->description(), full->description()) << size.width << " " << rate;
        EXPECT_EQ(eased->delay(), full->delay());
        EXPECT_EQ(eased->makeRepeater() != nullptr, full->makeRepeater() != nullptr);
      }
    }
}

TEST(VideoCoder, describesItselfByTheRightSampleEntry) {
  const auto contains = [](const Bytes& box, const std::string& text) {
    return std::string(reinterpret_cast<const char*>(box.data()), box.size()).find(text) != std::string::npos;
  };
  const container::SampleDescription h264 = makeVideoCoder(settings(RecordingCodec::h264))->description();
  EXPECT_EQ(h264.codec, "avc1");
  EXPECT_EQ(h264.width, 320);
  EXPECT_EQ(h264.height, 240);
  EXPECT_TRUE(contains(h264.box, "avcC"));
  EXPECT_TRUE(contains(h264.box, std::string("colrnclx\0\1\0\1\0\1\0", 15)));
  const container::SampleDescription hevc = makeVideoCoder(settings(RecordingCodec::hevc))->description();
  EXPECT_EQ(hevc.codec, "hvc1");
  EXPECT_TRUE(contains(hevc.box, "hvcC"));
}

TEST(VideoCoder, holdsBackNoMoreThanItSays) {
  for (const RecordingCodec codec : {RecordingCodec::h264, RecordingCodec::hevc})
    for (const std::int64_t interval : {1, 15, 60}) {
      const auto coder = makeVideoCoder(settings(codec, interval));
      std::int64_t held = 0;
      for (int i = 0; i < 60; ++i) {
        held += 1 - static_cast<std::int64_t>(
                        coder->encode(paintedPicture(320, 240, i), i, i % interval == 0).size());
        ASSERT_LE(held, coder->delay()) << json::nameOf(codec) << " " << interval;
      }
      EXPECT_EQ(static_cast<std::int64_t>(coder->finish().size()), held);
    }
}

TEST(VideoCoder, letsGoOfPicturesThatItHasTaken) {
  const auto coder = makeVideoCoder(settings(RecordingCodec::h264));
  auto picture = paintedPicture(320, 240, 0);
  const std::weak_ptr<const I420Picture> watched = picture;
  coder->encode(picture, 0, true);
  picture.reset();
  EXPECT_TRUE(watched.expired());
}

TEST(VideoCoder, repeatsPicturesOfH264AloneAndWhereKeysHaveRoom) {
  EXPECT_NE(makeVideoCoder(settings(RecordingCodec::h264, 60))->makeRepeater(), nullptr);
  EXPECT_NE(makeVideoCoder(settings(RecordingCodec::h264, 15))->makeRepeater(), nullptr);
  EXPECT_EQ(makeVideoCoder(settings(RecordingCodec::h264, 1))->makeRepeater(), nullptr);
  EXPECT_EQ(makeVideoCoder(settings(RecordingCodec::hevc, 60))->makeRepeater(), nullptr);
}

TEST(VideoCoder, failsForASizeThatTheCoderDoesNotTake) {
  VideoSettings impossible = settings(RecordingCodec::hevc);
  impossible.width = 2;
  impossible.height = 2;
  EXPECT_THROW(makeVideoCoder(impossible), CoderFailure);
}

} // namespace
} // namespace tessarin::media
