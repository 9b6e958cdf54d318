// The watch over the disk, on a small volume of its own.

#include "support/RecordingServiceTesting.hpp"
#include "support/SmallVolume.hpp"

#include "recording/RecordingHealthMonitor.hpp"

#include <sys/mount.h>

#include <atomic>
#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using namespace tessarin::testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr std::uint64_t mib = 1'048'576;

class StorageHealth : public ::testing::Test {
 protected:
  StorageHealth() {
    machineFileSystem().makeDirectory(volume.path() + "/segments");
    volume.fill("segments/segment-0000.mp4", 4096);
  }

  void start() {
    monitor.start(sampleSettings(), nullptr, volume.path(), "S", events, [this] { ++failures; });
  }
  // A second passes with the screen alive; yields what was sent.
  std::string check() {
    lines.clear();
    monitor.wroteScreenFrame();
    scheduler.advance(1s);
    return lines;
  }
  static std::string lineOf(const std::string& storage) {
    return R"({"event":"healthChanged","health":{"screen":"healthy","storage":")" + storage +
           R"("},"schemaVersion":2,"sessionId":"S"})" + "\n";
  }

  SmallVolume volume{1100 * mib};
  ManualClock clock{1000s};
  ManualScheduler scheduler{clock};
  std::string lines;
  int failures = 0;
  RecordingEventWriter events{[this](std::string_view bytes) { lines += bytes; }};
  RecordingHealthMonitor monitor{clock, machineFileSystem(), scheduler.queueFactory()};
};

TEST_F(StorageHealth, GoesFromHealthyToLowToCriticalWithTheVolume) {
  volume.setFreeBytes(1024 * mib);
  start();
  EXPECT_EQ(check(), lineOf("healthy"));
  volume.fill("something", 4096); // somebody else's
  EXPECT_EQ(check(), lineOf("low"));
  volume.setFreeBytes(256 * mib);
  EXPECT_EQ(check(), "") << "low still";
  EXPECT_EQ(monitor.terminalError(), std::nullopt);
  volume.setFreeBytes(256 * mib - 4096);
  EXPECT_EQ(check(), lineOf("critical"));
  EXPECT_EQ(failures, 1);
  EXPECT_EQ(
      monitor.terminalError(),
      (NativeServiceError{
          NativeErrorCode::recordingStorageLow,
          "Recording stopped before storage filled. Recording sources were retained for recovery.", true}));
}

TEST_F(StorageHealth, RecoversWithTheVolumeWhileItIsOnlyLow) {
  volume.setFreeBytes(512 * mib);
  start();
  EXPECT_EQ(check(), lineOf("low"));
  volume.setFreeBytes(1024 * mib);
  EXPECT_EQ(check(), lineOf("healthy"));
  EXPECT_EQ(failures, 0);
}

TEST_F(StorageHealth, LeavesRoomForTwiceTheSegmentsThatLieOnTheVolume) {
  volume.fill("segments/segment-0001.mp4", 64 * mib - 4096);
  volume.setFreeBytes(256 * mib); // twice 64 MiB and 128 MiB
  start();
  EXPECT_EQ(check(), lineOf("low"));
  volume.fill("segments/segment-0002.mp4", 4096); // takes a page, and wants two more
  EXPECT_EQ(check(), lineOf("critical"));
  EXPECT_EQ(failures, 1);
}

TEST_F(StorageHealth, IsUnknownWhenTheVolumeHasGone) {
  start();
  EXPECT_EQ(check(), lineOf("healthy"));
  ASSERT_EQ(::umount2(volume.path().c_str(), MNT_DETACH), 0);
  EXPECT_EQ(check(), lineOf("unknown"));
  EXPECT_EQ(failures, 0);
}

TEST(StorageHealthSession, ARecordingEndsBeforeItsVolumeIsFullAndKeepsWhatItHas) {
  const SmallVolume volume(1100 * mib);
  RecordingRig rig;
  rig.request.outputDirectory = volume.path() + "/" + sampleSessionID;
  rig.files.makeDirectory(rig.request.outputDirectory);
  std::atomic<bool> isFilling = false;
  rig.then([&] {
    rig.record(1s);
    volume.setFreeBytes(200 * mib);
    isFilling = true;
  });
  std::int32_t status = -1;
  std::thread session([&] { status = rig.run(); });
  while (!isFilling || rig.scheduler.timerCount() < 2) // the writer's heartbeat and the watch
    std::this_thread::yield();
  rig.scheduler.advance(1s);
  session.join();
  EXPECT_EQ(status, 1);
  EXPECT_THAT(
      rig.events(),
      ElementsAre(state("recording", 0), HasSubstr(R"("storage":"critical")"), HasSubstr("segmentFinalized"),
                  failed("recordingStorageLow", "Recording stopped before storage filled. Recording sources "
                                                "were retained for recovery.")));
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("unexpected-stream-stop", "recordingStorageLow"));
  const std::string manifest = rig.request.outputDirectory + "/native-manifest.json";
  EXPECT_TRUE(machineFileSystem().info(manifest)) << "the segment is safe";
}

} // namespace
} // namespace tessarin
