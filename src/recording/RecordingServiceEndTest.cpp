// Sessions that nobody has stopped or cancelled in good order: bad lines, ends by themselves, failures of a
// stop. What the host is told, and what is kept.

#include "support/RecordingServiceTesting.hpp"

#include <cerrno>
#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using namespace tessarin::testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Rig = RecordingRig;

// ---- Lines that end the session

struct BadLine {
  const char* name;
  std::string line;
};

class RecordingServiceBadLineTest : public ::testing::TestWithParam<BadLine> {};

TEST_P(RecordingServiceBadLineTest, EndsTheSessionAndKeepsTheSegment) {
  Rig rig;
  std::thread writing; // the line may be longer than what a pipe holds
  rig.then([&] {
    rig.record(1s);
    writing = std::thread([&] { rig.sendLine(GetParam().line); });
  });
  EXPECT_EQ(rig.run(), 1);
  writing.join();
  EXPECT_THAT(rig.events(),
              ElementsAre(state("recording", 0), segmentFinalized(0, 1033, 1033), recordingFailed));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("recording-control"));
  EXPECT_EQ(manifestSegments(rig).size(), 1u);
  expectQuiet(rig);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, RecordingServiceBadLineTest,
    ::testing::Values(
        BadLine{"tooLarge", std::string(65'537, ' ')}, BadLine{"malformed", "stop"},
        BadLine{"schema", R"({"schemaVersion":1,"command":"stop","sessionId":"x"})"},
        BadLine{"session", R"({"schemaVersion":2,"command":"stop","sessionId":"x"})"},
        BadLine{
            "stale",
            R"({"schemaVersion":2,"command":"stop","sessionId":"6F1C2D3E-4A5B-4C6D-8E7F-0A1B2C3D4E5F"})"}),
    [](const auto& row) { return row.param.name; });

TEST(RecordingService, ABadLineWhilePausedIsTheLoopsFailureToo) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.then([&] { rig.sendLine("?"); });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_EQ(rig.lastEvent(), recordingFailed);
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("recording-control"));
  expectQuiet(rig);
}

TEST(RecordingService, TheEndOfInputIsAFailureThatKeepsTheSegment) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.endInput();
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(),
              ElementsAre(state("recording", 0), segmentFinalized(0, 1033, 1033), recordingFailed));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("unexpected-stream-stop"));
  EXPECT_EQ(manifestSegments(rig).size(), 1u);
  EXPECT_THAT(rig.entries(), ElementsAre("native-manifest.json", "segments/", "segments/segment-0000.mp4"));
  expectQuiet(rig);
}

TEST(RecordingService, LinesThatComeDuringStartUpAreReadInOrderBehindIt) {
  Rig rig;
  rig.streams.prepare = [&](ScriptedScreenStream& stream) {
    stream.presentPicture = 1;
    rig.send("resume");
    rig.send("cancel");
  };
  rig.then([] {});
  rig.then([] {});
  EXPECT_EQ(rig.run(), 0);
  EXPECT_THAT(rig.events(), ElementsAre(state("recording", 0), state("recording", 0), cancelled));
}

// ---- Sessions that end by themselves

TEST(RecordingService, AStreamThatEndsADisplayRecordingIsAFailure) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.stream().end();
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(),
              ElementsAre(state("recording", 0), segmentFinalized(0, 1033, 1033), recordingFailed));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("unexpected-stream-stop"));
  EXPECT_EQ(manifestSegments(rig).size(), 1u);
  expectQuiet(rig);
}

TEST(RecordingService, AStreamThatEndsAWindowRecordingTellsThatTheWindowHasClosed) {
  Rig rig;
  rig.ask(CaptureKind::window);
  rig.then([&] {
    rig.record(1s);
    rig.stream().end();
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(
      rig.events(),
      ElementsAre(state("recording", 0), segmentFinalized(0, 1033, 1033),
                  failed("windowNotFound",
                         "The selected window closed during recording. Finalized segments were preserved.")));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("unexpected-stream-stop", "windowNotFound"));
}

TEST(RecordingService, AClosedInputOfAWindowRecordingIsNotTheWindowsFault) {
  Rig rig;
  rig.ask(CaptureKind::window);
  rig.then([&] {
    rig.record(1s);
    rig.endInput();
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_EQ(rig.lastEvent(), recordingFailed);
}

TEST(RecordingService, AWriterThatFailsEndsTheSessionAndLeavesItsFile) {
  Rig rig;
  rig.then([&] {
    rig.record(500ms);
    rig.segment(0).refusedAppend = rig.segment(0).appended.size();
    rig.record(500ms);
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(), ElementsAre(state("recording", 0), recordingFailed));
  EXPECT_THAT(rig.diagnostics(),
              ElementsAre(HasSubstr("recording-writer-failed stage=append-screen status=3"),
                          failedLine("unexpected-stream-stop")));
  EXPECT_THAT(rig.entries(), ElementsAre("segments/", "segments/segment-0000.mp4"));
  EXPECT_TRUE(rig.segment(0).isDestroyed);
  expectQuiet(rig);
}

TEST(RecordingService, AHostThatHasGoneEndsTheSession) {
  Rig rig;
  rig.onEvent = [](const std::string& event) {
    if (event.find("recording\"") == std::string::npos)
      throw FileFailure(FileOperation::write, EPIPE);
  };
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("pause-finalize"));
  EXPECT_EQ(manifestSegments(rig).size(), 1u) << "the segment is safe though nobody could be told";
  expectQuiet(rig);
}

// A session on a thread of its own, so that the test can turn the clock while it waits for a line.
void runWithStorageRunningOut(Rig& rig) {
  std::int32_t status = -1;
  rig.then([&] {
    rig.record(1s);
    rig.files.setAvailableBytes(1000);
  });
  std::thread session([&] { status = rig.run(); });
  while (rig.scheduler.timerCount() < 2) // the writer's heartbeat and the watch
    std::this_thread::yield();
  rig.scheduler.advance(1s);
  session.join();
  EXPECT_EQ(status, 1);
}

TEST(RecordingService, WhatTheMonitorFoundBeatsTheClosedInput) {
  Rig rig;
  runWithStorageRunningOut(rig);
  const std::vector<std::string> events = rig.events();
  ASSERT_EQ(events.size(), 4u);
  EXPECT_EQ(events[1], R"({"event":"healthChanged","health":{"screen":"healthy","storage":"critical"},)"
                       R"("schemaVersion":2,"sessionId":"ID"})");
  EXPECT_THAT(events[2], HasSubstr("segmentFinalized"));
  EXPECT_EQ(events[3],
            failed("recordingStorageLow",
                   "Recording stopped before storage filled. Recording sources were retained for recovery."));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("unexpected-stream-stop", "recordingStorageLow"));
  EXPECT_EQ(manifestSegments(rig).size(), 1u);
  expectQuiet(rig);
}

TEST(RecordingService, WhatTheMonitorFoundBeatsAClosedWindow) {
  Rig rig;
  rig.ask(CaptureKind::window);
  rig.onEvent = [&](const std::string& event) {
    if (event.find("healthChanged") != std::string::npos)
      rig.stream().end();
  };
  runWithStorageRunningOut(rig);
  EXPECT_THAT(rig.lastEvent(), HasSubstr("recordingStorageLow"));
}

// ---- Failures of a stop

TEST(RecordingService, AMergeThatMeetsAFileFailsAndKeepsTheSegments) {
  for (const std::string name : {"screen.mp4", "recording.mp4"}) {
    Rig rig;
    rig.then([&] {
      rig.record(1s);
      rig.write(name, "in the way");
      rig.send("stop");
    });
    EXPECT_EQ(rig.run(), 1);
    EXPECT_THAT(rig.events(), ElementsAre(state("recording", 0), state("stopping", 1000),
                                          segmentFinalized(0, 1033, 1033), recordingFailed));
    EXPECT_EQ(rig.lastDiagnostics(), failedLine("stop-parallel-merge"));
    EXPECT_EQ(manifestSegments(rig).size(), 1u);
    EXPECT_EQ(rig.read(name), "in the way");
    expectQuiet(rig);
  }
}

TEST(RecordingService, AMergedFileThatIsDamagedFailsItsCheck) {
  for (const std::string name : {"screen.mp4", "recording.mp4"}) {
    Rig rig;
    rig.then([&] {
      rig.record(1s);
      rig.files.setObserver([&](const FaultyFileSystem::Event& event) {
        // The first look at a merged file by its name that finds it is the check's.
        if (event.operation == FileOperation::open && event.path == rig.path(name) &&
            exists(machineFileSystem(), event.path))
          machineFileSystem().open(event.path, OpenMode::createTruncated)->write(0, {});
      });
      rig.send("stop");
    });
    EXPECT_EQ(rig.run(), 1);
    EXPECT_EQ(rig.lastEvent(), recordingFailed);
    EXPECT_EQ(rig.lastDiagnostics(), failedLine("stop-parallel-validate"));
    EXPECT_EQ(manifestSegments(rig).size(), 1u);
  }
}

struct ShareLength {
  std::int64_t milliseconds; // by how much it differs from the screen track's
  bool passes;
};

class RecordingServiceShareLengthTest : public ::testing::TestWithParam<ShareLength> {};

TEST_P(RecordingServiceShareLengthTest, TheShareVideoIsAsLongAsTheScreenTrackToATenthOfASecond) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.files.setObserver([&](const FaultyFileSystem::Event& event) {
      if (event.operation == FileOperation::open && event.path == rig.path("recording.mp4"))
        testing::writeLittleMovie(machineFileSystem(), event.path, {MediaTime::zero()},
                                  MediaTime::milliseconds(1033 + GetParam().milliseconds));
    });
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), GetParam().passes ? 0 : 1);
  if (GetParam().passes) {
    EXPECT_THAT(rig.lastEvent(), HasSubstr("\"completed\""));
  } else {
    EXPECT_EQ(rig.lastEvent(), recordingFailed);
    EXPECT_EQ(rig.lastDiagnostics(), failedLine("stop-parallel-validate"));
    EXPECT_TRUE(exists(rig.files, rig.path("screen.mp4"))) << "no merged file is removed";
    EXPECT_TRUE(exists(rig.files, rig.path("recording.mp4")));
  }
}

INSTANTIATE_TEST_SUITE_P(Lengths, RecordingServiceShareLengthTest,
                         ::testing::Values(ShareLength{-101, false}, ShareLength{-100, true},
                                           ShareLength{100, true}, ShareLength{101, false}));

TEST(RecordingService, AFileThatDoesNotComeOutWholeFailsTheStop) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.segment(0).completes = false;
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(), ElementsAre(state("recording", 0), state("stopping", 1000), recordingFailed));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("stop-finalize"));
  EXPECT_FALSE(exists(rig.files, rig.path("native-manifest.json")));
  expectQuiet(rig);
}

TEST(RecordingService, AManifestThatCannotBeWrittenFailsTheStop) {
  Rig rig;
  rig.then([&] {
    rig.record(1s);
    rig.files.inject({.operation = FileOperation::sync, .pathPart = "manifest", .errorNumber = ENOSPC});
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_EQ(rig.lastEvent(), recordingFailed);
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("stop-finalize"));
}

TEST(RecordingService, AHostThatCannotBeToldOfCompletionFailsThere) {
  Rig rig;
  rig.onEvent = [](const std::string& event) {
    if (event.find("\"completed\"") != std::string::npos)
      throw FileFailure(FileOperation::write, EPIPE);
  };
  rig.then([&] {
    rig.record(1s);
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("stop-complete-event"));
}

} // namespace
} // namespace tessarin
