// Microphones, cameras and the computer's sound at the start of a recording: what each refusal is called, and
// that it leaves nothing running.

#include "support/RecordingServiceTesting.hpp"

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using namespace tessarin::testing;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using Rig = RecordingRig;
using Source = ScriptedDevices::Source;
using Calls = std::vector<std::string>;

// Fails before anything is made, and leaves nothing running.
void expectRefused(Rig& rig, const std::string& event, const std::string& line, const Calls& calls) {
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(), ElementsAre(event));
  EXPECT_EQ(rig.lastDiagnostics(), line);
  EXPECT_EQ(rig.devices.calls(), calls);
  EXPECT_THAT(rig.entries(), IsEmpty());
  EXPECT_THAT(rig.streams.streams, IsEmpty());
  EXPECT_EQ(rig.scheduler.pendingCount(), 0U);
  expectDevicesStopped(rig);
}

TEST(RecordingServiceSourcesStart, NeedAServerOfSoundAndCameras) {
  Rig microphone;
  microphone.use(true, true, true);
  microphone.devices.reachable = false;
  expectRefused(microphone, microphoneUnavailable, failedLine("microphone-start", "microphoneUnavailable"),
                {"open microphone"});
  Rig camera;
  camera.use(true, false, true);
  camera.devices.reachable = false;
  expectRefused(camera, cameraUnavailable, failedLine("camera-start", "cameraUnavailable"), {"open camera"});
}

TEST(RecordingServiceSourcesStart, NeedTheDevicesThatWereChosen) {
  Rig microphone;
  microphone.use(false, true, false);
  microphone.request.settings.microphoneDeviceID = "gone";
  expectRefused(microphone, microphoneUnavailable, failedLine("microphone-start", "microphoneUnavailable"),
                {"open microphone"});
  Rig camera;
  camera.use(false, false, true);
  camera.request.settings.cameraDeviceID = "gone";
  expectRefused(camera, cameraUnavailable, failedLine("camera-start", "cameraUnavailable"), {"open camera"});
}

TEST(RecordingServiceSourcesStart, OpenNothingThatThePersonHasRefused) {
  Rig microphone;
  microphone.use(false, true, true);
  microphone.authorization.audio = CaptureAuthorizationStatus::denied;
  expectRefused(microphone, microphoneDenied, failedLine("microphone-start", "microphoneDenied"), {});
  Rig camera;
  camera.use(false, true, true);
  camera.authorization.video = CaptureAuthorizationStatus::denied;
  expectRefused(camera, cameraDenied, failedLine("camera-start", "cameraDenied"),
                {"open microphone", "start microphone", "stop microphone"});
}

TEST(RecordingServiceSourcesStart, MayBeRefusedByTheirDevice) {
  Rig microphone;
  microphone.use(false, true, false);
  microphone.devices.refusesMicrophone = CaptureDeviceError::denied;
  expectRefused(microphone, microphoneDenied, failedLine("microphone-start", "microphoneDenied"),
                {"open microphone"});
  Rig camera;
  camera.use(false, true, true);
  camera.devices.prepare = [prepare = camera.devices.prepare](ScriptedDevice& device, Source source) {
    prepare(device, source);
    if (source == Source::camera)
      device.refusesToStart = CaptureDeviceError::denied;
  };
  expectRefused(camera, cameraDenied, failedLine("camera-start", "cameraDenied"),
                {"open microphone", "start microphone", "open camera", "start camera", "stop microphone"});
}

TEST(RecordingServiceSourcesStart, MustDeliverInTime) {
  Rig microphone;
  microphone.use(false, true, false);
  microphone.devices.prepare = nullptr;
  expectRefused(microphone, microphoneUnavailable, failedLine("microphone-start", "microphoneUnavailable"),
                {"open microphone", "start microphone", "stop microphone"});
  EXPECT_EQ(microphone.clock.elapsed(), 10s + 39 * 50ms);

  Rig camera;
  camera.use(false, true, true);
  camera.devices.prepare = [prepare = camera.devices.prepare](ScriptedDevice& device, Source source) {
    if (source == Source::microphone)
      prepare(device, source);
  };
  expectRefused(camera, cameraUnavailable, failedLine("camera-start", "cameraUnavailable"),
                {"open microphone", "start microphone", "open camera", "start camera", "stop camera",
                 "stop microphone"});
  EXPECT_EQ(camera.clock.elapsed(), 10s + 39 * 50ms);
}

TEST(RecordingServiceSourcesStart, ACameraNeedsASize) {
  Rig rig;
  rig.use(false, true, true);
  rig.cameraSize = {1, 720};
  expectRefused(rig, cameraUnavailable, failedLine("camera-start", "cameraUnavailable"),
                {"open microphone", "start microphone", "open camera", "start camera", "stop camera",
                 "stop microphone"});
}

TEST(RecordingServiceSourcesStart, RunBeforeTheStreamDoesAndItsSoundBeforeItsPictures) {
  Rig rig;
  rig.use(true, true, true);
  std::vector<std::size_t> streamCalls;
  rig.devices.prepare = [&, prepare = rig.devices.prepare](ScriptedDevice& device, Source source) {
    prepare(device, source);
    streamCalls.push_back(rig.streams.streams.empty() ? 0 : rig.stream().calls.size());
  };
  rig.thenSend("cancel");
  ASSERT_EQ(rig.run(), 0);
  EXPECT_THAT(streamCalls, ElementsAre(0, 0, 1)) << "the outputs are there, and it does not capture yet";
}

TEST(RecordingServiceSourcesStart, ComputersSoundThatCannotBeHadFailsTheCapture) {
  for (const bool isOpened : {false, true}) {
    Rig rig;
    rig.use(true, true, true);
    if (isOpened)
      rig.devices.prepare = [prepare = rig.devices.prepare](ScriptedDevice& device, Source source) {
        prepare(device, source);
        if (source == Source::systemAudio)
          device.refusesToStart = CaptureDeviceError::unavailable;
      };
    else
      rig.devices.hasSystemAudio = false;
    EXPECT_EQ(rig.run(), 1);
    EXPECT_THAT(rig.events(), ElementsAre(recordingFailed));
    EXPECT_EQ(rig.lastDiagnostics(), failedLine("start-capture"));
    EXPECT_THAT(rig.stream().calls, Not(Contains("startCapture")));
    EXPECT_THAT(rig.entries(), ElementsAre("camera-layout.json", "segments/"));
    EXPECT_EQ(rig.stream().outputCount(), 0U);
    expectDevicesStopped(rig);
  }
}

TEST(RecordingServiceSourcesStart, StopWhenALaterStepOfTheStartFails) {
  struct Row {
    const char* stage;
    std::function<void(Rig&)> spoil;
  };
  for (const Row& row : {Row{"prepare-output", [](Rig& rig) { rig.write("camera.mp4", "earlier"); }},
                         Row{"interaction-recorder", [](Rig& rig) { rig.streams.refuses = true; }},
                         Row{"prepare-writer",
                             [](Rig& rig) {
                               rig.files.makeDirectory(rig.path("segments"));
                               rig.write("segments/segment-0000.mp4", "earlier");
                             }},
                         Row{"start-capture", [](Rig& rig) {
                               rig.streams.prepare = [](ScriptedScreenStream& stream) {
                                 stream.refusesToStart = true;
                               };
                             }}}) {
    Rig rig;
    rig.use(false, true, true);
    row.spoil(rig);
    EXPECT_EQ(rig.run(), 1);
    EXPECT_THAT(rig.events(), ElementsAre(recordingFailed));
    EXPECT_EQ(rig.lastDiagnostics(), failedLine(row.stage));
    EXPECT_EQ(rig.devices.calls(), (Calls{"open microphone", "start microphone", "open camera",
                                          "start camera", "stop camera", "stop microphone"}));
    expectDevicesStopped(rig);
  }
}

TEST(RecordingServiceSourcesStart, AMicrophoneThatEndsBeforeTheFirstPictureEndsTheSessionAtItsFirstRead) {
  Rig rig;
  rig.use(false, true, false);
  rig.streams.prepare = [&](ScriptedScreenStream& stream) {
    stream.presentPicture = 1;
    rig.microphone().end();
  };
  rig.then([&] { rig.clock.advance(20ms); });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(),
              ElementsAre(state("recording", 0), segmentFinalized(0, 33, 33), microphoneUnavailable));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("unexpected-stream-stop", "microphoneUnavailable"));
  expectQuiet(rig);
}

TEST(RecordingServiceSourcesStart, ACameraThatEndsBeforeTheFirstPictureFailsTheStart) {
  Rig rig;
  rig.use(false, false, true);
  rig.streams.prepare = [&](ScriptedScreenStream& stream) {
    stream.presentPicture = 1;
    rig.camera().end();
  };
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(), ElementsAre(cameraUnavailable));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("start-capture", "cameraUnavailable"));
  expectQuiet(rig);
}

} // namespace
} // namespace tessarin
