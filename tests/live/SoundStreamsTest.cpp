#include "backends/pipewire/Devices.hpp"
#include "base/HostClock.hpp"

#include "live/SoundTesting.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using Arguments = std::vector<std::string>;
constexpr std::size_t second = 48000;
constexpr std::int64_t millisecond = 1'000'000;
const double toneLevel = 0.5 / std::sqrt(2.0);
// What a source that is kept from running for a moment may miss.
constexpr double levelTolerance = 0.05;
const Arguments microphone = {"microphone", "--name", "mic.a", "--description", "A", "--amplitude", "0.5"};
const Arguments silentMicrophone = {"microphone", "--name", "mic.a", "--description", "A"};
const Arguments player = {"player", "--name", "player", "--frequency", "1000", "--amplitude", "0.5"};

Arguments with(Arguments arguments, const Arguments& more) {
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

class SoundStreams : public ::testing::Test {
 protected:
  std::unique_ptr<DeviceStream> openMicrophone(const std::optional<std::string>& deviceID = std::nullopt) {
    return devices->openMicrophone(deviceID, receiver.handler(), receiver.endHandler());
  }
  std::unique_ptr<DeviceStream> openSystemAudio() {
    return devices->openSystemAudio(receiver.handler(), receiver.endHandler());
  }
  void expectTone(double level = toneLevel) {
    EXPECT_NEAR(receiver.level(0, second / 4), level, level * levelTolerance);
    EXPECT_NEAR(receiver.level(1, second / 4), level, level * levelTolerance);
  }
  // Without holes, and at the pace of the host's clock.
  static void expectWhole(SoundReceiver& heard, double least = 0.95) {
    EXPECT_GT(heard.coverage(), least);
    EXPECT_LT(heard.coverage(), 1.002);
  }
  void expectWellFormed() {
    EXPECT_TRUE(receiver.isFloatStereo());
    EXPECT_TRUE(receiver.isStrictlyIncreasing());
    EXPECT_FALSE(receiver.hasComeAfterEnd());
  }
  void expectNothingComes(std::chrono::milliseconds time = 300ms) {
    const auto count = receiver.frameCount();
    std::this_thread::sleep_for(time);
    EXPECT_EQ(receiver.frameCount(), count);
  }

  PrivateSoundServer server;
  ProcessEnvironment environment{server.environment()};
  SoundReceiver receiver;
  std::unique_ptr<CaptureDevices> devices = pipewire::makeCaptureDevices();
};

TEST_F(SoundStreams, BringAnyFormatAsFloatStereoAtItsTrueLevel) {
  for (const auto& form : std::vector<Arguments>{{},
                                                 {"--format", "s16", "--rate", "44100"},
                                                 {"--format", "s32", "--rate", "96000", "--channels", "6"},
                                                 {"--channels", "1"},
                                                 {"--channels", "1", "--format", "u8", "--rate", "8000"},
                                                 {"--channels", "4", "--format", "s16", "--rate", "16000"},
                                                 {"--channels", "8"}}) {
    SCOPED_TRACE(testing::PrintToString(form));
    const auto source = server.source(with(microphone, form));
    SoundReceiver heard;
    const auto stream = devices->openMicrophone("mic.a", heard.handler(), heard.endHandler());
    stream->start();
    ASSERT_TRUE(heard.hears(second / 2));
    for (const int channel : {0, 1}) {
      EXPECT_NEAR(heard.level(channel, second / 4), toneLevel, toneLevel * levelTolerance);
    }
    EXPECT_TRUE(heard.isFloatStereo());
    EXPECT_TRUE(heard.isStrictlyIncreasing());
    expectWhole(heard);
    stream->stop();
    EXPECT_EQ(heard.endCount(), 0);
  }
}

TEST_F(SoundStreams, AreHeardFromTheirStartOn) {
  const auto source = server.source(microphone);
  for (const bool isMicrophone : {true, false, true, false}) {
    SoundReceiver heard;
    const auto stream = isMicrophone
                            ? devices->openMicrophone(std::nullopt, heard.handler(), heard.endHandler())
                            : devices->openSystemAudio(heard.handler(), heard.endHandler());
    stream->start();
    const auto started = MonotonicHostClock().now().value();
    ASSERT_TRUE(heard.hears(4800));
    // Two buffers of the size that is asked for.
    EXPECT_LT(heard.buffers().front().time - started, 43 * millisecond);
  }
}

TEST_F(SoundStreams, TellWhenTheMicrophoneHeard) {
  const auto source = server.source(silentMicrophone);
  const auto stream = openMicrophone();
  stream->start();
  ASSERT_TRUE(receiver.hears(second / 2));
  const auto beep = source->beep();
  ASSERT_TRUE(receiver.hears(second / 4));
  const auto heard = receiver.firstLouderThan(0.2F);
  ASSERT_TRUE(heard);
  EXPECT_LT(std::abs(*heard - beep), 5 * millisecond);
}

TEST_F(SoundStreams, TellWhenTheComputerPlayed) {
  const auto stream = openSystemAudio();
  stream->start();
  ASSERT_TRUE(receiver.hears(second / 2));
  // The player begins with the stream already running, which changes the size of the buffers.
  const auto source = server.source({"player", "--name", "player"});
  ASSERT_TRUE(receiver.hears(second / 2));
  const auto beep = source->beep();
  ASSERT_TRUE(receiver.hears(second / 4));
  const auto heard = receiver.firstLouderThan(0.2F);
  ASSERT_TRUE(heard);
  EXPECT_LT(std::abs(*heard - beep), 5 * millisecond);
  expectWellFormed();
}

TEST_F(SoundStreams, KeepTheirPaceWhateverTheGraphRunsAt) {
  const auto source = server.source(player);
  const auto stream = openSystemAudio();
  stream->start();
  for (const auto& [key, value] : std::vector<std::pair<std::string, std::string>>{
           {"clock.force-quantum", "2048"}, {"clock.force-quantum", "128"}, {"clock.force-rate", "44100"}}) {
    SCOPED_TRACE(key + " " + value);
    server.run({"pw-metadata", "-n", "settings", "0", key, value});
    ASSERT_TRUE(receiver.hears(second));
    expectTone();
  }
  // The graph stands still while it changes.
  expectWhole(receiver, 0.85);
  expectWellFormed();
  source->command("amplitude 0");
  ASSERT_TRUE(receiver.hears(second));
  expectTone(0);
}

TEST_F(SoundStreams, BringWhatIsPlayedAndSilenceInBetween) {
  const auto stream = openSystemAudio();
  stream->start();
  // Nothing plays, and goes on playing nothing when the session manager has sent idle outputs to sleep.
  ASSERT_TRUE(receiver.hears(second * 7, 10s));
  EXPECT_EQ(receiver.level(0, second), 0);
  EXPECT_EQ(receiver.level(1, second), 0);
  expectWhole(receiver);
  {
    const auto source = server.source(player);
    ASSERT_TRUE(receiver.hears(second));
    expectTone();
  }
  ASSERT_TRUE(receiver.hears(second));
  expectTone(0);
  expectWellFormed();
  EXPECT_EQ(receiver.endCount(), 0);
}

TEST_F(SoundStreams, WakeAnOutputThatSleeps) {
  std::this_thread::sleep_for(6s);
  const auto stream = openSystemAudio();
  stream->start();
  ASSERT_TRUE(receiver.hears(second / 2));
  EXPECT_EQ(receiver.level(0, second / 2), 0);
}

TEST_F(SoundStreams, FollowTheDefaultOutput) {
  const auto module = server.addSink("other-speakers", "Other speakers");
  const auto stream = openSystemAudio();
  stream->start();
  ASSERT_TRUE(receiver.hears(second / 4));
  server.setDefaultNode("audio.sink", "other-speakers");
  const auto source = server.source(player);
  ASSERT_TRUE(receiver.hears(second));
  expectTone();
  // The output that is unplugged is followed by the one that takes its place.
  server.removeSink(module);
  ASSERT_TRUE(receiver.hears(second));
  expectTone();
  expectWellFormed();
  EXPECT_EQ(receiver.endCount(), 0);
}

TEST_F(SoundStreams, GoOnInSilenceWhileThereIsNoOutput) {
  const auto module = server.addSink("other-speakers", "Other speakers");
  server.run({"pw-cli", "destroy", "test-speakers"});
  const auto stream = openSystemAudio();
  stream->start();
  ASSERT_TRUE(receiver.hears(second / 4));
  server.removeSink(module);
  ASSERT_TRUE(receiver.hears(second));
  EXPECT_EQ(receiver.level(0, second), 0);
  server.addSink("third-speakers", "Third speakers");
  const auto source = server.source(player);
  ASSERT_TRUE(receiver.hears(second));
  expectTone();
  expectWellFormed();
  expectWhole(receiver);
  EXPECT_EQ(receiver.endCount(), 0);
}

TEST_F(SoundStreams, EndOnceWhenTheMicrophoneIsUnplugged) {
  const auto other = server.source({"microphone", "--name", "mic.b", "--description", "B"});
  const auto source = server.source(microphone);
  const auto stream = openMicrophone("mic.a");
  stream->start();
  ASSERT_TRUE(receiver.hears(second / 4));
  source->unplug();
  ASSERT_TRUE(receiver.hasEnded());
  expectNothingComes();
  EXPECT_EQ(receiver.endCount(), 1);
  stream->stop();
  EXPECT_EQ(receiver.endCount(), 1);
  expectWellFormed();
  EXPECT_EQ(errorOf([&] { openMicrophone("mic.a")->start(); }), CaptureDeviceError::unavailable);
}

TEST_F(SoundStreams, EndOnceEachWhenTheServerIsGone) {
  const auto source = server.source(microphone);
  SoundReceiver system;
  const auto hearing = openMicrophone();
  const auto playingBack = devices->openSystemAudio(system.handler(), system.endHandler());
  hearing->start();
  playingBack->start();
  ASSERT_TRUE(receiver.hears(4800));
  ASSERT_TRUE(system.hears(4800));
  server.killServer();
  ASSERT_TRUE(receiver.hasEnded());
  ASSERT_TRUE(system.hasEnded());
  expectNothingComes();
  EXPECT_EQ(receiver.endCount(), 1);
  EXPECT_EQ(system.endCount(), 1);
  EXPECT_LT(durationOf([&] {
              hearing->stop();
              playingBack->stop();
            }),
            500ms);
  EXPECT_EQ(receiver.endCount(), 1);
  EXPECT_FALSE(devices->isReachable());
}

TEST_F(SoundStreams, MayLoseTheServerWhileTheyStop) {
  for (const auto head : {0ms, 1ms, 5ms}) {
    SCOPED_TRACE(head.count());
    SoundReceiver heard;
    SoundReceiver played;
    {
      const auto source = server.source(microphone);
      const auto hearing = devices->openMicrophone(std::nullopt, heard.handler(), heard.endHandler());
      const auto playingBack = devices->openSystemAudio(played.handler(), played.endHandler());
      hearing->start();
      playingBack->start();
      ASSERT_TRUE(heard.hears(4800));
      std::thread death([&] { server.killServer(); });
      std::this_thread::sleep_for(head);
      EXPECT_LT(durationOf([&] {
                  hearing->stop();
                  playingBack->stop();
                }),
                500ms);
      death.join();
    }
    EXPECT_LE(heard.endCount(), 1);
    EXPECT_LE(played.endCount(), 1);
    EXPECT_FALSE(heard.hasComeAfterEnd());
    EXPECT_FALSE(played.hasComeAfterEnd());
    server.restartServer();
  }
}

TEST_F(SoundStreams, DoNotBeginWithoutWhatWasOpened) {
  const auto source = server.source(microphone);
  const auto hearing = openMicrophone();
  source->unplug();
  EXPECT_LT(
      durationOf([&] { EXPECT_EQ(errorOf([&] { hearing->start(); }), CaptureDeviceError::unavailable); }),
      4s);
  const auto playingBack = openSystemAudio();
  server.killServer();
  EXPECT_LT(
      durationOf([&] { EXPECT_EQ(errorOf([&] { playingBack->start(); }), CaptureDeviceError::unavailable); }),
      4s);
  EXPECT_EQ(receiver.endCount(), 0);
  EXPECT_EQ(receiver.frameCount(), 0U);
}

TEST_F(SoundStreams, RunBesideEachOther) {
  const auto source = server.source(with(microphone, {"--amplitude", "0.25"}));
  const auto playing = server.source(player);
  SoundReceiver system;
  const auto hearing = openMicrophone();
  const auto playingBack = devices->openSystemAudio(system.handler(), system.endHandler());
  hearing->start();
  playingBack->start();
  ASSERT_TRUE(receiver.hears(48000));
  EXPECT_NEAR(receiver.level(0, 12000), toneLevel / 2, 0.01);
  EXPECT_NEAR(system.level(0, 12000), toneLevel, 0.01);
  hearing->stop();
  ASSERT_TRUE(system.hears(12000));
  EXPECT_NEAR(system.level(1, 12000), toneLevel, 0.01);
  expectWhole(system);
  playingBack->stop();
}

TEST_F(SoundStreams, StopInEveryState) {
  const auto source = server.source(microphone);
  openMicrophone().reset();
  auto idle = openMicrophone();
  idle->stop();
  idle->stop();
  auto running = openMicrophone();
  running->start();
  ASSERT_TRUE(receiver.hears(4800));
  running->stop();
  expectNothingComes();
  running->stop();
  EXPECT_EQ(receiver.endCount(), 0);
  // As soon as it runs, time and again; and with its owner gone before its devices.
  for (int i = 0; i < 10; ++i) {
    const auto stream = i % 2 == 0 ? openMicrophone() : openSystemAudio();
    stream->start();
  }
  expectNothingComes();
  auto outliving = openMicrophone();
  devices.reset();
  outliving->start();
  ASSERT_TRUE(receiver.hears(4800));
  outliving.reset();
  EXPECT_EQ(receiver.endCount(), 0);
}

TEST_F(SoundStreams, DoNotBeginWithAServerThatDoesNotAnswer) {
  const auto source = server.source(microphone);
  auto stream = openMicrophone();
  server.stopAnswering();
  EXPECT_LT(
      durationOf([&] { EXPECT_EQ(errorOf([&] { stream->start(); }), CaptureDeviceError::unavailable); }), 4s);
  EXPECT_LT(durationOf([&] { stream.reset(); }), 500ms);
  EXPECT_EQ(receiver.endCount(), 0);
  EXPECT_EQ(receiver.frameCount(), 0U);
}

TEST_F(SoundStreams, StopWhileTheServerDoesNotAnswer) {
  const auto source = server.source(microphone);
  const auto stream = openMicrophone();
  stream->start();
  ASSERT_TRUE(receiver.hears(4800));
  server.stopAnswering();
  EXPECT_LT(durationOf([&] { stream->stop(); }), 500ms);
  expectNothingComes();
  EXPECT_EQ(receiver.endCount(), 0);
}

TEST_F(SoundStreams, LoseNothingWhenTheHandlerIsLate) {
  const auto source = server.source(microphone);
  int count = 0;
  const auto stream = devices->openMicrophone(
      std::nullopt,
      [&](const AudioSample& sample) {
        if (++count % 100 == 0) {
          std::this_thread::sleep_for(300ms);
        }
        receiver.handler()(sample);
      },
      receiver.endHandler());
  stream->start();
  ASSERT_TRUE(receiver.hears(second * 3));
  stream->stop();
  expectTone();
  expectWhole(receiver);
}

// Longer than anything waits for it.
TEST_F(SoundStreams, KeepTheirTimesBehindWhatWasLost) {
  const auto source = server.source(silentMicrophone);
  std::atomic<bool> isToBeLate = false;
  const auto stream = devices->openMicrophone(
      std::nullopt,
      [&](const AudioSample& sample) {
        if (isToBeLate.exchange(false)) {
          std::this_thread::sleep_for(3s);
        }
        receiver.handler()(sample);
      },
      receiver.endHandler());
  stream->start();
  ASSERT_TRUE(receiver.hears(second / 2));
  isToBeLate = true;
  // What the ring held, and a little of what came behind the hole.
  ASSERT_TRUE(receiver.hears(second * 3));
  EXPECT_LT(receiver.coverage(), 0.95);
  const auto beep = source->beep();
  ASSERT_TRUE(receiver.hears(second / 4));
  const auto heard = receiver.firstLouderThan(0.2F);
  ASSERT_TRUE(heard);
  EXPECT_LT(std::abs(*heard - beep), 5 * millisecond);
  expectWellFormed();
}

} // namespace
} // namespace tessarin
