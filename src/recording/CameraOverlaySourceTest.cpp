// What a camera keeps of its pictures; its life is told in CaptureSourceTest.

#include "recording/CameraOverlaySource.hpp"
#include "support/ManualClock.hpp"
#include "support/ManualQueue.hpp"
#include "support/ScriptedDevices.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

using namespace std::chrono_literals;

class CameraOverlaySourceTest : public ::testing::Test {
 protected:
  CameraOverlaySourceTest() { source.start(); }

  ScriptedDevice& device() { return *devices.cameras.at(0); }
  void deliver(std::uint8_t number, std::int32_t width = 64, std::int32_t height = 48) {
    device().deliver(numberedCameraFrame(number, width, height, MediaTime(1, 1)));
  }

  ManualClock clock{10s};
  ManualScheduler scheduler{clock};
  ScriptedDevices devices;
  ScriptedCaptureAuthorization authorization;
  CameraOverlaySource source{
      devices, authorization, std::nullopt, clock, scheduler.queueFactory(), [](std::chrono::milliseconds) {},
      [] {}};
};

TEST_F(CameraOverlaySourceTest, KeepsTheNewestPictureAndWhenItCameByTheHostClock) {
  EXPECT_FALSE(source.latestFrame());
  EXPECT_FALSE(source.latestFrameReceivedAt());
  deliver(1);
  deliver(2);
  EXPECT_FALSE(source.latestFrame()) << "not on the device's thread";
  scheduler.runPending();
  EXPECT_EQ(source.latestFrame()->view.data[0], 2);
  EXPECT_EQ(source.latestFrameReceivedAt(), MediaTime(10, 1));
  clock.set(25s);
  EXPECT_EQ(source.latestFrame()->view.data[0], 2) << "however old";
  EXPECT_EQ(source.latestFrameReceivedAt(), MediaTime(10, 1));
}

TEST_F(CameraOverlaySourceTest, HasNoPictureBehindItsEnd) {
  deliver(1);
  scheduler.runPending();
  deliver(2);
  device().end();
  EXPECT_FALSE(source.latestFrame());
  EXPECT_FALSE(source.currentFrameSize());
  scheduler.runPending();
  EXPECT_FALSE(source.latestFrame()) << "not even what waited on the queue";
  EXPECT_EQ(source.latestFrameReceivedAt(), MediaTime(10, 1)) << "its age goes on";
}

TEST_F(CameraOverlaySourceTest, HasNoPictureBehindAStop) {
  deliver(1);
  scheduler.runPending();
  source.stop();
  EXPECT_FALSE(source.latestFrame());
}

TEST_F(CameraOverlaySourceTest, TellsItsSizeInEvenPixels) {
  EXPECT_EQ(source.currentFrameSize(), std::nullopt);
  struct Row {
    std::int32_t width, height;
    std::optional<SizeDTO> size;
  };
  for (const Row& row :
       {Row{1281, 721, SizeDTO{1280, 720}}, Row{1280, 720, SizeDTO{1280, 720}}, Row{2, 2, SizeDTO{2, 2}},
        Row{3, 3, SizeDTO{2, 2}}, Row{1, 720, std::nullopt}, Row{1280, 1, std::nullopt}}) {
    deliver(1, row.width, row.height);
    scheduler.runPending();
    EXPECT_EQ(source.currentFrameSize(), row.size) << row.width << " x " << row.height;
  }
}

} // namespace
} // namespace tessarin
