// Sources that end while a session records, is paused, resumes or stops. What the host is told, and what is
// kept.

#include "support/RecordingServiceTesting.hpp"

#include <cerrno>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using namespace tessarin::testing;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Rig = RecordingRig;
using Source = ScriptedDevices::Source;

// ---- Recording

TEST(RecordingServiceSources, AnUnpluggedMicrophoneEndsTheSessionAndKeepsTheSegment) {
  Rig rig;
  rig.use(true, true, true);
  rig.then([&] {
    rig.record(1s);
    rig.microphone().end();
    rig.record(500ms); // the others go on until the session has seen it
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(),
              ElementsAre(state("recording", 0), segmentFinalized(0, 1533, 1533), microphoneUnavailable));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("unexpected-stream-stop", "microphoneUnavailable"));
  EXPECT_EQ(manifestSegments(rig).size(), 1U);
  EXPECT_THAT(rig.entries(), ElementsAre("camera-layout.json", "native-manifest.json", "segments/",
                                         "segments/segment-0000.mp4"));
  expectQuiet(rig);
}

TEST(RecordingServiceSources, AnUnpluggedCameraEndsTheSessionAndItsFileIsLeftForARecovery) {
  Rig rig;
  rig.use(true, true, true);
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.thenSend("resume");
  rig.then([&] {
    rig.record(1s);
    rig.camera().end();
    rig.record(500ms); // no picture of the screen can have the camera's beside it any more
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_EQ(rig.lastEvent(), cameraUnavailable);
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("unexpected-stream-stop", "cameraUnavailable"));
  EXPECT_THAT(rig.diagnostics(),
              Contains(HasSubstr("recording-writer-failed stage=camera-frame-unavailable")));
  EXPECT_EQ(manifestSegments(rig).size(), 1U) << "the finished segment is kept";
  EXPECT_THAT(rig.entries(), ElementsAre("camera-layout.json", "native-manifest.json", "segments/",
                                         "segments/segment-0000.mp4", "segments/segment-0001.mp4"));
  EXPECT_TRUE(rig.segment(1).isDestroyed);
  expectQuiet(rig);
}

TEST(RecordingServiceSources, ACameraThatEndsBetweenTwoPicturesLosesNothing) {
  Rig rig;
  rig.use(false, false, true);
  rig.then([&] {
    rig.record(1s);
    rig.camera().end();
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(),
              ElementsAre(state("recording", 0), segmentFinalized(0, 1033, 1033), cameraUnavailable));
  EXPECT_EQ(manifestSegments(rig).size(), 1U);
  expectQuiet(rig);
}

TEST(RecordingServiceSources, AnEndOfTheComputersSoundIsARecordingsFailureAlsoOfAWindow) {
  for (const CaptureKind kind : {CaptureKind::display, CaptureKind::window}) {
    Rig rig;
    rig.ask(kind);
    rig.use(true, true, false);
    rig.then([&] {
      rig.record(1s);
      rig.systemAudio().end();
    });
    EXPECT_EQ(rig.run(), 1);
    EXPECT_THAT(rig.events(),
                ElementsAre(state("recording", 0), segmentFinalized(0, 1033, 1033), recordingFailed));
    EXPECT_EQ(rig.lastDiagnostics(), failedLine("unexpected-stream-stop"));
    EXPECT_EQ(manifestSegments(rig).size(), 1U);
    expectQuiet(rig);
  }
}

// A server that dies takes all of them with it.
TEST(RecordingServiceSources, TheMicrophoneIsBlamedBeforeTheCameraAndTheWindow) {
  struct Row {
    bool microphone, camera, window;
    std::string event;
  };
  const std::string windowClosed = failed(
      "windowNotFound", "The selected window closed during recording. Finalized segments were preserved.");
  for (const Row& row :
       {Row{true, true, true, microphoneUnavailable}, Row{true, false, true, microphoneUnavailable},
        Row{false, true, true, cameraUnavailable}, Row{false, false, true, windowClosed}}) {
    Rig rig;
    rig.ask(CaptureKind::window);
    rig.use(true, true, true);
    rig.then([&] {
      rig.record(1s);
      if (row.window)
        rig.stream().end();
      rig.systemAudio().end();
      if (row.camera)
        rig.camera().end();
      if (row.microphone)
        rig.microphone().end();
    });
    EXPECT_EQ(rig.run(), 1);
    EXPECT_EQ(rig.lastEvent(), row.event);
    EXPECT_EQ(manifestSegments(rig).size(), 1U);
    expectQuiet(rig);
  }
}

TEST(RecordingServiceSources, AnEndedSourceIsTheCauseOfWhatElseGoesWrong) {
  Rig rig;
  rig.use(false, true, false);
  rig.then([&] {
    rig.record(1s);
    rig.microphone().end();
    rig.files.inject({.operation = FileOperation::sync, .pathPart = "manifest", .errorNumber = ENOSPC});
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(), ElementsAre(state("recording", 0), microphoneUnavailable));
  expectQuiet(rig);
}

TEST(RecordingServiceSources, SoundThatTheFileRefusesEndsTheSession) {
  for (const bool isMicrophone : {true, false}) {
    Rig rig;
    rig.use(true, true, false);
    rig.then([&] {
      rig.record(500ms);
      rig.segment(0).track(isMicrophone ? 2 : 1).refusedAppend = 15;
      rig.record(500ms);
    });
    EXPECT_EQ(rig.run(), 1);
    EXPECT_EQ(rig.lastEvent(), recordingFailed) << "the source itself is well";
    EXPECT_THAT(rig.diagnostics(), Contains(HasSubstr("recording-writer-failed stage=append-audio")));
    EXPECT_FALSE(exists(rig.files, rig.path("native-manifest.json")));
    expectQuiet(rig);
  }
}

// ---- Paused and resuming

TEST(RecordingServiceSources, ASourceThatEndsWhilePausedEndsTheSessionAtItsNextRead) {
  struct Row {
    Source source;
    std::string event;
    std::string code;
  };
  for (const Row& row : {Row{Source::microphone, microphoneUnavailable, "microphoneUnavailable"},
                         Row{Source::camera, cameraUnavailable, "cameraUnavailable"},
                         Row{Source::systemAudio, recordingFailed, "recordingFailed"}}) {
    Rig rig;
    rig.use(true, true, true);
    rig.then([&] {
      rig.record(1s);
      rig.send("pause");
    });
    rig.then([&] {
      if (row.source == Source::microphone)
        rig.microphone().end();
      else if (row.source == Source::camera)
        rig.camera().end();
      else
        rig.systemAudio().end();
      rig.send("resume"); // comes too late
    });
    EXPECT_EQ(rig.run(), 1);
    EXPECT_THAT(rig.events(), ElementsAre(state("recording", 0), state("pausing", 0),
                                          segmentFinalized(0, 1033, 1033), state("paused", 1033), row.event));
    EXPECT_EQ(rig.lastDiagnostics(), failedLine("unexpected-stream-stop", row.code));
    EXPECT_EQ(manifestSegments(rig).size(), 1U);
    EXPECT_EQ(rig.media.files.size(), 1U);
    expectQuiet(rig);
  }
}

// Runs the action when the session has said that it resumes.
void onResuming(Rig& rig, const std::function<void()>& action) {
  rig.onEvent = [action](const std::string& event) {
    if (event.find("\"resuming\"") != std::string::npos)
      action();
  };
}

TEST(RecordingServiceSources, AMicrophoneThatEndsInAResumeEndsTheSessionBehindIt) {
  Rig rig;
  rig.use(false, true, false);
  onResuming(rig, [&] { rig.microphone().end(); });
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.thenSend("resume");
  rig.then([&] { rig.record(500ms); });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(),
              ElementsAre(state("recording", 0), state("pausing", 0), segmentFinalized(0, 1033, 1033),
                          state("paused", 1033), state("resuming", 1033), state("recording", 1033),
                          segmentFinalized(1, 533, 1566), microphoneUnavailable));
  EXPECT_EQ(manifestSegments(rig).size(), 2U);
  expectQuiet(rig);
}

TEST(RecordingServiceSources, ACameraThatEndsInAResumeFailsIt) {
  Rig rig;
  rig.use(false, false, true);
  onResuming(rig, [&] { rig.camera().end(); });
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.thenSend("resume");
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(),
              ElementsAre(state("recording", 0), state("pausing", 0), segmentFinalized(0, 1033, 1033),
                          state("paused", 1033), state("resuming", 1033), cameraUnavailable));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("resume-start", "cameraUnavailable"));
  EXPECT_EQ(manifestSegments(rig).size(), 1U) << "the index of the second is burnt";
  expectQuiet(rig);
}

// ---- Stopping

TEST(RecordingServiceSources, SourcesThatEndDuringAStopChangeNothing) {
  for (const bool isPaused : {false, true}) {
    Rig rig;
    rig.use(true, true, true);
    const auto stopWithEnds = [&] {
      rig.stream().onStop = [&] {
        rig.microphone().end();
        rig.camera().end();
      };
      rig.onEvent = [&](const std::string& event) {
        if (event.find("\"stopping\"") != std::string::npos)
          rig.systemAudio().end();
      };
      rig.send("stop");
    };
    rig.then([&] {
      rig.record(1s);
      if (isPaused)
        rig.send("pause");
      else
        stopWithEnds();
    });
    rig.then(stopWithEnds);
    EXPECT_EQ(rig.run(), 0);
    EXPECT_EQ(rig.lastEvent(),
              completed(1033, 1033, {cameraTrack(1033), systemAudioTrack(1033), microphoneTrack(1033)}));
    expectQuiet(rig);
  }
}

} // namespace
} // namespace tessarin
