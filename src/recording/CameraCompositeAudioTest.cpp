#include "support/CameraCompositeRig.hpp"

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using Lane = RecordingHealthMonitor::Lane;

// A recorder with the sound of both sources, whose tracks lie behind the screen's. At 48000 frames a second
// 480 frames last 10 ms.
class CameraCompositeAudioTest : public CameraCompositeTest {
 protected:
  void SetUp() override {
    useSystemAudio();
    useMicrophone();
  }
  // With its first picture, so that there is an epoch.
  void makeStarted() {
    makeAttached();
    deliver(1, 0s);
  }
  ScriptedMediaTrack& system() { return file().track(1); }
  ScriptedMediaTrack& voice() { return file().track(2); }
};

// ---- Times

TEST_F(CameraCompositeAudioTest, SoundIsMovedOntoTheTimeOfThePictures) {
  makeStarted();
  play(480, 0ms);
  play(480, 10'000'001ns);
  speak(960, 3ms);
  EXPECT_EQ(system().appends(), "480@0/1000000000 480@10000001/1000000000");
  EXPECT_EQ(voice().appends(), "960@3000000/1000000000");
  EXPECT_EQ(scheduler.timerCount(), 1u) << "of the heartbeat; sound that goes through needs none";
}

TEST_F(CameraCompositeAudioTest, SoundAheadOfTheFirstPictureIsDroppedButToldOf) {
  makeAttached();
  play(480, 0ms);
  speak(240, 0ms);
  deliver(1, 0s);
  EXPECT_EQ(system().appends(), "");
  EXPECT_EQ(voice().appends(), "");
  EXPECT_THAT(soundTold, ElementsAre(Pair(Lane::systemAudio, 480u), Pair(Lane::microphone, 240u)));
  EXPECT_EQ(failuresTold, 0);
}

TEST_F(CameraCompositeAudioTest, ASampleThatBeganBeforeTheEpochIsDroppedWhole) {
  makeStarted();
  play(480, -1ns);
  speak(480, -10ms);
  EXPECT_EQ(system().appends(), "");
  EXPECT_EQ(voice().appends(), "");
  play(480, 0ns);
  EXPECT_EQ(system().appends(), "480@0/1000000000");
  EXPECT_EQ(failuresTold, 0);
}

TEST_F(CameraCompositeAudioTest, ASampleWithoutANumericTimeIsDropped) {
  makeStarted();
  devices.systemAudios[0]->deliver(steadySample(0, 480, MediaTime()));
  scheduler.runPending();
  EXPECT_EQ(system().appends(), "");
  EXPECT_THAT(soundTold, ElementsAre(Pair(Lane::systemAudio, 480u)));
  EXPECT_EQ(failuresTold, 0);
}

TEST_F(CameraCompositeAudioTest, ASourceCountsAsAliveAlsoWithoutATrackOfItsOwn) {
  settings.microphone = false;
  makeStarted();
  speak(480, 10ms);
  EXPECT_EQ(file().trackCount, 2u);
  EXPECT_THAT(soundTold, ElementsAre(Pair(Lane::microphone, 480u)));
  EXPECT_EQ(failuresTold, 0);
}

TEST_F(CameraCompositeAudioTest, TimesOfALaneMustIncrease) {
  for (const auto second : {20ms, 19ms}) {
    media.files.clear();
    lines.clear();
    clock.set(epoch);
    makeStarted();
    play(480, 20ms);
    speak(480, second); // the other lane has its own times
    EXPECT_THAT(lines, IsEmpty());
    play(480, second);
    EXPECT_THAT(lines, ElementsAre(writerFailedLine("non-monotonic-audio", 1)));
    EXPECT_EQ(system().appends(), "480@20000000/1000000000");
    EXPECT_EQ(errorOf([&] { recorder->finish(); }), recordingFailed);
    destroy();
  }
}

TEST_F(CameraCompositeAudioTest, TimesThatDoNotIncreaseAreTheMicrophonesFailureOnItsLane) {
  makeStarted();
  speak(480, 20ms);
  speak(480, 20ms);
  EXPECT_THAT(lines, ElementsAre(writerFailedLine("non-monotonic-audio", 1)));
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), microphoneUnavailable);
}

TEST_F(CameraCompositeAudioTest, OverlapAndJitterOfIncreasingTimesAreForTheCoder) {
  makeStarted();
  play(480, 0ms);
  play(480, 9ms);
  play(480, 30ms);
  EXPECT_EQ(system().appends(), "480@0/1000000000 480@9000000/1000000000 480@30000000/1000000000");
  EXPECT_EQ(failuresTold, 0);
}

// ---- Waiting for a busy coder

TEST_F(CameraCompositeAudioTest, ABusyLaneWaitsWhileTheOtherGoesOn) {
  makeStarted();
  voice().setReady(false);
  speak(480, 0ms);
  play(480, 1ms);
  speak(480, 10ms);
  play(480, 11ms);
  EXPECT_EQ(voice().appends(), "");
  EXPECT_EQ(system().appends(), "480@1000000/1000000000 480@11000000/1000000000");
}

TEST_F(CameraCompositeAudioTest, ASampleNeverOvertakesOneThatWaits) {
  makeStarted();
  system().setReady(false);
  play(1, 0ms);
  play(2, 10ms);
  system().setReady(true);
  play(3, 20ms);
  EXPECT_EQ(system().appends(), "") << "it takes its place behind the others";
  advanceTo(5ms);
  EXPECT_EQ(system().appends(), "1@0/1000000000 2@10000000/1000000000 3@20000000/1000000000");
  play(4, 30ms);
  EXPECT_EQ(system().appended.size(), 4u) << "with nothing left waiting it goes through at once";
}

TEST_F(CameraCompositeAudioTest, WhatWaitsIsTriedEveryFiveMillisecondsUntilNothingDoes) {
  makeStarted();
  system().setReady(false);
  play(480, 0ms);
  play(480, 10ms);
  EXPECT_EQ(scheduler.timerCount(), 2u) << "the heartbeat's and one for the lane";
  system().becomeReadyUnnoticed();
  advanceTo(5ms - 1ns);
  EXPECT_EQ(system().appends(), "");
  advanceTo(5ms);
  EXPECT_EQ(system().appended.size(), 2u);
  EXPECT_EQ(scheduler.timerCount(), 1u);
}

TEST_F(CameraCompositeAudioTest, ALaneThatStaysBusyIsTriedAgain) {
  makeStarted();
  system().setReady(false);
  play(480, 0ms);
  advanceTo(10ms);
  EXPECT_EQ(scheduler.timerCount(), 2u);
  system().becomeReadyUnnoticed();
  advanceTo(15ms - 1ns);
  EXPECT_EQ(system().appends(), "");
  advanceTo(15ms);
  EXPECT_EQ(system().appended.size(), 1u);
}

// ---- Too much that waits

struct QueuedSound {
  bool isSystem;
  std::size_t lastFrames; // of a sample that begins 490 ms behind the first
  bool isTooMuch;
};

class CameraCompositeAudioQueueTest : public CameraCompositeAudioTest,
                                      public testing::WithParamInterface<QueuedSound> {};

TEST_P(CameraCompositeAudioQueueTest, MoreThanHalfASecondOfWaitingSoundEndsTheSegment) {
  makeStarted();
  const QueuedSound& sound = GetParam();
  const auto hear = [&](std::size_t frames, Time time) {
    sound.isSystem ? play(frames, time) : speak(frames, time);
  };
  (sound.isSystem ? system() : voice()).setReady(false);
  hear(480, 100ms);
  hear(sound.lastFrames, 590ms);
  if (!sound.isTooMuch) {
    EXPECT_THAT(lines, IsEmpty());
    hear(480, 600ms); // the next one over it
  }
  EXPECT_THAT(lines, ElementsAre(writerFailedLine("audio-backpressure", 1)));
  EXPECT_EQ(failuresTold, 1);
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), recordingFailed) << "the same on both lanes";
}

INSTANTIATE_TEST_SUITE_P(Queues, CameraCompositeAudioQueueTest,
                         testing::Values(QueuedSound{true, 480, false}, QueuedSound{true, 481, true},
                                         QueuedSound{false, 480, false}, QueuedSound{false, 481, true}));

TEST_F(CameraCompositeAudioTest, TooMuchThatWaitsIsARecordingsFailureAlsoWithACamera) {
  useCamera();
  makeStarted();
  file().track(3).setReady(false);
  speak(480, 0ms);
  speak(480, 491ms);
  EXPECT_THAT(lines, ElementsAre(writerFailedLine("audio-backpressure", 1)));
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), recordingFailed);
}

TEST_F(CameraCompositeAudioTest, SoundThatHasGoneThroughCountsForNothing) {
  makeStarted();
  system().setReady(false);
  play(480, 0ms);
  play(480, 480ms);
  system().setReady(true);
  advanceTo(5ms);
  system().setReady(false);
  play(480, 500ms);
  play(480, 990ms);
  EXPECT_THAT(lines, IsEmpty());
}

// ---- Refusals

TEST_F(CameraCompositeAudioTest, ARefusedSampleIsTheFailureOfItsLane) {
  makeStarted();
  voice().refusedAppend = 1;
  speak(480, 0ms);
  speak(480, 10ms);
  EXPECT_THAT(lines, ElementsAre(writerFailedLine("append-audio", 3)));
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), microphoneUnavailable);
}

TEST_F(CameraCompositeAudioTest, ARefusedSampleOfTheComputersSoundIsTheRecordingsFailure) {
  useCamera();
  makeStarted();
  file().track(2).refusedAppend = 0;
  play(480, 0ms);
  EXPECT_THAT(lines, ElementsAre(writerFailedLine("append-audio", 3)));
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), recordingFailed);
}

TEST_F(CameraCompositeAudioTest, ASampleThatWaitedMayBeRefusedToo) {
  for (const bool isSystem : {true, false}) {
    media.files.clear();
    lines.clear();
    clock.set(epoch);
    makeStarted();
    ScriptedMediaTrack& track = isSystem ? system() : voice();
    track.setReady(false);
    for (const auto time : {0ms, 10ms, 20ms})
      isSystem ? play(480, time) : speak(480, time);
    track.refusedAppend = 1;
    track.becomeReadyUnnoticed();
    advanceTo(5ms);
    EXPECT_THAT(lines, ElementsAre(writerFailedLine("drain-audio", 3)));
    EXPECT_EQ(track.appended.size(), 1u) << "the drain ends with the refusal";
    EXPECT_EQ(errorOf([&] { recorder->finish(); }), isSystem ? recordingFailed : microphoneUnavailable);
    destroy();
  }
}

// ---- Behind a failure

TEST_F(CameraCompositeAudioTest, BehindAFailureTheMicrophonesLaneGoesOnWithoutFailingAgain) {
  makeStarted();
  play(480, 20ms);
  play(480, 20ms);
  soundTold.clear();
  play(480, 30ms);
  speak(480, 30ms);
  speak(480, 30ms);
  EXPECT_EQ(system().appends(), "480@20000000/1000000000");
  EXPECT_EQ(voice().appends(), "480@30000000/1000000000");
  EXPECT_THAT(soundTold, ElementsAre(Pair(Lane::microphone, 480u), Pair(Lane::microphone, 480u)));
  EXPECT_EQ(failuresTold, 1);
  EXPECT_EQ(lines.size(), 1u);
}

TEST_F(CameraCompositeAudioTest, BehindAFailureWhatWaitsIsStillHandedOver) {
  makeStarted();
  system().setReady(false);
  play(480, 0ms);
  play(480, 0ms);
  ASSERT_EQ(failuresTold, 1);
  system().becomeReadyUnnoticed();
  advanceTo(5ms);
  EXPECT_EQ(system().appends(), "480@0/1000000000");
  advanceTo(1s);
  EXPECT_EQ(scheduler.timerCount(), 0u);
}

// ---- The end

TEST_F(CameraCompositeAudioTest, FinishingHandsOverWhatWaits) {
  makeStarted();
  system().setReady(false);
  voice().setReady(false);
  play(480, 0ms);
  speak(480, 0ms);
  recorder->detach(*stream);
  system().becomeReadyUnnoticed();
  voice().becomeReadyUnnoticed();
  recorder->finish();
  EXPECT_EQ(system().appended.size(), 1u);
  EXPECT_EQ(voice().appended.size(), 1u);
  EXPECT_EQ(scheduler.timerCount(), 0u);
}

TEST_F(CameraCompositeAudioTest, FinishingFailsWhileSoundStillWaits) {
  for (const bool isSystem : {true, false}) {
    media.files.clear();
    lines.clear();
    clock.set(epoch);
    makeStarted();
    (isSystem ? system() : voice()).setReady(false);
    isSystem ? play(480, 0ms) : speak(480, 0ms);
    recorder->detach(*stream);
    EXPECT_EQ(errorOf([&] { recorder->finish(); }), recordingFailed);
    EXPECT_THAT(lines, ElementsAre(writerFailedLine("finish-audio-backpressure", 1)));
    EXPECT_THAT(file().calls, ElementsAre("startWriting", "startSession 0")) << "the file stays as it is";
    EXPECT_EQ(scheduler.timerCount(), 0u);
    destroy();
  }
}

TEST_F(CameraCompositeAudioTest, SoundThatStillWaitsIsTheCamerasFailureWhenThereIsOne) {
  useCamera();
  makeStarted();
  file().track(2).setReady(false);
  play(480, 0ms);
  recorder->detach(*stream);
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), cameraUnavailable);
}

TEST_F(CameraCompositeAudioTest, SoundThatStillWaitsIsNotTheCauseOfAnEarlierFailure) {
  makeStarted();
  system().setReady(false);
  play(480, 0ms);
  speak(480, 20ms);
  speak(480, 20ms);
  recorder->detach(*stream);
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), microphoneUnavailable);
  EXPECT_THAT(lines, ElementsAre(writerFailedLine("non-monotonic-audio", 1)));
}

TEST_F(CameraCompositeAudioTest, CancellingEndsTheTries) {
  makeStarted();
  system().setReady(false);
  play(480, 0ms);
  recorder->detach(*stream);
  recorder->cancel();
  EXPECT_EQ(scheduler.timerCount(), 0u);
  system().becomeReadyUnnoticed();
  advanceTo(1s);
  EXPECT_EQ(system().appends(), "");
  EXPECT_EQ(failuresTold, 0);
}

} // namespace
} // namespace tessarin
