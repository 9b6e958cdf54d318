#include "backends/posix/ModuleMediaFileWriterFactory.hpp"
#include "base/SafeFile.hpp"
#include "container/Movie.hpp"
#include "support/CameraCompositeRig.hpp"
#include "support/TemporaryDirectory.hpp"

#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using container::TrackKind;
using testing::ElementsAre;

// A segment's writer with the real module, on threads of its own; pictures and sound come as the test says.
class SegmentWriterTest : public CameraCompositeTest {
 protected:
  void SetUp() override {
    makeQueue = makeSourceQueue = makeThreadQueue;
    mediaFactory = &module;
    outputPath = directory / "segment.mp4";
  }
  void TearDown() override { destroy(); }

  // One picture each tenth of a second, from the first to before the last.
  void record(int first, int end) {
    for (int i = first; i < end; ++i)
      deliver(static_cast<std::uint8_t>(i), i * 100ms);
  }
  // Pictures until the file's first fragment, which holds a second, can be read. Yields their number.
  int recordUntilReadable(std::size_t tracks) {
    int count = 0;
    while (readableSamples(tracks - 1) < 10) {
      record(count, count + 1);
      ++count;
      std::this_thread::yield();
    }
    return count;
  }
  // Ten milliseconds of sound after the other.
  static void hear(ScriptedDevice& device, std::chrono::milliseconds end) {
    for (auto time = 0ms; time < end; time += 10ms)
      device.deliver(steadySample(0.25F, 480, hostTime(time)));
  }
  void waitForCamera() {
    while (!camera->latestFrame())
      std::this_thread::yield();
  }
  container::Movie movie() const {
    return container::readMovie(*machineFileSystem().open(outputPath, OpenMode::read));
  }
  std::size_t readableSamples(std::size_t track) const {
    try {
      return movie().tracks.at(track).samples.size();
    } catch (const std::exception&) {
      return 0; // not there yet, or being written
    }
  }

  TemporaryDirectory directory;
  ModuleLoader loader{{TESSARIN_MODULE_DIRECTORY}, [](const std::string&) {}};
  ModuleMediaFileWriterFactory module{loader, machineFileSystem()};
};

TEST_F(SegmentWriterTest, AFileHasATrackForEachSourceAndAllBeginAndEndTogether) {
  useCamera(64, 48);
  useSystemAudio();
  useMicrophone();
  waitForCamera();
  makeAttached();
  deliver(0, 0s);
  recorder->waitUntilStarted(5s);
  // No more than the coder takes at once. Behind it there is silence up to the end of the pictures.
  hear(*devices.systemAudios.at(0), 400ms);
  hear(*devices.microphones.at(0), 400ms);
  record(1, 9);
  recorder->detach(*stream);
  ASSERT_EQ(errorOf([&] { recorder->finish(); }), std::nullopt) << testing::PrintToString(lines);

  const std::vector<container::Track> tracks = movie().tracks;
  ASSERT_EQ(tracks.size(), 4u);
  EXPECT_EQ(tracks[0].kind, TrackKind::video);
  EXPECT_EQ(tracks[1].kind, TrackKind::video);
  EXPECT_EQ(tracks[2].kind, TrackKind::audio);
  EXPECT_EQ(tracks[3].kind, TrackKind::audio);
  EXPECT_EQ(tracks[0].descriptions.at(0).width, 640);
  EXPECT_EQ(tracks[1].descriptions.at(0).width, 64);
  for (const container::Track& track : tracks) {
    EXPECT_EQ(track.start, MediaTime::zero());
    EXPECT_NEAR(track.duration.seconds(), 0.9, 0.025);
  }
  EXPECT_EQ(tracks[0].samples.size(), 9u);
  EXPECT_EQ(tracks[1].samples.size(), 9u);
  EXPECT_EQ(tracks[0].duration, tracks[1].duration);
  EXPECT_THAT(lines,
              ElementsAre(testing::AllOf(
                  testing::HasSubstr("videoDeliveryPermille=1000"),
                  testing::HasSubstr("systemAudioDriftMs=0/410 microphoneDriftMs=0/410 cameraDriftMs=0/0 "
                                     "screenFrames=9 cameraFrames=9"))));
}

TEST_F(SegmentWriterTest, ASegmentThatFailsLeavesItsFileReadable) {
  useCamera(64, 48);
  waitForCamera();
  makeAttached();
  const int count = recordUntilReadable(2);
  devices.cameras.at(0)->end();
  while (camera->latestFrame())
    std::this_thread::yield();
  record(count, count + 1);
  // The coder may be busy, and the picture wait.
  while (!errorOf([&] { recorder->waitUntilStarted(5s); }))
    std::this_thread::yield();
  EXPECT_THAT(lines, ElementsAre(writerFailedLine("camera-frame-unavailable", 1)));
  recorder->detach(*stream);
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), cameraUnavailable);
  recorder.reset();
  EXPECT_GE(readableSamples(0), 10u);
  EXPECT_GE(readableSamples(1), 10u);
  EXPECT_TRUE(movie().isFragmented);
}

TEST_F(SegmentWriterTest, ASegmentThatIsLetGoLeavesItsFileReadable) {
  makeAttached();
  recordUntilReadable(1);
  destroy();
  EXPECT_GE(readableSamples(0), 10u);
}

TEST_F(SegmentWriterTest, ASegmentThatIsCancelledLeavesNoFile) {
  makeAttached();
  record(0, 15);
  recorder->detach(*stream);
  recorder->cancel();
  EXPECT_FALSE(exists(machineFileSystem(), outputPath));
}

} // namespace
} // namespace tessarin
