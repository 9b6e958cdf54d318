#include "MediaWriterTesting.hpp"

#include "backends/posix/ModuleAudioReencoder.hpp"
#include "recording/RecordingMediaValidator.hpp"
#include "recording/RecordingMerger.hpp"

#include <gtest/gtest.h>

#include <array>

// Segments of coders that describe their streams differently, joined: as where hardware codes one of them,
// and software the next.
namespace tessarin {
namespace {

class PictureJoin : public testing::TestWithParam<RecordingCodec> {
 protected:
  // Ten grey pictures, a tenth of a second each. The bit rate decides what the stream's description says.
  std::string segment(const std::string& name, std::uint8_t grey, std::int64_t bitRate) {
    VideoSettings settings = smallVideo();
    settings.codec = GetParam();
    settings.averageBitRate = bitRate;
    const auto writer = rig.makeWriter(name);
    VideoInput* const input = writer->addVideoInput(settings);
    EXPECT_TRUE(input != nullptr && writer->startWriting());
    writer->startSession(MediaTime::zero());
    Painting painting(128, 96);
    painting.fill({grey, grey, grey});
    const auto picture = input->render(painting.view());
    for (std::int64_t i = 0; i < 10; ++i)
      EXPECT_TRUE(appendPatiently(*writer, *input, picture, MediaTime(i, 10)));
    input->markAsFinished();
    finish(*writer);
    EXPECT_EQ(writer->status(), MediaWriterStatus::completed);
    return rig.path(name);
  }

  MediaModuleRig rig;
  ModuleLoader loader{{TESSARIN_MODULE_DIRECTORY}, [](const std::string&) {}};
  ModuleAudioReencoder reencoder{loader, rig.files};
  RecordingMerger merger{rig.files, reencoder};
};

TEST_P(PictureJoin, showsEverySegmentsPicturesWhateverItsCoderSaidOfThem) {
  constexpr std::int64_t low = 300'000, high = 40'000'000;
  const std::vector<std::string> segments{segment("first.mp4", 40, low), segment("second.mp4", 120, high),
                                          segment("third.mp4", 200, low)};
  const auto described = [&](const char* name) { return rig.movie(name).tracks.at(0).descriptions.at(0); };
  ASSERT_NE(described("first.mp4").box, described("second.mp4").box);
  ASSERT_EQ(described("first.mp4").box, described("third.mp4").box);

  const std::string path = rig.path("screen.mp4");
  merger.mergeVideoTrack(segments, path, 0);
  EXPECT_EQ(rig.movie("screen.mp4").tracks.at(0).descriptions.size(), 2U);
  EXPECT_EQ(RecordingMediaValidator::validateRecording(rig.files, path, MediaTime::zero(), 1, 0, 10),
            (ValidatedMedia{3000, machineFileSystem().info(path)->sizeBytes}));

  const std::string luma = outputOf("ffmpeg -nostdin -v error -xerror -i '" + path +
                                    "' -fps_mode passthrough -pix_fmt yuv420p -f rawvideo -");
  constexpr std::size_t pictureBytes = std::size_t{128} * 96 * 3 / 2;
  ASSERT_EQ(luma.size(), 30 * pictureBytes);
  constexpr std::array<double, 3> greys{40, 120, 200};
  for (std::size_t i = 0; i < 30; ++i)
    EXPECT_NEAR(static_cast<unsigned char>(luma[i * pictureBytes + 64]), 16 + greys[i / 10] * 219 / 255, 4)
        << i;
}

INSTANTIATE_TEST_SUITE_P(Codecs, PictureJoin, testing::Values(RecordingCodec::h264, RecordingCodec::hevc),
                         [](const auto& parameter) {
                           return parameter.param == RecordingCodec::h264 ? "H264" : "Hevc";
                         });

} // namespace
} // namespace tessarin
