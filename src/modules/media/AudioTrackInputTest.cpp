#include "modules/media/AudioTrackInput.hpp"

#include <gtest/gtest.h>

#include <future>
#include <vector>

namespace tessarin::media {
namespace {

class AudioTrackInputTest : public testing::Test {
 protected:
  AudioTrackInputTest() { state.change(MediaWriterStatus::unknown, MediaWriterStatus::writing); }
  ~AudioTrackInputTest() override { release(); }

  AudioSample sample(std::size_t frames, MediaTime time = MediaTime::zero()) {
    auto sound = std::make_shared<std::vector<float>>(frames * 2, 0.1F);
    return {{std::as_bytes(std::span(*sound)), PcmFormat::float32, 2, frames}, 48000, time, sound};
  }
  void release() {
    if (!isReleased)
      gate.set_value();
    isReleased = true;
  }

  WriterState state;
  std::promise<void> gate; // the track's thread waits for it
  bool isReleased = false;
  std::shared_future<void> opened = gate.get_future().share();
  std::size_t packets = 0; // of the track's thread
  int failures = 0;
  AudioTrackInput input{{},
                        state,
                        {[this](CodedSound sound) {
                           opened.wait();
                           packets += sound.sizes.size();
                         },
                         [this](const auto&) { ++failures; }}};
};

TEST_F(AudioTrackInputTest, isNotReadyWhileTenSecondsWait) {
  // With the first one or two the coder is busy, so that the others wait.
  std::int64_t appended = 0;
  while (input.isReadyForMoreMediaData())
    ASSERT_TRUE(input.append(sample(4800, MediaTime(appended++, 10))));
  EXPECT_GE(appended, 100);
  EXPECT_LE(appended, 102);
  EXPECT_FALSE(input.append(sample(1)));
  int calls = 0;
  std::promise<void> ready;
  const auto observation = input.observeReadiness([&] {
    if (++calls > 1 && input.isReadyForMoreMediaData())
      ready.set_value();
  });
  EXPECT_EQ(calls, 1);
  release();
  ready.get_future().wait();
  input.wait();
  EXPECT_EQ(failures, 0);
}

TEST_F(AudioTrackInputTest, letsHalfASecondWaitOfASourceThatCanWait) {
  AudioTrackInput held({.expectsMediaDataInRealTime = false}, state,
                       {[this](const CodedSound&) { opened.wait(); }, [](const auto&) {}});
  std::int64_t appended = 0;
  while (held.isReadyForMoreMediaData())
    ASSERT_TRUE(held.append(sample(4800, MediaTime(appended++, 10))));
  EXPECT_GE(appended, 5);
  EXPECT_LE(appended, 7);
  release();
}

TEST_F(AudioTrackInputTest, isNotReadyWhileTheDiskIsBehind) {
  ASSERT_TRUE(input.isReadyForMoreMediaData());
  state.addUnwritten(WriterState::mostUnwritten + 1);
  EXPECT_FALSE(input.isReadyForMoreMediaData());
  EXPECT_TRUE(input.append(sample(480))) << "it was ready for it";
  state.removeUnwritten(1);
  EXPECT_TRUE(input.isReadyForMoreMediaData());
}

TEST_F(AudioTrackInputTest, takesNothingOnceFinishedOrFailed) {
  ASSERT_TRUE(input.append(sample(480)));
  state.fail({"POSIX", 5, std::nullopt, 0});
  EXPECT_FALSE(input.isReadyForMoreMediaData());
  EXPECT_FALSE(input.append(sample(480, MediaTime(1, 100))));

  WriterState writing;
  writing.change(MediaWriterStatus::unknown, MediaWriterStatus::writing);
  AudioTrackInput other({}, writing, {[](CodedSound) {}, [](const auto&) {}});
  other.markAsFinished();
  EXPECT_FALSE(other.isReadyForMoreMediaData());
  EXPECT_FALSE(other.append(sample(480)));
}

TEST_F(AudioTrackInputTest, refusesSamplesOfAnotherForm) {
  AudioSample odd = sample(480);
  odd.pcm.format = PcmFormat::int16;
  EXPECT_FALSE(input.append(odd));
  odd = sample(480);
  odd.pcm.channelCount = 1;
  EXPECT_FALSE(input.append(odd));
  odd = sample(480);
  odd.sampleRate = 44100;
  EXPECT_FALSE(input.append(odd));
  odd = sample(480);
  odd.presentationTime = MediaTime();
  EXPECT_FALSE(input.append(odd));
  for (const std::int64_t sign : {-1, 1}) {
    odd.presentationTime = MediaTime(sign * ((std::int64_t{1} << 50) + 1), 48000);
    EXPECT_FALSE(input.append(odd)) << "beyond all times";
  }
  odd = sample(480);
  odd.pcm.frameCount = 481;
  EXPECT_FALSE(input.append(odd)) << "more than it holds";
  EXPECT_TRUE(input.append(sample(480)));
  EXPECT_EQ(failures, 0);
}

TEST_F(AudioTrackInputTest, endsWhereItIsTold) {
  release();
  ASSERT_TRUE(input.append(sample(480)));
  std::promise<void> finished;
  input.finish(std::int64_t{10} * 48000, [&] { finished.set_value(); });
  finished.get_future().wait();
  input.wait();
  EXPECT_EQ(packets, 480000U / 1024 + 1 + 1);
}

TEST_F(AudioTrackInputTest, isSilentWhereSoundIsGivenUp) {
  release();
  // The packet of the last whole block comes with the block behind it.
  input.giveUpBefore(480000);
  input.giveUpBefore(-96000);
  input.wait();
  EXPECT_EQ(packets, 480000U / 1024 - 1);
  ASSERT_TRUE(input.append(sample(24000))) << "too late, and left out";
  input.wait();
  EXPECT_EQ(packets, 480000U / 1024 - 1);
  ASSERT_TRUE(input.append(sample(24000, MediaTime(10, 1))));
  input.wait();
  EXPECT_EQ(packets, 504000U / 1024 - 1);
}

TEST_F(AudioTrackInputTest, leavesAHoleOfDaysWhenItIsStopped) {
  release();
  ASSERT_TRUE(input.append(sample(480, MediaTime(std::int64_t{1000} * 24 * 3600, 1))));
  input.stop();
  EXPECT_LT(packets, std::size_t{1000} * 24 * 3600 * 48000 / 1024);
}

} // namespace
} // namespace tessarin::media
