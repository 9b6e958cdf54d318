#include "MediaWriterTesting.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <set>

// What independent players make of the real module's files.
namespace tessarin {
namespace {

using testing::HasSubstr;

struct Decoded {
  int width = 0, height = 0;
  std::string bytes; // RGB, picture after picture

  std::size_t count() const { return bytes.size() / pictureBytes(); }
  std::size_t pictureBytes() const {
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3;
  }
  std::string picture(std::size_t index) const {
    return bytes.substr(index * pictureBytes(), pictureBytes());
  }
  int value(std::size_t index, int x, int y, int channel) const {
    return static_cast<unsigned char>(
        bytes[index * pictureBytes() + static_cast<std::size_t>((y * width + x) * 3 + channel)]);
  }
};

class MediaWriterPicture : public testing::TestWithParam<RecordingCodec> {
 protected:
  void begin(VideoSettings settings) {
    settings.codec = GetParam();
    video = settings;
    writer = rig.makeWriter("a.mp4");
    ASSERT_TRUE(writer->canApply(settings));
    input = writer->addVideoInput(settings);
    ASSERT_NE(input, nullptr);
    ASSERT_TRUE(writer->startWriting());
    writer->startSession(MediaTime::zero());
  }
  void append(const std::shared_ptr<const CodablePicture>& picture) {
    ASSERT_NE(picture, nullptr);
    const auto rate = static_cast<std::int32_t>(video.expectedFrameRate);
    ASSERT_TRUE(appendPatiently(*writer, *input, picture, MediaTime(count++, rate)));
  }
  void finishFile() {
    input->markAsFinished();
    finish(*writer);
    ASSERT_EQ(writer->status(), MediaWriterStatus::completed);
  }
  // Decodes everything; any complaint of the decoder fails the test.
  Decoded decode() const {
    return {static_cast<int>(video.width), static_cast<int>(video.height),
            outputOf("ffmpeg -nostdin -v error -xerror -i '" + rig.path("a.mp4") +
                     "' -fps_mode passthrough -vf scale=flags=accurate_rnd+full_chroma_int+bilinear "
                     "-pix_fmt rgb24 -f rawvideo -")};
  }
  std::string probe(const std::string& entries) const {
    return outputOf("ffprobe -v error -count_packets -show_entries stream=" + entries +
                    " -of default=nw=1 '" + rig.path("a.mp4") + "'");
  }

  MediaModuleRig rig;
  VideoSettings video;
  std::unique_ptr<MediaFileWriter> writer;
  VideoInput* input = nullptr;
  std::int64_t count = 0;
};

TEST_P(MediaWriterPicture, hasTheColorsThatWerePainted) {
  const Painting::Color colors[] = {{255, 255, 255}, {0, 0, 0},       {255, 0, 0},   {0, 255, 0},
                                    {0, 0, 255},     {128, 128, 128}, {255, 255, 0}, {30, 90, 200}};
  VideoSettings settings = smallVideo();
  settings.width = 256;
  settings.height = 64;
  settings.averageBitRate = 4'000'000;
  begin(settings);
  Painting painting(256, 64);
  for (int i = 0; i < 8; ++i)
    painting.fill(i * 32, 0, 32, 64, colors[i]);
  const auto picture = input->render(painting.view());
  for (int i = 0; i < 12; ++i)
    append(picture);
  finishFile();

  const Decoded decoded = decode();
  ASSERT_EQ(decoded.count(), 12U);
  for (const std::size_t index : {std::size_t{0}, std::size_t{11}})
    for (int i = 0; i < 8; ++i) {
      EXPECT_NEAR(decoded.value(index, i * 32 + 16, 32, 0), colors[i].red, 4) << "bar " << i;
      EXPECT_NEAR(decoded.value(index, i * 32 + 16, 32, 1), colors[i].green, 4) << "bar " << i;
      EXPECT_NEAR(decoded.value(index, i * 32 + 16, 32, 2), colors[i].blue, 4) << "bar " << i;
    }
}

TEST_P(MediaWriterPicture, saysWhatItIs) {
  begin(smallVideo());
  append(input->render(Painting(128, 96).view()));
  append(input->render(Painting(128, 96).view()));
  finishFile();
  const std::string text =
      probe("codec_tag_string,color_space,color_transfer,color_primaries,color_range,"
            "chroma_location,has_b_frames,pix_fmt,nb_read_packets,duration,avg_frame_rate");
  EXPECT_THAT(text, HasSubstr(GetParam() == RecordingCodec::h264 ? "codec_tag_string=avc1"
                                                                 : "codec_tag_string=hvc1"));
  EXPECT_THAT(text, HasSubstr("color_space=bt709"));
  EXPECT_THAT(text, HasSubstr("color_transfer=bt709"));
  EXPECT_THAT(text, HasSubstr("color_primaries=bt709"));
  EXPECT_THAT(text, HasSubstr("color_range=tv"));
  EXPECT_THAT(text, HasSubstr("chroma_location=center"));
  EXPECT_THAT(text, HasSubstr("has_b_frames=0"));
  EXPECT_THAT(text, HasSubstr("pix_fmt=yuv420p"));
  EXPECT_THAT(text, HasSubstr("nb_read_packets=2"));
  EXPECT_THAT(text, HasSubstr("duration=0.200000"));
  EXPECT_THAT(text, HasSubstr("avg_frame_rate=10/1"));
}

// A picture says its number by its grey, and stands still at random, also for longer than the coder and the
// key interval are long.
TEST_P(MediaWriterPicture, showsEveryPictureAtItsPlaceWhereverItStandsStill) {
  VideoSettings settings = smallVideo();
  settings.expectedFrameRate = 30;
  settings.maximumKeyFrameInterval = 30;
  settings.averageBitRate = 2'000'000;
  begin(settings);
  std::minstd_rand random(3);
  std::vector<int> greys;
  Painting painting(128, 96);
  while (greys.size() < 700) {
    const auto grey = static_cast<std::uint8_t>(20 + random() % 40 * 5);
    painting.fill({grey, grey, grey});
    painting.fill(static_cast<int>(random() % 64), 0, 64, 48, {255, 0, 0});
    const auto picture = input->render(painting.view());
    for (auto still = random() % 4 == 0 ? 1 + random() % 90 : 1 + random() % 3; still > 0; --still) {
      append(picture);
      greys.push_back(grey);
    }
  }
  finishFile();

  const Decoded decoded = decode();
  ASSERT_EQ(decoded.count(), greys.size());
  for (std::size_t i = 0; i < greys.size(); ++i)
    ASSERT_NEAR(decoded.value(i, 64, 80, 0), greys[i], 6) << "picture " << i;
  const container::Movie movie = rig.movie("a.mp4");
  std::size_t lastKey = 0;
  const auto& samples = movie.tracks.at(0).samples;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    if (samples[i].isSync)
      lastKey = i;
    ASSERT_LT(i - lastKey, 30U);
  }
}

TEST_P(MediaWriterPicture, scalesAndCropsWhatIsRendered) {
  begin(smallVideo());
  Painting painting(512, 192); // twice the height; cropped by half at the sides
  painting.fill({0, 0, 255});
  painting.fill(128, 0, 256, 192, {255, 255, 0});
  append(input->render(painting.view()));
  finishFile();
  const Decoded decoded = decode();
  ASSERT_EQ(decoded.count(), 1U);
  for (const int x : {4, 64, 123}) {
    EXPECT_NEAR(decoded.value(0, x, 48, 0), 255, 8);
    EXPECT_NEAR(decoded.value(0, x, 48, 2), 0, 8);
  }
}

TEST_P(MediaWriterPicture, turnsOverWhatIsToBeMirrored) {
  VideoSettings settings = smallVideo();
  settings.isMirrored = true;
  begin(settings);
  Painting painting(static_cast<int>(settings.width), static_cast<int>(settings.height));
  painting.fill({0, 0, 255});
  painting.fill(0, 0, static_cast<int>(settings.width) / 4, static_cast<int>(settings.height), {255, 255, 0});
  append(input->render(painting.view()));
  finishFile();
  const Decoded decoded = decode();
  ASSERT_EQ(decoded.count(), 1U);
  const int right = decoded.width - 8;
  EXPECT_NEAR(decoded.value(0, right, 40, 0), 255, 8);
  EXPECT_NEAR(decoded.value(0, right, 40, 2), 0, 8);
  EXPECT_NEAR(decoded.value(0, 8, 40, 0), 0, 8);
  EXPECT_NEAR(decoded.value(0, 8, 40, 2), 255, 8);
}

INSTANTIATE_TEST_SUITE_P(Codecs, MediaWriterPicture,
                         testing::Values(RecordingCodec::h264, RecordingCodec::hevc),
                         [](const auto& each) { return std::string(json::nameOf(each.param)); });

class MediaWriterStillPicture : public MediaWriterPicture {};

TEST_P(MediaWriterStillPicture, doesNotChangeByOneBitOnceItHasBeenRefined) {
  begin(smallVideo());
  Painting painting(128, 96);
  painting.scatter(1);
  append(input->render(painting.view()));
  painting.scatter(2);
  const auto picture = input->render(painting.view());
  for (int i = 0; i < 200; ++i)
    append(picture);
  painting.scatter(3);
  for (int i = 0; i < 20; ++i)
    append(input->render(painting.view()));
  finishFile();
  const Decoded decoded = decode();
  ASSERT_EQ(decoded.count(), 221U);
  std::set<std::string> different;
  for (std::size_t i = 40; i < 180; ++i)
    different.insert(decoded.picture(i));
  EXPECT_EQ(different.size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Codecs, MediaWriterStillPicture, testing::Values(RecordingCodec::h264),
                         [](const auto& each) { return std::string(json::nameOf(each.param)); });

} // namespace
} // namespace tessarin
