// What a microphone does with its samples; its life is told in CaptureSourceTest.

#include "recording/MicrophoneCaptureSource.hpp"
#include "support/ManualClock.hpp"
#include "support/ManualQueue.hpp"
#include "support/ScriptedDevices.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using Times = std::vector<MediaTime>;

class MicrophoneCaptureSourceTest : public ::testing::Test {
 protected:
  MicrophoneCaptureSourceTest() { source.start(); }

  ScriptedDevice& device() { return *devices.microphones.at(0); }
  void deliver(std::int64_t milliseconds) {
    device().deliver(steadySample(0.5F, 48, MediaTime::milliseconds(milliseconds)));
  }
  MicrophoneCaptureSource::SampleHandler handlerFor(Times& times) {
    return [this, &times](const AudioSample& sample) {
      EXPECT_TRUE(source.queue().isCurrent());
      times.push_back(sample.presentationTime);
    };
  }
  void clear() {
    source.queue().sync([this] { source.clearSampleHandler(); });
  }

  ManualClock clock;
  ManualScheduler scheduler{clock};
  ScriptedDevices devices;
  ScriptedCaptureAuthorization authorization;
  Times heard;
  MicrophoneCaptureSource source{
      devices, authorization, std::nullopt, scheduler.queueFactory(), [](std::chrono::milliseconds) {},
      [] {}};
};

TEST_F(MicrophoneCaptureSourceTest, HandsSamplesToItsHandlerOnItsQueueInOrder) {
  EXPECT_TRUE(source.setSampleHandler(handlerFor(heard)));
  deliver(10);
  deliver(20);
  EXPECT_EQ(heard, Times{}) << "not on the device's thread";
  scheduler.runPending();
  EXPECT_EQ(heard, (Times{MediaTime::milliseconds(10), MediaTime::milliseconds(20)}));
}

TEST_F(MicrophoneCaptureSourceTest, KeepsSamplesAliveUntilTheyAreHeard) {
  std::vector<float> firsts;
  source.setSampleHandler([&](const AudioSample& sample) {
    firsts.push_back(*reinterpret_cast<const float*>(sample.pcm.data.data()));
  });
  deliver(10); // the sample of the delivery is gone when the queue gets to it
  scheduler.runPending();
  EXPECT_EQ(firsts, std::vector{0.5F});
}

TEST_F(MicrophoneCaptureSourceTest, LosesSamplesBetweenTwoHandlersWithoutAnError) {
  deliver(10);
  scheduler.runPending();
  source.waitForFirstSample(); // it has come all the same
  source.setSampleHandler(handlerFor(heard));
  deliver(20);
  clear();
  deliver(30);
  scheduler.runPending();
  Times second;
  EXPECT_TRUE(source.setSampleHandler(handlerFor(second)));
  deliver(40);
  scheduler.runPending();
  EXPECT_EQ(heard, Times{MediaTime::milliseconds(20)}) << "what came before the clearing is still heard";
  EXPECT_EQ(second, Times{MediaTime::milliseconds(40)});
}

TEST_F(MicrophoneCaptureSourceTest, DeliversNothingBehindItsEnd) {
  for (const bool isUnplugged : {true, false}) {
    MicrophoneCaptureSource own(
        devices, authorization, std::nullopt, scheduler.queueFactory(), [](std::chrono::milliseconds) {},
        [] {});
    own.start();
    int count = 0;
    own.setSampleHandler([&](const AudioSample&) { ++count; });
    devices.microphones.back()->deliver(steadySample(0, 48, MediaTime::zero()));
    if (isUnplugged)
      devices.microphones.back()->end();
    else
      own.stop();
    scheduler.runPending();
    EXPECT_EQ(count, 0) << "not even what waited on the queue";
    EXPECT_FALSE(own.setSampleHandler([&](const AudioSample&) { ++count; }));
  }
}

} // namespace
} // namespace tessarin
