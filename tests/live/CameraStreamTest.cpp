#include "live/CameraTesting.hpp"

#include <algorithm>
#include <thread>

// The camera's stream against cameras of our own on a server of our own: what is delivered, and when.
namespace tessarin {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

struct Offer {
  const char* name;
  std::vector<std::string> arguments;
  int width;
  int height;
  int tolerance;
};

class CameraFormatsLive : public CameraTest, public testing::WithParamInterface<Offer> {};

TEST_P(CameraFormatsLive, DeliverTheirColoursInOrder) {
  const auto& offer = GetParam();
  const auto camera = plugIn(offer.arguments);
  CameraReceiver receiver;
  const auto stream = open(receiver);
  stream->start();
  ASSERT_TRUE(receiver.hasCome(10));
  stream->stop();
  const auto deliveries = receiver.deliveries();
  for (std::size_t i = 0; i < deliveries.size(); ++i) {
    EXPECT_EQ(deliveries[i].width, offer.width);
    EXPECT_EQ(deliveries[i].height, offer.height);
    ASSERT_TRUE(deliveries[i].number) << "frame " << i;
    EXPECT_LE(deliveries[i].worstBar, offer.tolerance) << "frame " << i;
    EXPECT_TRUE(i == 0 || *deliveries[i].number > *deliveries[i - 1].number) << "frame " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(
    All, CameraFormatsLive,
    testing::Values(
        Offer{"Yuy2", {"--offer", "yuy2,640x480,30"}, 640, 480, 4},
        Offer{"Uyvy", {"--offer", "uyvy,640x480,30"}, 640, 480, 4},
        Offer{"Nv12", {"--offer", "nv12,640x480,30"}, 640, 480, 4},
        Offer{"I420", {"--offer", "i420,640x480,30"}, 640, 480, 4},
        Offer{"Bgrx", {"--offer", "bgrx,640x480,30"}, 640, 480, 0},
        Offer{"Rgbx", {"--offer", "rgbx,640x480,30"}, 640, 480, 0},
        Offer{"Rgb", {"--offer", "rgb,640x480,30"}, 640, 480, 0},
        Offer{"Jpeg", {"--offer", "mjpg,640x480,30"}, 640, 480, 6},
        Offer{"OddYuy2", {"--offer", "yuy2,1281x721,30"}, 1281, 721, 4},
        Offer{"OddNv12", {"--offer", "nv12,1281x721,30"}, 1281, 721, 4},
        Offer{"OddJpeg", {"--offer", "mjpg,1281x721,30"}, 1281, 721, 6},
        Offer{"PaddedYuy2", {"--offer", "yuy2,322x242,30", "--padding", "36", "--offset", "64"}, 322, 242, 4},
        Offer{"PlanesOfNv12", {"--offer", "nv12,320x240,30", "--planes", "--padding", "64"}, 320, 240, 4},
        Offer{"PlanesOfI420", {"--offer", "i420,320x240,30", "--planes"}, 320, 240, 4},
        Offer{"Bt709Full",
              {"--offer", "nv12,320x240,30", "--bt709", "--full-range", "--tell-rules"},
              320,
              240,
              4},
        Offer{"Bt709", {"--offer", "yuy2,320x240,30", "--bt709", "--tell-rules"}, 320, 240, 4},
        Offer{"Slow", {"--offer", "yuy2,320x240,7"}, 320, 240, 4}),
    [](const auto& tested) { return tested.param.name; });

class CameraStream : public CameraTest {};

TEST_F(CameraStream, MayBeAsSmallAsTwoByTwo) {
  const auto camera = plugIn({"--offer", "yuy2,2x2,30"});
  CameraReceiver receiver;
  const auto stream = open(receiver);
  stream->start();
  ASSERT_TRUE(receiver.hasCome(2));
  EXPECT_EQ(receiver.deliveries()[0].width, 2);
  EXPECT_EQ(receiver.deliveries()[0].height, 2);
}

TEST_F(CameraStream, TakesTheLargestUsefulSizeAndPixelsBeforeJpeg) {
  const auto camera =
      plugIn({"--offer", "mjpg,640x480,30", "--offer", "yuy2,640x480,30", "--offer", "nv12,1280x720,10",
              "--offer", "mjpg,1280x720,30", "--offer", "yuy2,3840x2160,5"});
  CameraReceiver receiver;
  const auto stream = open(receiver);
  stream->start();
  ASSERT_TRUE(receiver.hasCome(1));
  EXPECT_EQ(receiver.deliveries()[0].width, 1280);
  EXPECT_EQ(receiver.deliveries()[0].height, 720);
}

// Stamped when the camera took them, in order, and delivered soon after.
TEST_F(CameraStream, TellsWhenPicturesWereTaken) {
  const auto camera = plugIn();
  CameraReceiver receiver;
  const auto stream = open(receiver);
  stream->start();
  ASSERT_TRUE(receiver.hasCome(31));
  stream->stop();
  const auto deliveries = receiver.deliveries();
  for (std::size_t i = 1; i < deliveries.size(); ++i) {
    EXPECT_LT(deliveries[i - 1].time, deliveries[i].time);
    EXPECT_LE(deliveries[i].time, deliveries[i].arrival);
  }
  std::vector<double> delays;
  for (const auto& delivery : deliveries) {
    delays.push_back((delivery.arrival - delivery.time).seconds());
  }
  std::nth_element(delays.begin(), delays.begin() + 15, delays.end());
  EXPECT_LT(delays[15], 0.08) << "the median";
  const auto frames = *deliveries.back().number - *deliveries.front().number;
  EXPECT_NEAR((deliveries.back().time - deliveries.front().time).seconds(), frames / 30.0, 0.05);
}

TEST_F(CameraStream, StampsFramesWithoutATimeByTheirArrival) {
  const auto camera = plugIn({"--no-header"});
  CameraReceiver receiver;
  const auto stream = open(receiver);
  const auto before = MonotonicHostClock().now();
  stream->start();
  ASSERT_TRUE(receiver.hasCome(3));
  for (const auto& delivery : receiver.deliveries()) {
    EXPECT_GT(delivery.time, before);
    EXPECT_LE(delivery.time, delivery.arrival);
  }
}

// A reader that takes long gets the newest frame each time, not ever older ones.
TEST_F(CameraStream, DropsLateFramesForTheNewest) {
  const auto camera = plugIn();
  CameraReceiver receiver;
  receiver.setDelay(milliseconds(200));
  const auto stream = open(receiver);
  stream->start();
  ASSERT_TRUE(receiver.hasCome(8, seconds(10)));
  stream->stop();
  const auto deliveries = receiver.deliveries();
  const auto& last = deliveries.at(7);
  EXPECT_GE(*last.number - *deliveries[0].number, 28U) << "several are left out between any two";
  EXPECT_LT((last.arrival - last.time).seconds(), 0.15);
}

TEST_F(CameraStream, HandsOutPicturesThatStayAsTheyWere) {
  const auto camera = plugIn({"--offer", "bgrx,320x240,30"});
  CameraReceiver receiver;
  const auto stream = open(receiver);
  stream->start();
  ASSERT_TRUE(receiver.hasCome(12));
  stream->stop();
  const auto deliveries = receiver.deliveries();
  const auto held = receiver.held();
  for (std::size_t i = 0; i < held.size(); ++i) {
    EXPECT_EQ(frameCounter::read(held[i].view), deliveries[i].number);
  }
}

TEST_F(CameraStream, LeavesOutBrokenFrames) {
  for (const std::string format : {"yuy2", "mjpg"}) {
    const auto camera = plugIn({"--name", format, "--offer", format + ",320x240,30"});
    CameraReceiver receiver;
    const auto stream = open(receiver, format);
    stream->start();
    ASSERT_TRUE(receiver.hasCome(3));
    camera->command("short");
    std::this_thread::sleep_for(milliseconds(300));
    const auto before = receiver.count();
    std::this_thread::sleep_for(milliseconds(300));
    EXPECT_EQ(receiver.count(), before) << format;
    if (format == "mjpg") {
      camera->command("garbage");
      std::this_thread::sleep_for(milliseconds(300));
      EXPECT_EQ(receiver.count(), before);
    }
    camera->command("good");
    EXPECT_TRUE(receiver.hasCome(before + 3)) << format;
    EXPECT_EQ(receiver.endCount(), 0);
    for (const auto& delivery : receiver.deliveries()) {
      EXPECT_TRUE(delivery.number) << format;
    }
  }
}

TEST_F(CameraStream, FollowsAChangeOfSize) {
  const auto camera = plugIn({"--offer", "yuy2,640x480,30"});
  CameraReceiver receiver;
  const auto stream = open(receiver);
  stream->start();
  ASSERT_TRUE(receiver.hasCome(5));
  camera->command("offer nv12,320x240,30");
  EXPECT_TRUE(receiver.becomes([](const auto& delivery) {
    return delivery.width == 320 && delivery.height == 240 && delivery.number && delivery.worstBar <= 4;
  }));
  EXPECT_EQ(receiver.endCount(), 0);
}

TEST_F(CameraStream, GoesOnAfterAStall) {
  const auto camera = plugIn();
  CameraReceiver receiver;
  const auto stream = open(receiver);
  stream->start();
  ASSERT_TRUE(receiver.hasCome(3));
  camera->command("stall");
  std::this_thread::sleep_for(milliseconds(100));
  const auto before = receiver.count();
  std::this_thread::sleep_for(milliseconds(400));
  EXPECT_EQ(receiver.count(), before);
  EXPECT_EQ(receiver.endCount(), 0) << "nothing tells of a camera that only keeps silent";
  camera->command("resume");
  EXPECT_TRUE(receiver.hasCome(before + 3));
}

TEST_F(CameraStream, StartsWithoutAFrame) {
  const auto camera = plugIn();
  camera->command("stall");
  CameraReceiver receiver;
  const auto stream = open(receiver);
  stream->start();
  EXPECT_FALSE(receiver.hasCome(1, milliseconds(300)));
  camera->command("resume");
  EXPECT_TRUE(receiver.hasCome(1));
}

TEST_F(CameraStream, MayBeReadTwiceAtOnce) {
  const auto camera = plugIn();
  CameraReceiver first;
  CameraReceiver second;
  const auto one = open(first);
  const auto other = open(second);
  one->start();
  ASSERT_TRUE(first.hasCome(3));
  other->start();
  ASSERT_TRUE(second.hasCome(3));
  const auto before = first.count();
  EXPECT_TRUE(first.hasCome(before + 3));
  other->stop();
  const auto after = first.count();
  EXPECT_TRUE(first.hasCome(after + 3)) << "the one goes on without the other";
  EXPECT_EQ(first.endCount(), 0);
}

TEST_F(CameraStream, IsThatOfTheCameraChosen) {
  const auto small = plugIn({"--name", "small", "--offer", "yuy2,320x240,30"});
  const auto large = plugIn({"--name", "large", "--offer", "yuy2,640x480,30"});
  for (const auto& [name, width] : {std::pair<std::string, int>("large", 640), {"small", 320}}) {
    CameraReceiver receiver;
    const auto stream = open(receiver, name);
    stream->start();
    ASSERT_TRUE(receiver.hasCome(1));
    EXPECT_EQ(receiver.deliveries()[0].width, width);
  }
}

} // namespace
} // namespace tessarin
