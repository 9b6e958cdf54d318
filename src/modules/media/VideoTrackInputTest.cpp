#include "modules/media/VideoTrackInput.hpp"

#include "modules/media/CoderFailure.hpp"

#include <gtest/gtest.h>

#include <future>
#include <string>
#include <utility>
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

// A coder that waits to be let go on, or fails.
class StuckCoder final : public VideoCoder {
 public:
  StuckCoder(std::shared_future<void> released, bool fails) : released_(std::move(released)), fails_(fails) {}

  std::vector<CodedPicture> encode(const std::shared_ptr<const I420Picture>&, std::int64_t,
                                   bool asKey) override {
    released_.wait();
    if (fails_)
      throw CoderFailure("device", 7);
    return {{Bytes(1), asKey}};
  }
  std::vector<CodedPicture> finish() override { return {}; }
  std::int64_t delay() const override { return 0; }
  const container::SampleDescription& description() const override { return description_; }
  std::unique_ptr<PictureRepeater> makeRepeater() const override { return std::make_unique<Repeater>(); }

 private:
  class Repeater final : public PictureRepeater {
    void fitIn(CodedPicture&) override {}
    CodedPicture repeated() override { return {Bytes(2), false}; }
    CodedPicture repeatedKey() override { return {Bytes(2), true}; }
  };

  const std::shared_future<void> released_;
  const bool fails_;
  container::SampleDescription description_;
};

class StuckTrackTest : public testing::Test {
 protected:
  StuckTrackTest() { state.change(MediaWriterStatus::unknown, MediaWriterStatus::writing); }
  EncoderCatalogue catalogue() {
    return {.has = [](const std::string&) { return true; },
            .probe = [](const std::string& name) { return name == "h264_vaapi"; },
            .make =
                [this](const Encoder& encoder, const VideoSettings&, CodingEffort) {
                  return std::make_unique<StuckCoder>(released, encoder.kind != EncoderKind::software);
                }};
  }
  // Different pictures for so long, at twenty in a second.
  void appendFor(VideoTrackInput& input, int milliseconds) {
    for (int at = 0; at < milliseconds; at += 50) {
      const auto picture = input.render({pixels.data(), 64, 48, 64 * 4, PixelFormat::bgrx8});
      ASSERT_TRUE(input.append(picture, MediaTime(at, 1000))) << at;
    }
  }

  const std::vector<std::uint8_t> pixels = std::vector<std::uint8_t>(64 * 48 * 4, 100);
  VideoSettings wanted{.width = 64,
                       .height = 48,
                       .averageBitRate = 500'000,
                       .expectedFrameRate = 20,
                       .maximumKeyFrameInterval = 20};
  std::promise<void> release;
  std::shared_future<void> released = release.get_future();
  VideoCoders coders{catalogue()};
  WriterState state;
  std::vector<MediaWriterError> failures; // once the track has stopped
  const VideoTrackInput::Sink sink{[](CodedPicture, std::int64_t) {},
                                   [this](MediaWriterError error) { failures.push_back(std::move(error)); }};
};

TEST_F(StuckTrackTest, easesTheEffortWhenPicturesGiveWayForOneAndAHalfSeconds) {
  coders.failed("h264_vaapi");
  VideoTrackInput input(wanted, coders, state, sink);
  appendFor(input, 1500);
  EXPECT_EQ(coders.effort().current(), CodingEffort::full);
  release.set_value();
  input.stop();

  release = {};
  released = release.get_future();
  VideoTrackInput longer(wanted, coders, state, sink);
  appendFor(longer, 1900);
  EXPECT_EQ(coders.effort().current(), CodingEffort::least);
  release.set_value();
  longer.stop();
  EXPECT_TRUE(failures.empty());
}

TEST_F(StuckTrackTest, leavesTheEffortToASourceThatCanWait) {
  coders.failed("h264_vaapi");
  wanted.expectsMediaDataInRealTime = false;
  VideoTrackInput input(wanted, coders, state, sink);
  release.set_value();
  for (int at = 0; at < 200; ++at) {
    input.wait();
    const auto picture = input.render({pixels.data(), 64, 48, 64 * 4, PixelFormat::bgrx8});
    ASSERT_TRUE(input.append(picture, MediaTime(at, 20))) << at;
  }
  input.stop();
  EXPECT_EQ(coders.effort().current(), CodingEffort::full);
}

TEST_F(StuckTrackTest, tellsThatHardwareHasFailedSoThatSoftwareComesNext) {
  VideoTrackInput input(wanted, coders, state, sink);
  release.set_value();
  appendFor(input, 50);
  input.wait();
  ASSERT_EQ(failures.size(), 1U);
  EXPECT_EQ(failures[0].domain, "device");
  EXPECT_EQ(failures[0].code, 7);
  EXPECT_EQ(coders.make(wanted).encoderName, "libx264");
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
