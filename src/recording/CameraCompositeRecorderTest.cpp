#include "support/CameraCompositeRig.hpp"

#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class CameraCompositeRecorderTest : public CameraCompositeTest {};

// ---- Attachment

TEST_F(CameraCompositeRecorderTest, PassesOnThatTheStreamTakesNoOutput) {
  make();
  streams.streams[0]->refusesOutputs = true;
  EXPECT_THROW(recorder->attach(*stream), CaptureFailure);
}

TEST_F(CameraCompositeRecorderTest, WhatWasAttachedBeforeAFailureIsForTheDetachment) {
  makeStream(); // without sound
  useSystemAudio();
  useMicrophone();
  make();
  EXPECT_THROW(recorder->attach(*stream), CaptureFailure);
  EXPECT_EQ(streams.streams[0]->outputCount(), 1u);
  recorder->detach(*stream);
  EXPECT_THAT(streams.streams[0]->calls, ElementsAre("addScreenOutput", "removeScreenOutput"));
  speak(480, 0s);
  EXPECT_THAT(soundTold, IsEmpty()) << "the microphone comes last";
}

TEST_F(CameraCompositeRecorderTest, AMicrophoneThatHasEndedIsNotAttached) {
  useMicrophone();
  microphone->stop();
  makeAttached();
  deliver(1, 0s);
  speak(480, 0s);
  EXPECT_THAT(soundTold, IsEmpty());
  EXPECT_EQ(failuresTold, 0) << "its end is told elsewhere";
}

TEST_F(CameraCompositeRecorderTest, SoundOnItsWayHoldsTheSegmentWeakly) {
  useSystemAudio();
  makeAttached();
  deliver(1, 0s);
  devices.systemAudios[0]->deliver(steadySample(0, 480, hostTime(0s)));
  EXPECT_EQ(scheduler.pendingCount(), 1u);
  recorder.reset();
  EXPECT_TRUE(file().isDestroyed);
  EXPECT_THAT(soundTold, IsEmpty());
}

// ---- The first frame

TEST_F(CameraCompositeRecorderTest, TheFirstPictureBeginsTheFileAndFixesTheEpoch) {
  makeAttached();
  EXPECT_EQ(recorder->epochHostTimeNanoseconds(), std::nullopt);
  deliver(1, 0s);
  EXPECT_THAT(file().calls, ElementsAre("startWriting", "startSession 0"));
  EXPECT_EQ(file().appends(), "1@0/10");
  EXPECT_EQ(recorder->epochHostTimeNanoseconds(), 10'000'000'000u);
  EXPECT_EQ(framesTold, 1);
  recorder->waitUntilStarted(5s); // returns at once
}

TEST_F(CameraCompositeRecorderTest, ASampleWithoutAPictureChangesNothing) {
  makeAttached();
  streams.streams[0]->deliver({std::nullopt, MediaTime()});
  EXPECT_THAT(file().calls, IsEmpty());
  deliver(1, 0s);
  streams.streams[0]->deliver({std::nullopt, clock.now()});
  EXPECT_EQ(file().appends(), "1@0/10");
  EXPECT_EQ(failuresTold, 0);
}

TEST_F(CameraCompositeRecorderTest, NoPictureComesInBeforeAttachmentOrBehindDetachment) {
  make();
  deliver(1, 0s);
  recorder->attach(*stream);
  recorder->detach(*stream);
  deliver(2, 0s);
  EXPECT_EQ(file().appends(), "");
}

// Runs its tasks, and never comes to its timers.
class BusyQueue final : public SerialQueue {
 public:
  explicit BusyQueue(std::unique_ptr<SerialQueue> queue) : queue_(std::move(queue)) {}
  void async(Task task) override { queue_->async(std::move(task)); }
  void sync(const Task& task) override { queue_->sync(task); }
  bool isCurrent() const override { return queue_->isCurrent(); }
  std::unique_ptr<QueueTimer> after(Duration, Task) override { return nullptr; }
  std::unique_ptr<QueueTimer> every(Duration, Duration, Task) override { return nullptr; }

 private:
  const std::unique_ptr<SerialQueue> queue_;
};

TEST_F(CameraCompositeRecorderTest, ABusyWriterDoesNotHoldUpTheTimeoutOfItsStart) {
  makeQueue = [this](const std::string& label) -> std::unique_ptr<SerialQueue> {
    auto queue = scheduler.makeQueue(label);
    if (label == "com.tessarin.recording.camera-compositor")
      return std::make_unique<BusyQueue>(std::move(queue));
    return queue;
  };
  makeAttached();
  std::optional<NativeServiceError> outcome;
  std::thread waiting([&] { outcome = errorOf([&] { recorder->waitUntilStarted(5s); }); });
  while (scheduler.timerCount() == 0)
    std::this_thread::yield();
  scheduler.advance(5s);
  waiting.join();
  EXPECT_EQ(outcome,
            (NativeServiceError{
                NativeErrorCode::recordingScreenStalled,
                "Screen frames stopped being written. Recording sources were retained for recovery."}));
}

// ---- Duration

TEST_F(CameraCompositeRecorderTest, TheRecordedDurationIsTheLongerOfTheWrittenAndTheElapsed) {
  makeAttached();
  EXPECT_EQ(recorder->recordedDuration(), MediaTime::zero());
  deliver(1, 0ms);
  clock.set(epoch + 130ms);
  EXPECT_EQ(recorder->recordedDuration(), MediaTime::milliseconds(130));
  // A picture may lie ahead of the clock.
  streams.streams[0]->deliver(2, MediaTime::nanoseconds(10'300'000'000));
  EXPECT_EQ(recorder->recordedDuration(), MediaTime::milliseconds(300));
  recorder->detach(*stream);
  clock.set(epoch + 700ms);
  recorder->finish();
  clock.set(epoch + 9s);
  EXPECT_EQ(recorder->recordedDuration(), MediaTime::milliseconds(700)) << "the clock stops at the finish";
}

TEST_F(CameraCompositeRecorderTest, AClockBeforeTheEpochCountsAsNothingElapsed) {
  makeAttached();
  streams.streams[0]->deliver(1, MediaTime::nanoseconds(20'000'000'000));
  EXPECT_EQ(recorder->recordedDuration(), MediaTime::zero());
}

// ---- Detaching

TEST_F(CameraCompositeRecorderTest, DetachingTimesItsStepsInWholeMilliseconds) {
  useSystemAudio();
  useMicrophone();
  SerialQueue* captureQueue = nullptr;
  makeQueue = [&](const std::string& label) {
    auto queue = scheduler.makeQueue(label);
    if (label == "com.tessarin.recording.system-audio-capture")
      captureQueue = queue.get();
    return queue;
  };
  makeAttached();
  deliver(1, 0s);
  file().setReady(false);
  deliver(2, 100ms);
  scheduler.runPending();
  file().setReady(true); // a drain waits in the writer's queue
  microphone->queue().async([this] { clock.advance(5'999'999ns); });
  streams.streams[0]->onRemoveOutput = [this] { clock.advance(7ms); };
  captureQueue->async([this] { clock.advance(2ms); });
  whenFrameIsTold = [this] { clock.advance(3ms); };
  const RecordingDetachTiming timing = recorder->detach(*stream);
  EXPECT_EQ(timing.microphoneStopMs, 5u);
  EXPECT_EQ(timing.outputRemovalMs, 7u);
  EXPECT_EQ(timing.audioDrainMs, 2u);
  EXPECT_EQ(timing.writerQueueDrainMs, 3u);
  EXPECT_EQ(file().appends(), "1@0/10 2@1/10") << "what was handed to the queue has run";
  EXPECT_EQ(streams.streams[0]->outputCount(), 0u);
}

TEST_F(CameraCompositeRecorderTest, DetachingLeavesNoSampleOnItsWay) {
  useSystemAudio();
  useMicrophone();
  makeAttached();
  deliver(1, 0s);
  devices.systemAudios[0]->deliver(steadySample(0, 480, hostTime(0s)));
  devices.microphones[0]->deliver(steadySample(0, 240, hostTime(0s)));
  recorder->detach(*stream);
  EXPECT_EQ(file().track(1).appends(), "480@0/1000000000");
  EXPECT_EQ(file().track(2).appends(), "240@0/1000000000");
  EXPECT_EQ(scheduler.pendingCount(), 0u);

  play(480, 10ms);
  speak(240, 10ms);
  deliver(2, 100ms);
  EXPECT_EQ(file().track(1).appended.size(), 1u);
  EXPECT_EQ(file().track(2).appended.size(), 1u);
  EXPECT_EQ(file().appended.size(), 1u);
  EXPECT_EQ(soundTold.size(), 2u);
}

TEST_F(CameraCompositeRecorderTest, DetachingAgainRemovesNothing) {
  makeAttached();
  recorder->detach(*stream);
  recorder->detach(*stream);
  EXPECT_THAT(streams.streams[0]->calls, ElementsAre("addScreenOutput", "removeScreenOutput"));
}

TEST_F(CameraCompositeRecorderTest, AnotherSegmentMayBeAttachedBehindADetachment) {
  useSystemAudio();
  useMicrophone();
  makeAttached();
  recorder->detach(*stream);
  makeAttached();
  clock.set(epoch);
  streams.streams[0]->deliver(1, clock.now());
  play(480, 0s);
  speak(480, 0s);
  EXPECT_EQ(media.files.at(0)->appends(), "");
  EXPECT_EQ(media.files.at(1)->track(1).appended.size(), 1u);
  EXPECT_EQ(media.files.at(1)->track(2).appended.size(), 1u);
}

TEST_F(CameraCompositeRecorderTest, DetachingAgainTakesNothingFromTheNextSegment) {
  useSystemAudio();
  useMicrophone();
  makeAttached();
  recorder->detach(*stream);
  const std::unique_ptr<CameraCompositeRecorder> first = std::move(recorder);
  makeAttached();
  first->detach(*stream);
  deliver(1, 0s);
  play(480, 0s);
  speak(480, 0s);
  EXPECT_EQ(media.files.at(1)->track(0).appended.size(), 1u);
  EXPECT_EQ(media.files.at(1)->track(1).appended.size(), 1u);
  EXPECT_EQ(media.files.at(1)->track(2).appended.size(), 1u);
}

TEST_F(CameraCompositeRecorderTest, DestructionLeavesNothingRunning) {
  useSystemAudio();
  makeAttached();
  deliver(1, 0ms);
  file().setReady(false);
  file().track(1).setReady(false);
  deliver(2, 100ms);
  play(480, 100ms);
  EXPECT_EQ(scheduler.timerCount(), 2u) << "the heartbeat's and the lane's";
  file().setReady(true); // a drain waits in the queue
  destroy();
  EXPECT_TRUE(file().isDestroyed);
  EXPECT_EQ(file().observerCount(), 0u);
  EXPECT_EQ(scheduler.timerCount(), 0u);
  advanceTo(1s);
}

} // namespace
} // namespace tessarin
