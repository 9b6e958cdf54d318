// Starting a recording: every refusal with its stage, and that it leaves nothing behind.

#include "support/RecordingServiceTesting.hpp"

#include <unistd.h>

#include <cerrno>

namespace tessarin {
namespace {

using namespace tessarin::testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Rig = RecordingRig;

// The session fails before its first event of any other kind, and nothing is left running.
void expectFailedStart(Rig& rig, const std::string& stage, const std::string& code,
                       const std::string& message) {
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(), ElementsAre(failed(code, message)));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine(stage, code));
  EXPECT_EQ(rig.scheduler.timerCount(), 0u);
  EXPECT_EQ(rig.scheduler.pendingCount(), 0u);
  if (!rig.streams.streams.empty()) {
    EXPECT_EQ(rig.stream().outputCount(), 0u);
  }
}

void expectGenericFailedStart(Rig& rig, const std::string& stage) {
  expectFailedStart(rig, stage, "recordingFailed", "The screen recording could not be completed.");
}

// Also: the refused request has touched nothing.
void expectRefused(Rig& rig, const std::string& stage, const std::string& code, const std::string& message) {
  expectFailedStart(rig, stage, code, message);
  EXPECT_THAT(rig.entries(), IsEmpty());
  EXPECT_THAT(rig.streams.streams, IsEmpty());
}

// ---- Before anything is touched

TEST(RecordingServiceStart, ShortcutsNeedAccessToTheKeyboard) {
  Rig rig;
  rig.request.settings.recordKeyboardShortcuts = true;
  rig.desktop.hasAccess = false; // comes only later
  expectRefused(rig, "prepare-request", "permissionDenied",
                "Input Monitoring permission is required for shortcut badges.");
}

TEST(RecordingServiceStart, ShortcutsWithAccessGoOn) {
  Rig rig;
  rig.request.settings.recordKeyboardShortcuts = true;
  rig.hasListenEventAccess = true;
  rig.thenSend("cancel");
  EXPECT_EQ(rig.run(), 0);
}

TEST(RecordingServiceStart, TheScreenMustBeReadable) {
  Rig denied;
  denied.desktop.hasAccess = false;
  expectRefused(denied, "shareable-content", "permissionDenied",
                "Screen Recording permission is required to capture the display.");
  Rig unreadable;
  unreadable.desktop.isUnreadable = true;
  expectRefused(unreadable, "shareable-content", "contentUnavailable",
                "Shareable screen content is temporarily unavailable.");
}

struct BadRequest {
  const char* name;
  std::function<void(RecordingRequestDTO&)> spoil;
  const char* code;
  const char* message;
};

class RecordingServiceBadRequestTest : public ::testing::TestWithParam<BadRequest> {};

TEST_P(RecordingServiceBadRequestTest, IsRefusedBeforeAnythingIsTouched) {
  Rig rig;
  GetParam().spoil(rig.request);
  expectRefused(rig, "validate-target", GetParam().code, GetParam().message);
}

void makeWindow(RecordingRequestDTO& request) {
  request.kind = CaptureKind::window;
  request.windowID = sampleWindow().id;
  request.rectPoints = sampleWindow().framePoints;
}

INSTANTIATE_TEST_SUITE_P(
    Requests, RecordingServiceBadRequestTest,
    ::testing::Values(BadRequest{"session", [](auto& r) { r.sessionID = "not-a-uuid"; }, "invalidRequest",
                                 "The recording session identifier is invalid."},
                      BadRequest{"geometry", [](auto& r) { r.rectPoints.width = 0; }, "invalidRequest",
                                 "Recording geometry must contain finite, positive dimensions."},
                      BadRequest{"cursorScale",
                                 [](auto& r) {
                                   r.settings.presentation.emplace();
                                   r.settings.presentation->cursorScale = 125;
                                 },
                                 "invalidRequest",
                                 "Recording geometry must contain finite, positive dimensions."},
                      BadRequest{"directory", [](auto& r) { r.outputDirectory += "x"; }, "invalidRequest",
                                 "The recording output directory is invalid."},
                      BadRequest{"display", [](auto& r) { r.displayID = "78"; }, "displayNotFound",
                                 "The selected display is no longer available."},
                      BadRequest{"region",
                                 [](auto& r) {
                                   r.kind = CaptureKind::region;
                                   r.rectPoints.x -= 1;
                                 },
                                 "invalidRequest", "The recording region must stay within its display."},
                      BadRequest{"frameRate", [](auto& r) { r.settings.frameRate = 24; }, "invalidRequest",
                                 "The recording frame rate must be 15, 30, or 60 FPS."},
                      BadRequest{"noWindow",
                                 [](auto& r) {
                                   makeWindow(r);
                                   r.windowID.reset();
                                 },
                                 "invalidRequest", "Window recording requires a selected window."},
                      BadRequest{"window",
                                 [](auto& r) {
                                   makeWindow(r);
                                   r.windowID = "1";
                                 },
                                 "windowNotFound", "The selected window is no longer available."},
                      BadRequest{"moved",
                                 [](auto& r) {
                                   makeWindow(r);
                                   r.rectPoints.x += 0.6;
                                 },
                                 "windowNotFound", "The selected window changed before recording started."}),
    [](const auto& row) { return row.param.name; });

// ---- The directory

TEST(RecordingServiceStart, TheDirectoryMustExist) {
  Rig rig;
  ASSERT_EQ(::rmdir(rig.request.outputDirectory.c_str()), 0);
  expectGenericFailedStart(rig, "prepare-output");
  EXPECT_FALSE(exists(rig.files, rig.request.outputDirectory));
}

TEST(RecordingServiceStart, TheDirectoryMustBeNoFile) {
  Rig rig;
  ASSERT_EQ(::rmdir(rig.request.outputDirectory.c_str()), 0);
  rig.directory.write(sampleSessionID, "a file");
  expectGenericFailedStart(rig, "prepare-output");
  EXPECT_EQ(rig.directory.read(sampleSessionID), "a file");
}

TEST(RecordingServiceStart, TheDirectoryMustBeNoLinkEvenWithASlashBehindIt) {
  for (const char* end : {"", "/"}) {
    Rig rig;
    ASSERT_EQ(::rmdir(rig.request.outputDirectory.c_str()), 0);
    rig.files.makeDirectory(rig.directory / "elsewhere");
    ASSERT_EQ(::symlink((rig.directory / "elsewhere").c_str(), rig.request.outputDirectory.c_str()), 0);
    rig.request.outputDirectory += end;
    expectGenericFailedStart(rig, "prepare-output");
    EXPECT_EQ(rig.files.list(rig.directory / "elsewhere", 10)->size(), 0u);
  }
}

TEST(RecordingServiceStart, AnEarlierRecordingIsNotTouched) {
  for (const std::string name :
       {"recording.mp4", "screen.mp4", "camera.mp4", "system-audio.m4a", "microphone.m4a"}) {
    Rig rig;
    rig.write(name, "earlier");
    expectGenericFailedStart(rig, "prepare-output");
    EXPECT_THAT(rig.entries(), ElementsAre(name));
    EXPECT_EQ(rig.read(name), "earlier");
  }
}

TEST(RecordingServiceStart, ADanglingLinkInAnOutputsPlaceIsAnExistingOutput) {
  Rig rig;
  ASSERT_EQ(::symlink("nowhere", rig.path("screen.mp4").c_str()), 0);
  expectGenericFailedStart(rig, "prepare-output");
}

TEST(RecordingServiceStart, TheSegmentsFolderMustBeMade) {
  Rig rig;
  rig.files.failAlways(FileOperation::makeDirectory, ENOSPC);
  expectGenericFailedStart(rig, "prepare-output");
  EXPECT_THAT(rig.entries(), IsEmpty());
}

// ---- Stream and writer

TEST(RecordingServiceStart, TheStreamMustBeHad) {
  Rig rig;
  rig.streams.refuses = true;
  expectGenericFailedStart(rig, "interaction-recorder");
}

TEST(RecordingServiceStart, TheCodecsMustBeInstalled) {
  Rig rig;
  rig.media.isUnavailable = true;
  expectFailedStart(rig, "prepare-writer", "codecUnavailable",
                    "The selected recording codec is unavailable on this Mac.");
  EXPECT_THAT(rig.entries(), ElementsAre("segments/"));
}

TEST(RecordingServiceStart, TheCodecMustApply) {
  Rig rig;
  rig.media.prepare = [](ScriptedMediaFile& file, std::size_t) { file.appliesSettings = false; };
  expectFailedStart(rig, "prepare-writer", "codecUnavailable",
                    "The selected recording codec is unavailable on this Mac.");
}

TEST(RecordingServiceStart, TheWriterMustTakeTheScreenTrack) {
  Rig rig;
  rig.media.prepare = [](ScriptedMediaFile& file, std::size_t) { file.addsInput = false; };
  expectGenericFailedStart(rig, "prepare-writer");
}

TEST(RecordingServiceStart, ASegmentOfAnotherSessionIsNotOverwritten) {
  Rig rig;
  rig.files.makeDirectory(rig.path("segments"));
  rig.write("segments/segment-0000.mp4", "earlier");
  expectGenericFailedStart(rig, "prepare-writer");
  EXPECT_EQ(rig.read("segments/segment-0000.mp4"), "earlier");
}

TEST(RecordingServiceStart, TheStreamMustTakeTheWriter) {
  Rig rig;
  rig.streams.prepare = [](ScriptedScreenStream& stream) { stream.refusesOutputs = true; };
  expectGenericFailedStart(rig, "start-capture");
}

TEST(RecordingServiceStart, TheStreamMustStart) {
  Rig rig;
  rig.streams.prepare = [](ScriptedScreenStream& stream) { stream.refusesToStart = true; };
  expectGenericFailedStart(rig, "start-capture");
  EXPECT_THAT(rig.stream().calls, ElementsAre("addScreenOutput", "startCapture", "removeScreenOutput"));
}

TEST(RecordingServiceStart, ThePictureMustComeInTime) {
  Rig rig;
  rig.streams.prepare = [](ScriptedScreenStream&) {};
  rig.makeQueue = [&rig](const std::string& label) {
    return std::make_unique<ImpatientQueue>(rig.scheduler.makeQueue(label));
  };
  expectFailedStart(rig, "start-capture", "recordingScreenStalled",
                    "Screen frames stopped being written. Recording sources were retained for recovery.");
  EXPECT_THAT(rig.stream().calls,
              ElementsAre("addScreenOutput", "startCapture", "removeScreenOutput", "stopCapture"));
}

TEST(RecordingServiceStart, AWriterThatFailsAtItsFirstPictureEndsTheStart) {
  Rig rig;
  rig.media.prepare = [&rig](ScriptedMediaFile& file, std::size_t) {
    rig.produceMovie(file);
    file.refusedAppend = 0;
  };
  expectGenericFailedStart(rig, "start-capture");
  EXPECT_THAT(rig.diagnostics(), ElementsAre(HasSubstr("recording-writer-failed stage=append-screen"),
                                             HasSubstr("recording-failed stage=start-capture")));
  EXPECT_THAT(rig.entries(), ElementsAre("segments/")) << "nothing was recorded, so nothing is kept";
}

TEST(RecordingServiceStart, AHostThatReadsNoEventsEndsTheStart) {
  Rig rig;
  rig.onEvent = [](const std::string&) { throw FileFailure(FileOperation::write, EPIPE); };
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(), ElementsAre(HasSubstr("\"recording\""), recordingFailed))
      << "it is tried to be told, and that it cannot be is ignored";
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("start-capture"));
  EXPECT_EQ(rig.scheduler.timerCount(), 0u);
  EXPECT_THAT(rig.stream().calls, ::testing::Contains("stopCapture"));
}

// ---- What the stream is asked for

TEST(RecordingServiceStart, ADisplayIsShownWithoutExclusions) {
  Rig rig;
  rig.thenSend("cancel");
  ASSERT_EQ(rig.run(), 0);
  ContentFilter filter;
  filter.displayID = 77;
  EXPECT_EQ(rig.stream().filter, filter);
  EXPECT_EQ(rig.stream().configuration.sourceRect, (RectDTO{0, 0, 1920, 1080}));
  EXPECT_EQ(rig.stream().configuration.width, 1920);
  EXPECT_EQ(rig.stream().configuration.height, 1080);
  EXPECT_EQ(rig.segment(0).video->averageBitRate, 6'220'800);
  EXPECT_EQ(rig.segment(0).options.path, rig.path("segments/segment-0000.mp4"));
}

TEST(RecordingServiceStart, ExcludedApplicationsAreLeftOutOfADisplayAndNotOfAWindow) {
  Rig display;
  display.contentService.emplace(display.desktop, std::set<std::string, std::less<>>(),
                                 std::set<std::int32_t>{sampleWindow().ownerPID});
  display.thenSend("cancel");
  ASSERT_EQ(display.run(), 0);
  EXPECT_EQ(display.stream().filter.excludedApplications.size(), 1u);

  Rig window;
  makeWindow(window.request);
  window.thenSend("cancel");
  ASSERT_EQ(window.run(), 0);
  ContentFilter filter;
  filter.kind = ContentFilter::Kind::desktopIndependentWindow;
  filter.displayID = 77;
  filter.windowID = 4194310;
  EXPECT_EQ(window.stream().filter, filter);
  EXPECT_EQ(window.stream().configuration.width, 640);
}

} // namespace
} // namespace tessarin
