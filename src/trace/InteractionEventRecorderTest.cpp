#include "trace/InteractionEventRecorder.hpp"

#include "base/FileSystem.hpp"
#include "model/Errors.hpp"
#include "support/InteractionRecorderRig.hpp"

#include <gtest/gtest.h>
#include <linux/input-event-codes.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <limits>
#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using testing::InteractionRecorderRig;
using Times = std::vector<std::int64_t>;
using Cursor = InteractionCursorEvent;
using Click = InteractionClickEvent;

const NativeServiceError outputFailed = {
    NativeErrorCode::outputFailed, "The screenshot could not be written to its temporary output.", true};
const NativeServiceError recordingFailed = {NativeErrorCode::recordingFailed,
                                            "The screen recording could not be completed.", true};
const NativeServiceError permissionDenied = {
    NativeErrorCode::permissionDenied, "Input Monitoring permission is required for shortcut badges.", true};

template<class Call> std::optional<NativeServiceError> failureOf(Call call) {
  try {
    call();
    return std::nullopt;
  } catch (const NativeServiceError& failure) {
    return failure;
  }
}

class InteractionEventRecorderTest : public ::testing::Test, protected InteractionRecorderRig {
 protected:
  std::optional<NativeServiceError> failureOfMaking() {
    return failureOf([this] { make(); });
  }
  std::optional<NativeServiceError> failureOfObserving() {
    return failureOf([this] { recorder->startObserving(); });
  }
  std::optional<NativeServiceError> failureOfFinishing() {
    return failureOf([this] { recorder->finish(); });
  }
  std::uint64_t nanoseconds() const { return static_cast<std::uint64_t>(clock.elapsed().count()); }
};

// ---- The file

TEST_F(InteractionEventRecorderTest, MakesAnEmptyFileForItsOwner) {
  make();
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  EXPECT_EQ(status.st_size, 0);
}

TEST_F(InteractionEventRecorderTest, NeverAppendsToAnOlderFile) {
  directory.write("interaction-events.jsonl", "older\n");
  EXPECT_EQ(failureOfMaking(), outputFailed);
  EXPECT_EQ(text(), "older\n");
}

TEST_F(InteractionEventRecorderTest, FailsWhereNoFileCanBeMade) {
  setup.outputDirectory = directory / "nowhere";
  EXPECT_EQ(failureOfMaking(), outputFailed);
  setup.outputDirectory = directory.path();
  files.failNth(FileOperation::open, 1, EACCES);
  EXPECT_EQ(failureOfMaking(), outputFailed);
  EXPECT_EQ(failureOfMaking(), std::nullopt);
}

TEST_F(InteractionEventRecorderTest, FinishesAWholeTrace) {
  begin();
  EXPECT_EQ(files.count(FileOperation::sync), 0U);
  EXPECT_EQ(failureOfFinishing(), std::nullopt);
  EXPECT_EQ(failureOfFinishing(), std::nullopt);
  EXPECT_EQ(files.count(FileOperation::sync), 1U);
  EXPECT_EQ(text(), R"({"coordinateSpace":"captureTopLeft","kind":"cursor","timestampMs":0,"x":0,"y":0})"
                    "\n");
}

TEST_F(InteractionEventRecorderTest, ReportsADiskThatFailed) {
  begin();
  files.failNth(FileOperation::write, 1, ENOSPC);
  source.moveTo(600, 450);
  scheduler.advance(33ms);
  source.moveTo(700, 450);
  scheduler.advance(33ms);
  source.click();
  EXPECT_EQ(timesOf<Cursor>(), Times{0}); // nothing behind the failure
  EXPECT_EQ(timesOf<Click>(), Times{});
  EXPECT_EQ(failureOfFinishing(), outputFailed);
  EXPECT_EQ(failureOfFinishing(), outputFailed);
}

TEST_F(InteractionEventRecorderTest, ReportsADiskThatDoesNotKeepTheTrace) {
  begin();
  files.failNth(FileOperation::sync, 1, EIO);
  EXPECT_EQ(failureOfFinishing(), outputFailed);
}

// ---- Observing

TEST_F(InteractionEventRecorderTest, ObservesOnce) {
  observe();
  EXPECT_EQ(failureOfObserving(), recordingFailed);
  EXPECT_EQ(source.monitorCount(), 1U);
  EXPECT_EQ(scheduler.timerCount(), 1U);
}

TEST_F(InteractionEventRecorderTest, DoesNotObserveOnceStopped) {
  make();
  recorder->stop();
  EXPECT_EQ(failureOfObserving(), recordingFailed);
  EXPECT_EQ(source.monitorCount(), 0U);
  EXPECT_EQ(scheduler.timerCount(), 0U);
}

TEST_F(InteractionEventRecorderTest, WatchesOnlyWhatItRecords) {
  for (const bool cursor : {false, true})
    for (const bool clicks : {false, true})
      for (const bool keys : {false, true}) {
        std::filesystem::remove(path);
        setup.recordsCursor = cursor;
        setup.recordsClicks = clicks;
        setup.recordsShortcuts = keys;
        const std::size_t readingsBefore = source.readingCount();
        begin();
        EXPECT_EQ(source.monitorCount(), clicks || keys ? 1U : 0U);
        EXPECT_EQ(source.watchesButtons(), clicks);
        EXPECT_EQ(source.watchesKeys(), keys);
        EXPECT_EQ(scheduler.timerCount(), cursor || clicks ? 1U : 0U);
        scheduler.advance(1s);
        EXPECT_EQ(source.readingCount() > readingsBefore, cursor || clicks);
        source.click();
        source.key(KEY_F5);
        EXPECT_EQ(!timesOf<Cursor>().empty(), cursor);
        EXPECT_EQ(timesOf<Click>().size(), clicks ? 1U : 0U);
        EXPECT_EQ(shortcuts().size(), keys ? 1U : 0U);
        recorder.reset();
      }
}

TEST_F(InteractionEventRecorderTest, NeedsToWatchTheKeyboardForShortcuts) {
  source.refuseMonitors();
  make();
  EXPECT_EQ(failureOfObserving(), permissionDenied);
  EXPECT_EQ(failureOfObserving(), recordingFailed);
  EXPECT_EQ(scheduler.timerCount(), 0U);
}

TEST_F(InteractionEventRecorderTest, SeesClicksWithoutAMonitor) {
  source.refuseMonitors();
  setup.recordsShortcuts = false;
  begin();
  source.click();
  EXPECT_EQ(timesOf<Click>(), Times{});
  scheduler.advance(33ms);
  EXPECT_EQ(timesOf<Click>(), Times{33});
  EXPECT_EQ(failureOfFinishing(), std::nullopt);
}

TEST_F(InteractionEventRecorderTest, StopsEverythingOnceAndForAll) {
  begin();
  recorder->stop();
  recorder->stop();
  EXPECT_EQ(source.monitorCount(), 0U);
  EXPECT_EQ(scheduler.timerCount(), 0U);
  EXPECT_EQ(files.count(FileOperation::sync), 1U);
  const std::string whole = text();
  recorder->startSegment(5000, std::nullopt);
  recorder->recordClick({InteractionMouseButton::left, {200, 300}, {}});
  recorder->recordShortcut({KEY_F5, {}, false, false, {}});
  recorder->pauseSegment();
  EXPECT_EQ(text(), whole);
}

TEST_F(InteractionEventRecorderTest, StopsWhenDestroyed) {
  begin();
  recorder.reset();
  EXPECT_EQ(source.monitorCount(), 0U);
  EXPECT_EQ(scheduler.timerCount(), 0U);
  EXPECT_EQ(files.count(FileOperation::sync), 1U);
}

// A source during whose setting-up the recorder is stopped.
class StoppingSource final : public InteractionSource {
 public:
  explicit StoppingSource(ScriptedInteractions& below) : below_(below) {}
  std::optional<PointerState> pointer() override { return below_.pointer(); }
  bool isSecureInput() override { return false; }
  std::unique_ptr<InteractionMonitor> monitor(InteractionHandlers handlers) override {
    auto monitor = below_.monitor(std::move(handlers));
    recorder->stop();
    return monitor;
  }
  InteractionEventRecorder* recorder = nullptr;

 private:
  ScriptedInteractions& below_;
};

TEST_F(InteractionEventRecorderTest, LeavesNoMonitorWhenStoppedMeanwhile) {
  StoppingSource stopping(source);
  InteractionEventRecorder stopped(setup, stopping, clock, files, scheduler.queueFactory());
  stopping.recorder = &stopped;
  EXPECT_EQ(failureOf([&] { stopped.startObserving(); }), recordingFailed);
  EXPECT_EQ(source.monitorCount(), 0U);
  EXPECT_EQ(scheduler.timerCount(), 0U);
}

TEST_F(InteractionEventRecorderTest, ReadsThePointerOnAQueueOfItsOwn) {
  make();
  EXPECT_EQ(scheduler.labels(), std::vector<std::string>{"com.tessarin.recording.interactions"});
  std::filesystem::remove(path);
  setup.recordsCursor = false;
  setup.recordsClicks = false;
  make();
  EXPECT_EQ(scheduler.labels().size(), 1U); // shortcuts need none
}

// ---- The time

TEST_F(InteractionEventRecorderTest, WritesNothingBeforeTheFirstSegment) {
  observe();
  scheduler.advance(1s);
  source.click();
  source.key(KEY_F5);
  EXPECT_EQ(text(), "");
}

TEST_F(InteractionEventRecorderTest, CountsFromTheEpochOfTheSegment) {
  observe();
  clock.advance(250ms);
  recorder->startSegment(5000, nanoseconds() - 250'000'000);
  EXPECT_EQ(timesOf<Cursor>(), Times{5250});
}

TEST_F(InteractionEventRecorderTest, CountsFromNowWithoutAnEpoch) {
  observe();
  recorder->startSegment(5000, std::nullopt);
  clock.advance(40ms);
  source.click();
  EXPECT_EQ(timesOf<Cursor>(), Times{5000});
  EXPECT_EQ(timesOf<Click>(), Times{5040});
}

TEST_F(InteractionEventRecorderTest, RoundsToTheNearestMillisecond) {
  observe();
  Times expected;
  for (const auto& [sinceEpoch, rounded] :
       {std::pair{499'999, 0}, std::pair{500'000, 1}, std::pair{1'499'999, 1}, std::pair{1'500'000, 2}}) {
    recorder->startSegment(0, nanoseconds() - static_cast<std::uint64_t>(sinceEpoch));
    expected.push_back(rounded);
  }
  EXPECT_EQ(timesOf<Cursor>(), expected);
}

TEST_F(InteractionEventRecorderTest, StaysAtTheBaseUntilTheEpoch) {
  observe();
  recorder->startSegment(700, nanoseconds() + 100'000'000);
  clock.advance(101ms);
  source.click();
  EXPECT_EQ(timesOf<Cursor>(), Times{700});
  EXPECT_EQ(timesOf<Click>(), Times{701});
  recorder->startSegment(900, std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(timesOf<Cursor>(), (Times{700, 900}));
}

TEST_F(InteractionEventRecorderTest, TakesANegativeActiveTimeForZero) {
  observe();
  recorder->startSegment(-1, std::nullopt);
  EXPECT_EQ(timesOf<Cursor>(), Times{0});
}

TEST_F(InteractionEventRecorderTest, LeavesNoHoleForAPause) {
  setup.recordsCursor = false;
  begin();
  clock.advance(2s);
  source.click();
  recorder->pauseSegment();
  for (int minute = 0; minute < 10; ++minute) {
    scheduler.advance(1min);
    source.click();
    source.key(KEY_F5);
  }
  recorder->startSegment(2100, nanoseconds());
  clock.advance(100ms);
  source.click();
  EXPECT_EQ(timesOf<Click>(), (Times{2000, 2200}));
  EXPECT_TRUE(shortcuts().empty());
}

TEST_F(InteractionEventRecorderTest, NeverGoesBackInTime) {
  observe();
  recorder->startSegment(5000, std::nullopt);
  recorder->startSegment(100, std::nullopt);
  clock.advance(10s);
  source.click();
  EXPECT_EQ(timesOf<Cursor>(), (Times{5000, 5000}));
  EXPECT_EQ(timesOf<Click>(), Times{10100});
}

// ---- Threads

TEST_F(InteractionEventRecorderTest, StaysInOrderOnRealThreads) {
  setup.shortcutHandler = [](const RecordingShortcutUpdate&) {};
  InteractionEventRecorder real(setup, source, clock, files, makeThreadQueue);
  real.startObserving();
  std::atomic<bool> isOver = false;
  std::vector<std::thread> threads;
  for (int i = 0; i < 2; ++i)
    threads.emplace_back([&, i] {
      while (!isOver) {
        clock.advance(1ms);
        source.moveTo(100 + static_cast<double>(clock.elapsed().count() / 1'000'000 % 1000), 300);
        i == 0 ? source.click() : source.key(KEY_C, {.command = true});
      }
    });
  for (int segment = 0; segment < 200; ++segment) {
    real.startSegment(segment * 10, nanoseconds());
    real.pauseSegment();
  }
  real.startSegment(2000, nanoseconds());
  while (events().size() < 1000)
    std::this_thread::yield();
  const auto failure = failureOf([&] { real.finish(); });
  isOver = true;
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(failure, std::nullopt);
  EXPECT_GE(events().size(), 1000U); // and so every line is whole and in order
}

} // namespace
} // namespace tessarin
