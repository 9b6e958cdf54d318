#include "modules/media/VideoTrackInput.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace tessarin::media {
namespace {

const VideoSettings settings{.codec = RecordingCodec::h264,
                             .width = 64,
                             .height = 48,
                             .averageBitRate = 500'000,
                             .expectedFrameRate = 10,
                             .maximumKeyFrameInterval = 10};

class VideoTrackInputTest : public testing::Test {
 protected:
  VideoTrackInputTest() { state.change(MediaWriterStatus::unknown, MediaWriterStatus::writing); }
  std::shared_ptr<const CodablePicture> picture() {
    return input.render({pixels.data(), 64, 48, 64 * 4, PixelFormat::bgrx8});
  }

  const std::vector<std::uint8_t> pixels = std::vector<std::uint8_t>(64 * 48 * 4, 100);
  VideoCoders coders{libraryEncoders(nullptr)};
  WriterState state;
  int failures = 0; // of the test's thread
  VideoTrackInput input{
      settings, coders, state, {[](CodedPicture, std::int64_t) {}, [&](const auto&) { ++failures; }}};
};

TEST_F(VideoTrackInputTest, isNotReadyWhileTheDiskIsBehind) {
  EXPECT_TRUE(input.isReadyForMoreMediaData());
  state.addUnwritten(WriterState::mostUnwritten);
  EXPECT_TRUE(input.isReadyForMoreMediaData());
  state.addUnwritten(1);
  EXPECT_FALSE(input.isReadyForMoreMediaData());
  state.removeUnwritten(1);
  EXPECT_TRUE(input.isReadyForMoreMediaData());
}

TEST_F(VideoTrackInputTest, takesAPictureThatItWasReadyForThoughTheDiskHasFallenBehindSince) {
  ASSERT_TRUE(input.isReadyForMoreMediaData());
  state.addUnwritten(WriterState::mostUnwritten + 1);
  EXPECT_TRUE(input.append(picture(), MediaTime(0, 10)));
  EXPECT_EQ(failures, 0);
}

TEST_F(VideoTrackInputTest, takesNothingOnceFinishedOrFailed) {
  ASSERT_TRUE(input.append(picture(), MediaTime(0, 10)));
  input.markAsFinished();
  EXPECT_FALSE(input.append(picture(), MediaTime(1, 10)));

  WriterState failed;
  VideoTrackInput other(settings, coders, failed, {[](CodedPicture, std::int64_t) {}, [](const auto&) {}});
  failed.change(MediaWriterStatus::unknown, MediaWriterStatus::writing);
  failed.fail({"POSIX", 5, std::nullopt, 0});
  EXPECT_FALSE(other.append(picture(), MediaTime(0, 10)));
}

TEST_F(VideoTrackInputTest, failsForATimeThatGoesBackAndForNoPicture) {
  ASSERT_TRUE(input.append(picture(), MediaTime(5, 10)));
  EXPECT_FALSE(input.append(picture(), MediaTime(4, 10)));
  EXPECT_EQ(failures, 1);
  EXPECT_FALSE(input.append(nullptr, MediaTime(6, 10)));
  EXPECT_EQ(failures, 2);
  EXPECT_FALSE(input.append(picture(), MediaTime()));
  EXPECT_EQ(failures, 3);
}

TEST_F(VideoTrackInputTest, rendersNothingFromAnEmptyPicture) {
  EXPECT_EQ(input.render({pixels.data(), 0, 48, 64 * 4, PixelFormat::bgrx8}), nullptr);
  EXPECT_EQ(input.render({pixels.data(), 64, 0, 64 * 4, PixelFormat::bgrx8}), nullptr);
}

TEST(WriterState, tellsWhenTheDiskHasCaughtUp) {
  WriterState state;
  state.addUnwritten(10);
  EXPECT_FALSE(state.removeUnwritten(10)) << "was never behind";
  state.addUnwritten(WriterState::mostUnwritten + 2);
  EXPECT_FALSE(state.removeUnwritten(1)) << "still behind";
  EXPECT_TRUE(state.removeUnwritten(1));
  EXPECT_FALSE(state.removeUnwritten(1)) << "told already";
}

TEST(WriterState, keepsTheFirstFailureBeforeTheEnd) {
  WriterState state;
  EXPECT_TRUE(state.change(MediaWriterStatus::unknown, MediaWriterStatus::writing));
  EXPECT_FALSE(state.change(MediaWriterStatus::unknown, MediaWriterStatus::cancelled));
  EXPECT_TRUE(state.fail({"first", 1, std::nullopt, 0}));
  EXPECT_FALSE(state.fail({"second", 2, std::nullopt, 0}));
  EXPECT_EQ(state.error()->domain, "first");

  WriterState completed;
  completed.change(MediaWriterStatus::unknown, MediaWriterStatus::completed);
  EXPECT_FALSE(completed.fail({"late", 1, std::nullopt, 0}));
  EXPECT_EQ(completed.status(), MediaWriterStatus::completed);
  EXPECT_FALSE(completed.error());
}

} // namespace
} // namespace tessarin::media
