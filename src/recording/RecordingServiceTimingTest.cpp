// What of a session runs beside what, and how its waits and watches count time.

#include "support/RecordingRig.hpp"

#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <map>
#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Rig = testing::RecordingRig;

// Told once by one thread, awaited by another; the bound only ends a test that has failed.
class Moment {
 public:
  void come() {
    if (!hasCome_.exchange(true))
      promise_.set_value();
  }
  bool hasCome() const { return hasCome_; }
  bool await() { return future_.wait_for(30s) == std::future_status::ready; }

 private:
  std::atomic<bool> hasCome_ = false;
  std::promise<void> promise_;
  std::shared_future<void> future_ = promise_.get_future();
};

bool isEvent(const std::string& text, const std::string& name) {
  return text.find("\"event\":\"" + name + "\"") != std::string::npos;
}

// ---- What a stop does at the same time, on real threads

TEST(RecordingServiceTiming, TheStreamStopsWhileTheLastSegmentIsFinished) {
  Rig rig;
  rig.makeQueue = makeThreadQueue;
  Moment finalized;
  Moment stopped;
  bool wasFinalizedMeanwhile = false;
  bool wasStoppedBefore = false;
  rig.onEvent = [&](const std::string& event) {
    if (isEvent(event, "segmentFinalized"))
      finalized.come();
    if (isEvent(event, "completed"))
      wasStoppedBefore = stopped.hasCome();
  };
  rig.then([&] {
    rig.record(1s);
    rig.stream().onStop = [&] {
      wasFinalizedMeanwhile = finalized.await();
      stopped.come();
    };
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), 0);
  EXPECT_TRUE(wasFinalizedMeanwhile);
  EXPECT_TRUE(wasStoppedBefore) << "the stop's outcome belongs to the answer";
  EXPECT_THAT(rig.lastDiagnostics(), HasSubstr("streamStopDeferred=0"));
}

TEST(RecordingServiceTiming, AStopWhilePausedAnswersBeforeTheStreamHasStopped) {
  Rig rig;
  rig.makeQueue = makeThreadQueue;
  Moment completed;
  bool wasCompletedMeanwhile = false;
  rig.onEvent = [&](const std::string& event) {
    if (isEvent(event, "completed"))
      completed.come();
  };
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.then([&] {
    rig.stream().onStop = [&] {
      wasCompletedMeanwhile = completed.await();
      rig.clock.advance(40ms);
    };
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), 0);
  EXPECT_TRUE(wasCompletedMeanwhile);
  EXPECT_EQ(rig.lastDiagnostics(),
            "tessarin-native recording-stream-stop-summary streamStopMs=40 streamStopFailed=0");
}

TEST(RecordingServiceTiming, AStopThatFailsWaitsForTheStreamBeforeItTells) {
  Rig rig;
  rig.makeQueue = makeThreadQueue;
  Moment finishing;
  Moment stopped;
  bool wasStoppedBefore = false;
  rig.onEvent = [&](const std::string& event) {
    if (isEvent(event, "failed"))
      wasStoppedBefore = stopped.hasCome();
  };
  rig.then([&] {
    rig.record(1s);
    rig.segment(0).onFinish = [&](ScriptedMediaFile&) { finishing.come(); };
    rig.segment(0).completes = false;
    rig.stream().onStop = [&] {
      finishing.await();
      stopped.come();
    };
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_TRUE(wasStoppedBefore);
  EXPECT_EQ(rig.lastDiagnostics(), "tessarin-native recording-failed stage=stop-finalize "
                                   "nativeCode=recordingFailed");
}

// Each begins before any goes on; `begins` says for a file's name whether its work begins with that event.
void expectAllAtOnce(
    const std::vector<std::string>& names,
    const std::function<bool(const FaultyFileSystem::Event&, const std::string& name)>& begins) {
  Rig rig;
  rig.useThreads();
  rig.use(true, true, true);
  std::map<std::string, Moment> begun;
  for (const std::string& name : names)
    begun[name];
  std::atomic<bool> isParallel = true;
  rig.then([&] {
    rig.record(1s);
    rig.files.setObserver([&](const FaultyFileSystem::Event& event) {
      for (const std::string& name : names) {
        if (!begins(event, name))
          continue;
        begun.at(name).come();
        for (auto& [other, moment] : begun)
          if (!moment.await())
            isParallel = false;
      }
    });
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), 0);
  EXPECT_TRUE(isParallel);
  for (const auto& [name, moment] : begun)
    EXPECT_TRUE(moment.hasCome()) << name;
}

// The check of a merged file is the first to open it by its name.
bool isChecked(const FaultyFileSystem::Event& event, const std::string& name) {
  return event.operation == FileOperation::open && event.path.ends_with("/" + name);
}

TEST(RecordingServiceTiming, TheFiveMergesRunAtOnce) {
  expectAllAtOnce({"screen.mp4", "camera.mp4", "system-audio.m4a", "microphone.m4a", "recording.mp4"},
                  [](const FaultyFileSystem::Event& event, const std::string& name) {
                    return event.operation == FileOperation::open &&
                           event.path.find("/." + name) != std::string::npos;
                  });
}

TEST(RecordingServiceTiming, TheChecksOfMergedPicturesRunAtOnce) {
  expectAllAtOnce({"screen.mp4", "camera.mp4", "recording.mp4"}, isChecked);
}

TEST(RecordingServiceTiming, TheChecksOfMergedSoundRunAtOnce) {
  expectAllAtOnce({"system-audio.m4a", "microphone.m4a"}, isChecked);
}

TEST(RecordingServiceTiming, SoundIsCheckedBehindPicturesWhoseLengthItMustHave) {
  Rig rig;
  rig.use(true, true, true);
  std::vector<std::string> checked;
  rig.then([&] {
    rig.record(1s);
    rig.files.setObserver([&](const FaultyFileSystem::Event& event) {
      for (const std::string name :
           {"screen.mp4", "camera.mp4", "system-audio.m4a", "microphone.m4a", "recording.mp4"})
        if (isChecked(event, name))
          checked.push_back(name);
    });
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), 0);
  EXPECT_THAT(checked,
              ElementsAre("screen.mp4", "camera.mp4", "recording.mp4", "system-audio.m4a", "microphone.m4a"));
}

// ---- Time, turned by hand while the session waits on a thread of its own

void awaitTimers(Rig& rig, std::size_t count) {
  while (rig.scheduler.timerCount() != count)
    std::this_thread::yield();
}

TEST(RecordingServiceTiming, AStartWaitsFiveSecondsForItsPicture) {
  Rig rig;
  rig.streams.prepare = [](ScriptedScreenStream&) {};
  std::thread session([&] { EXPECT_EQ(rig.run(), 1); });
  awaitTimers(rig, 1);
  rig.scheduler.advance(5s - 1ns);
  EXPECT_EQ(rig.scheduler.timerCount(), 1u) << "it still waits";
  rig.scheduler.advance(1ns);
  session.join();
  EXPECT_THAT(rig.lastEvent(), HasSubstr("recordingScreenStalled"));
}

TEST(RecordingServiceTiming, AResumeWaitsFiveSecondsForItsPicture) {
  Rig rig;
  Moment isResuming;
  rig.onEvent = [&](const std::string& event) {
    if (event.find("\"resuming\"") != std::string::npos)
      isResuming.come();
  };
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.then([&] {
    rig.stream().presentPicture.reset();
    rig.send("resume");
  });
  std::thread session([&] { EXPECT_EQ(rig.run(), 1); });
  EXPECT_TRUE(isResuming.await());
  awaitTimers(rig, 1);
  rig.scheduler.advance(5s - 1ns);
  EXPECT_EQ(rig.scheduler.timerCount(), 1u) << "it still waits";
  rig.scheduler.advance(1ns);
  session.join();
  EXPECT_THAT(rig.lastEvent(), HasSubstr("recordingScreenStalled"));
}

TEST(RecordingServiceTiming, AnHourOfPauseIsNoStall) {
  Rig rig;
  Moment isResumed;
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.then([&] {
    rig.clock.advance(1h);
    rig.send("resume");
  });
  rig.then([&] { isResumed.come(); });
  std::thread session([&] { EXPECT_EQ(rig.run(), 0); });
  EXPECT_TRUE(isResumed.await());
  awaitTimers(rig, 2); // the writer's heartbeat and the watch
  rig.scheduler.advance(1s);
  rig.send("stop");
  session.join();
  EXPECT_THAT(rig.events(), Contains(R"({"event":"healthChanged","health":{"screen":"healthy",)"
                                     R"("storage":"healthy"},"schemaVersion":2,"sessionId":"ID"})"));
  EXPECT_THAT(rig.lastEvent(), HasSubstr("\"completed\""));
}

TEST(RecordingServiceTiming, NothingIsJudgedWhilePaused) {
  Rig rig;
  Moment isPaused;
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.then([&] { isPaused.come(); });
  std::thread session([&] { EXPECT_EQ(rig.run(), 0); });
  EXPECT_TRUE(isPaused.await());
  EXPECT_EQ(rig.scheduler.timerCount(), 0u);
  rig.files.setAvailableBytes(0);
  rig.scheduler.advance(1h);
  rig.send("stop");
  session.join();
  EXPECT_THAT(rig.events(), ::testing::Not(Contains(HasSubstr("healthChanged"))));
  EXPECT_THAT(rig.lastEvent(), HasSubstr("\"completed\""));
}

} // namespace
} // namespace tessarin
