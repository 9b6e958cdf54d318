#include "support/CameraCompositeRig.hpp"

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

// A recorder with a camera, whose track is the second.
class CameraCompositeCameraTest : public CameraCompositeTest {
 protected:
  void SetUp() override { useCamera(); }
  ScriptedMediaTrack& track() { return file().track(1); }
};

TEST_F(CameraCompositeCameraTest, EachOfTheScreensPicturesHasTheCamerasNewestBesideIt) {
  makeAttached();
  deliver(1, 0ms);
  show(101);
  show(102);
  deliver(2, 100ms);
  deliver(3, 200ms);
  EXPECT_EQ(file().appends(), "1@0/10 2@1/10 3@2/10");
  EXPECT_EQ(track().appends(), "100@0/10 102@1/10 102@2/10");
}

TEST_F(CameraCompositeCameraTest, FillersAndHeartbeatsHaveItToo) {
  makeAttached();
  deliver(1, 0ms);
  show(101);
  deliver(2, 200ms);
  show(102);
  advanceTo(400ms);
  EXPECT_EQ(file().appends(), "1@0/10 1@1/10 2@2/10 2@400000000/1000000000");
  EXPECT_EQ(track().appends(), "100@0/10 101@1/10 101@2/10 102@400000000/1000000000");
}

TEST_F(CameraCompositeCameraTest, APictureThatIsStillTheSameIsConvertedOnce) {
  makeAttached();
  deliver(1, 0ms);
  deliver(2, 100ms);
  deliver(3, 200ms);
  EXPECT_EQ(track().renderCount, 1u);
  show(100); // another picture, though it looks the same
  deliver(4, 300ms);
  EXPECT_EQ(track().renderCount, 2u);
  EXPECT_EQ(track().appended.size(), 4u);
}

// ---- Readiness

TEST_F(CameraCompositeCameraTest, APictureWaitsUntilBothTracksAreReadyAndKeepsTheCamerasOfItsMoment) {
  makeAttached();
  deliver(1, 0ms);
  track().setReady(false);
  show(101);
  deliver(2, 100ms);
  EXPECT_EQ(file().appends(), "1@0/10");
  EXPECT_EQ(file().observerCount(), 1u);
  EXPECT_EQ(track().observerCount(), 1u);
  EXPECT_EQ(framesTold, 1);

  show(102);
  track().setReady(true);
  scheduler.runPending();
  EXPECT_EQ(file().appends(), "1@0/10 2@1/10");
  EXPECT_EQ(track().appends(), "100@0/10 101@1/10");
  EXPECT_EQ(framesTold, 2);
  EXPECT_EQ(track().observerCount(), 1u) << "the observations stay";
}

TEST_F(CameraCompositeCameraTest, TheScreensTrackMayBeTheBusyOne) {
  makeAttached();
  deliver(1, 0ms);
  file().setReady(false);
  track().setReady(false);
  deliver(2, 100ms);
  track().setReady(true);
  scheduler.runPending();
  EXPECT_EQ(file().appends(), "1@0/10");
  file().setReady(true);
  scheduler.runPending();
  EXPECT_EQ(file().appends(), "1@0/10 2@1/10");
  EXPECT_EQ(track().appends(), "100@0/10 100@1/10");
}

TEST_F(CameraCompositeCameraTest, OfPicturesThatWaitOnlyTheNewestSurvivesWithItsCamerasPicture) {
  makeAttached();
  deliver(1, 0ms);
  track().setReady(false);
  show(101);
  deliver(2, 100ms);
  show(102);
  deliver(3, 130ms); // slot 1 as well
  track().setReady(true);
  scheduler.runPending();
  EXPECT_EQ(file().appends(), "1@0/10 3@1/10");
  EXPECT_EQ(track().appends(), "100@0/10 102@1/10");
}

TEST_F(CameraCompositeCameraTest, FinishingEndsBothObservations) {
  makeAttached();
  deliver(1, 0ms);
  track().setReady(false);
  deliver(2, 100ms);
  recorder->detach(*stream);
  recorder->finish();
  EXPECT_EQ(file().observerCount(), 0u);
  EXPECT_EQ(track().observerCount(), 0u);
}

// ---- Failures

TEST_F(CameraCompositeCameraTest, ACameraThatHasEndedFailsTheNextPictureWhichIsInTheFileAlready) {
  makeAttached();
  deliver(1, 0ms);
  devices.cameras[0]->end();
  scheduler.runPending();
  deliver(2, 100ms);
  EXPECT_THAT(lines, ElementsAre(writerFailedLine("camera-frame-unavailable", 1)));
  EXPECT_EQ(file().appends(), "1@0/10 2@1/10");
  EXPECT_EQ(track().appends(), "100@0/10");
  EXPECT_EQ(framesTold, 2);
  EXPECT_EQ(failuresTold, 1);
  recorder->detach(*stream);
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), cameraUnavailable);
  destroy();
  EXPECT_THAT(file().calls, ElementsAre("startWriting", "startSession 0")) << "the file stays as it is";
}

TEST_F(CameraCompositeCameraTest, ACameraWithoutAPictureFromTheStartNeverLetsTheSegmentStart) {
  makeAttached();
  camera->stop();
  deliver(1, 0ms);
  EXPECT_THAT(lines, ElementsAre(writerFailedLine("camera-frame-unavailable", 1)));
  EXPECT_EQ(errorOf([&] { recorder->waitUntilStarted(5s); }), cameraUnavailable);
  EXPECT_EQ(scheduler.timerCount(), 0u) << "no heartbeat either";
}

TEST_F(CameraCompositeCameraTest, ACameraWithoutATrackFailsTheFirstPicture) {
  // Its size is less than two pixels, so there is none to make a track of.
  show(101, 1, 1);
  makeAttached();
  EXPECT_EQ(file().trackCount, 1u);
  deliver(1, 0ms);
  EXPECT_THAT(lines, ElementsAre(writerFailedLine("camera-frame-unavailable", 1)));
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), cameraUnavailable);
}

TEST_F(CameraCompositeCameraTest, AFileThatFailsBehindTheScreensPictureHasNoneForTheCameras) {
  makeAttached();
  whenFrameIsTold = [this] { file().failMeanwhile(); };
  deliver(1, 0ms);
  EXPECT_THAT(lines, ElementsAre(writerFailedLine("camera-pixel-buffer-pool", 3)));
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), cameraUnavailable);
}

TEST_F(CameraCompositeCameraTest, APictureThatCannotBeConvertedFails) {
  makeAttached();
  track().renders = false;
  deliver(1, 0ms);
  EXPECT_THAT(lines, ElementsAre(writerFailedLine("allocate-camera-frame", 1)));
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), cameraUnavailable);
}

TEST_F(CameraCompositeCameraTest, APictureThatIsRefusedFails) {
  makeAttached();
  track().refusedAppend = 1;
  deliver(1, 0ms);
  deliver(2, 100ms);
  EXPECT_THAT(lines, ElementsAre(writerFailedLine("append-camera", 3)));
  EXPECT_EQ(file().appended.size(), 2u);
  EXPECT_EQ(track().appended.size(), 1u);
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), cameraUnavailable);
}

TEST_F(CameraCompositeCameraTest, APictureThatWaitedMayFailToo) {
  makeAttached();
  deliver(1, 0ms);
  track().setReady(false);
  deliver(2, 100ms);
  track().refusedAppend = 1;
  track().setReady(true);
  scheduler.runPending();
  EXPECT_THAT(lines, ElementsAre(writerFailedLine("append-camera", 3)));
  EXPECT_EQ(file().observerCount(), 0u);
  EXPECT_EQ(track().observerCount(), 0u);
}

TEST_F(CameraCompositeCameraTest, WithACameraFailuresOfTheScreenAreTheCamerasToo) {
  media.prepare = [](ScriptedMediaFile& script, std::size_t) { script.refusedAppend = 0; };
  makeAttached();
  deliver(1, 0ms);
  EXPECT_THAT(lines, ElementsAre(writerFailedLine("append-screen", 3)));
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), cameraUnavailable);
}

TEST_F(CameraCompositeCameraTest, CancellingIsToldAsARecordingsFailureAlsoWithACamera) {
  makeAttached();
  recorder->detach(*stream);
  recorder->cancel();
  EXPECT_EQ(errorOf([&] { recorder->waitUntilStarted(5s); }), recordingFailed);
  EXPECT_THAT(lines, IsEmpty());
}

} // namespace
} // namespace tessarin
