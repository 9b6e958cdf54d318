#include "recording/RecordingStream.hpp"

#include "support/ManualQueue.hpp"
#include "support/ScriptedDevices.hpp"
#include "support/ScriptedScreenStream.hpp"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace tessarin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Listener final : public AudioSampleOutput, public ScreenSampleOutput {
 public:
  std::vector<std::size_t> frames; // of each sample
  int pictures = 0;
  void audioSample(const AudioSample& sample) override { frames.push_back(sample.pcm.frameCount); }
  void screenSample(const ScreenSample&) override { ++pictures; }
};

class Delegate final : public ScreenStreamDelegate {
 public:
  int told = 0;
  void streamDidStopWithError() override { ++told; }
};

class RecordingStreamTest : public testing::Test {
 protected:
  void make(bool capturesAudio = true) {
    configuration.capturesAudio = capturesAudio;
    stream = std::make_unique<RecordingStream>(streams, devices, filter, configuration, delegate,
                                               [this] { ++endsTold; });
  }
  void makeCapturing() {
    make();
    stream->addAudioOutput(listener, *queue);
    stream->startCapture();
  }
  void play(std::size_t frames) { sound().deliver(steadySample(0, frames, MediaTime::zero())); }
  ScriptedDevice& sound() { return *devices.systemAudios.at(0); }
  ScriptedScreenStream& screen() { return *streams.streams.at(0); }

  ManualClock clock;
  ManualScheduler scheduler{clock};
  std::unique_ptr<ManualQueue> queue = scheduler.makeQueue("listener");
  ScriptedScreenStreamFactory streams{clock};
  ScriptedDevices devices;
  ContentFilter filter{.displayID = 7, .excludedApplications = {}};
  StreamConfiguration configuration{
      .sourceRect = {}, .width = 640, .height = 480, .minimumFrameInterval = {}};
  std::shared_ptr<Delegate> delegate = std::make_shared<Delegate>();
  std::shared_ptr<Listener> listener = std::make_shared<Listener>();
  int endsTold = 0;
  std::unique_ptr<RecordingStream> stream;
};

// ---- Making

TEST_F(RecordingStreamTest, MakesTheScreensStreamAndTouchesNoDevice) {
  make();
  EXPECT_EQ(screen().filter, filter);
  EXPECT_EQ(screen().configuration, configuration);
  EXPECT_THAT(screen().calls, IsEmpty());
  EXPECT_THAT(devices.calls(), IsEmpty());
  EXPECT_TRUE(stream->capturesAudio());
}

TEST_F(RecordingStreamTest, PassesOnThatThereIsNoScreensStream) {
  streams.refuses = true;
  EXPECT_THROW(make(), CaptureFailure);
}

TEST_F(RecordingStreamTest, WithoutSoundItIsTheScreensStreamAlone) {
  make(false);
  EXPECT_FALSE(stream->capturesAudio());
  EXPECT_THROW(stream->addAudioOutput(listener, *queue), CaptureFailure);
  stream->removeAudioOutput(listener.get());
  stream->startCapture();
  stream->stopCapture();
  EXPECT_THAT(devices.calls(), IsEmpty());
  EXPECT_THAT(screen().calls, ElementsAre("startCapture", "stopCapture"));
}

// ---- The screen

TEST_F(RecordingStreamTest, PassesPicturesAndTheScreensEndOn) {
  make();
  stream->addScreenOutput(listener, *queue);
  screen().deliver(1, clock.now());
  stream->removeScreenOutput(listener.get());
  screen().deliver(2, clock.now());
  EXPECT_EQ(listener->pictures, 1);
  screen().end();
  EXPECT_EQ(delegate->told, 1);
  EXPECT_EQ(endsTold, 0);
}

// ---- Starting

TEST_F(RecordingStreamTest, TheSoundRunsBeforeTheScreen) {
  streams.prepare = [this](ScriptedScreenStream& script) {
    script.presentPicture = 1; // delivered with the start
  };
  bool isSoundThere = false;
  devices.prepare = [&](ScriptedDevice& device, ScriptedDevices::Source source) {
    EXPECT_EQ(source, ScriptedDevices::Source::systemAudio);
    device.onStart = [&] { isSoundThere = screen().calls.back() == "addScreenOutput"; };
  };
  make();
  stream->addScreenOutput(listener, *queue);
  stream->startCapture();
  EXPECT_TRUE(isSoundThere);
  EXPECT_EQ(listener->pictures, 1);
  EXPECT_TRUE(sound().isRunning());
}

TEST_F(RecordingStreamTest, SoundThatCannotBeOpenedFailsTheStartWithNothingRunning) {
  for (const auto error : {CaptureDeviceError::unavailable, CaptureDeviceError::denied}) {
    devices.refusesSystemAudio = error;
    make();
    EXPECT_THROW(stream->startCapture(), CaptureFailure);
    EXPECT_THAT(screen().calls, IsEmpty());
    EXPECT_THAT(devices.systemAudios, IsEmpty());
  }
}

TEST_F(RecordingStreamTest, WithoutAServerOfSoundTheStartFails) {
  devices.reachable = false;
  make();
  EXPECT_THROW(stream->startCapture(), CaptureFailure);
  EXPECT_THAT(screen().calls, IsEmpty());
}

TEST_F(RecordingStreamTest, SoundThatDoesNotBeginToRunFailsTheStartAndIsLetGo) {
  devices.prepare = [](ScriptedDevice& device, ScriptedDevices::Source) {
    device.refusesToStart = CaptureDeviceError::unavailable;
  };
  make();
  EXPECT_THROW(stream->startCapture(), CaptureFailure);
  EXPECT_THAT(screen().calls, IsEmpty());
  EXPECT_TRUE(sound().isDestroyed());
  EXPECT_EQ(endsTold, 0);
}

TEST_F(RecordingStreamTest, AScreenThatDoesNotStartLeavesNoSoundRunning) {
  streams.prepare = [](ScriptedScreenStream& script) { script.refusesToStart = true; };
  make();
  EXPECT_THROW(stream->startCapture(), CaptureFailure);
  EXPECT_EQ(sound().stopCount(), 1u);
  EXPECT_TRUE(sound().isDestroyed());
  EXPECT_EQ(endsTold, 0);
}

// ---- Delivering sound

TEST_F(RecordingStreamTest, SoundGoesToTheOutputOnItsQueue) {
  makeCapturing();
  play(480);
  EXPECT_THAT(listener->frames, IsEmpty());
  EXPECT_EQ(queue->pendingCount(), 1u);
  play(240);
  scheduler.runPending();
  EXPECT_THAT(listener->frames, ElementsAre(480u, 240u));
}

TEST_F(RecordingStreamTest, SoundWithoutAnOutputIsThrownAway) {
  make();
  stream->startCapture();
  play(480);
  stream->addAudioOutput(listener, *queue);
  scheduler.runPending();
  EXPECT_THAT(listener->frames, IsEmpty());
  play(240);
  scheduler.runPending();
  EXPECT_THAT(listener->frames, ElementsAre(240u));
}

TEST_F(RecordingStreamTest, NoSampleGoesToTheQueueOnceTheOutputIsRemoved) {
  makeCapturing();
  play(480);
  stream->removeAudioOutput(listener.get());
  play(240);
  EXPECT_EQ(queue->pendingCount(), 1u) << "what was handed over before is for the owner to wait for";
  scheduler.runPending();
  EXPECT_THAT(listener->frames, ElementsAre(480u));
}

TEST_F(RecordingStreamTest, OnlyTheOutputThatIsThereIsRemoved) {
  makeCapturing();
  const Listener other;
  stream->removeAudioOutput(&other);
  stream->removeAudioOutput(nullptr);
  play(480);
  scheduler.runPending();
  EXPECT_THAT(listener->frames, ElementsAre(480u));
}

TEST_F(RecordingStreamTest, TakesOneOutputAtATime) {
  makeCapturing();
  const auto other = std::make_shared<Listener>();
  EXPECT_THROW(stream->addAudioOutput(other, *queue), CaptureFailure);
  stream->removeAudioOutput(listener.get());
  stream->addAudioOutput(other, *queue);
  play(480);
  scheduler.runPending();
  EXPECT_THAT(listener->frames, IsEmpty());
  EXPECT_THAT(other->frames, ElementsAre(480u));
}

TEST_F(RecordingStreamTest, HoldsItsOutputWeakly) {
  makeCapturing();
  play(480);
  const std::weak_ptr<Listener> weak = listener;
  listener.reset();
  EXPECT_TRUE(weak.expired());
  scheduler.runPending();
  const auto other = std::make_shared<Listener>();
  stream->addAudioOutput(other, *queue); // in the place of the one that has gone
  play(480);
  scheduler.runPending();
  EXPECT_THAT(other->frames, ElementsAre(480u));
}

TEST_F(RecordingStreamTest, AnOutputThatHasGoneIsNotAdded) {
  make();
  EXPECT_THROW(stream->addAudioOutput(std::weak_ptr<AudioSampleOutput>(), *queue), CaptureFailure);
}

// ---- The end

TEST_F(RecordingStreamTest, AnEndOfTheSoundIsToldOnce) {
  makeCapturing();
  sound().end();
  sound().end();
  EXPECT_EQ(endsTold, 1);
  EXPECT_EQ(delegate->told, 0);
  stream->stopCapture();
  EXPECT_EQ(endsTold, 1);
}

TEST_F(RecordingStreamTest, NoEndOfTheSoundIsToldBehindAStop) {
  makeCapturing();
  int endsToldBehindTheBeginOfTheStop = -1;
  sound().onStop = [&] {
    sound().end(); // just before it is stopped
    endsToldBehindTheBeginOfTheStop = endsTold;
  };
  stream->stopCapture();
  EXPECT_EQ(endsToldBehindTheBeginOfTheStop, 0);
  EXPECT_EQ(sound().stopCount(), 1u);
  EXPECT_TRUE(sound().isDestroyed());
  play(480);
  EXPECT_EQ(queue->pendingCount(), 0u);
}

TEST_F(RecordingStreamTest, TheSoundEndsAlsoWhenTheScreensStopFails) {
  makeCapturing();
  screen().refusesToStop = true;
  EXPECT_THROW(stream->stopCapture(), CaptureFailure);
  EXPECT_TRUE(sound().isDestroyed());
}

TEST_F(RecordingStreamTest, DestructionStopsTheSound) {
  makeCapturing();
  const std::shared_ptr<ScriptedDevice> device = devices.systemAudios.at(0);
  stream.reset();
  EXPECT_EQ(device->stopCount(), 1u);
  EXPECT_EQ(endsTold, 0);
}

} // namespace
} // namespace tessarin
