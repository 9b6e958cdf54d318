#include "PanelFixture.hpp"

#include "backends/x11/Stream.hpp"
#include "base/HostClock.hpp"
#include "live/StreamReceiver.hpp"

#include <unistd.h>

#include <algorithm>
#include <cmath>

namespace tessarin {
namespace {

class NoEnd final : public ScreenStreamDelegate {
  void streamDidStopWithError() override { ADD_FAILURE() << "the stream ended"; }
};

// Without a manager, or with the one that the arguments start.
class RecordedPanel : public PanelFixture, public ::testing::WithParamInterface<std::vector<std::string>> {
 protected:
  void beginStream() {
    ContentFilter filter;
    filter.displayID = firstDisplay(desktop->display());
    filter.excludedApplications = {{"", getpid(), ""}};
    StreamConfiguration configuration;
    configuration.sourceRect = {0, 0, 640, 480};
    configuration.width = 640;
    configuration.height = 480;
    configuration.minimumFrameInterval = MediaTime(1, 60);
    streams = x11::makeScreenStreamFactory(std::make_shared<x11::DisplayServer>(desktop->display()), clock);
    stream = streams->makeStream(filter, configuration, end);
    stream->addScreenOutput(receiver, *queue);
    stream->startCapture();
  }

  MonotonicHostClock clock;
  std::unique_ptr<SerialQueue> queue = makeThreadQueue("receiver");
  std::shared_ptr<StreamReceiver> receiver = std::make_shared<StreamReceiver>();
  std::shared_ptr<NoEnd> end = std::make_shared<NoEnd>();
  std::unique_ptr<ScreenStreamFactory> streams;
  std::unique_ptr<ScreenStream> stream;
};

// A disc, partly translucent, as the camera's picture is.
Picture disc(int size, std::uint32_t opaque, std::uint32_t translucent) {
  return pictureOf(size, size, [=](int x, int y) {
    const double distance = std::hypot(x - size / 2.0, y - size / 2.0);
    return distance > size / 2.0 ? 0U : distance > size / 3.0 ? translucent : opaque;
  });
}

TEST_P(RecordedPanel, IsInNoPictureOfTheRecordingWhateverItDoes) {
  start();
  const auto client =
      desktop->client({"--at", "0,0", "--size", "640x480", "--style", "override", "--colour", "ff204060"});
  std::unique_ptr<ChildProcess> manager;
  if (!GetParam().empty()) {
    manager = desktop->start(GetParam());
    desktop->waitFor("compositing-manager");
  }
  auto camera = panel({100, 100, 120, 120});
  const auto badge = panel({320, 400, 0, 0}, true);
  beginStream();
  ASSERT_TRUE(receiver->hasCome(1));

  for (int step = 0; step < 60; ++step) {
    camera->setPicture(disc(120, 0xFF00FF00, 0x9000FF00));
    camera->setFrame({100.0 + step * 5, 100.0 + step * 3, 120, 120});
    if (step % 20 == 5) {
      badge->setFrame({250, 400, 140, 40});
      badge->setPicture(plainPicture(140, 40, 0xA0A000A0));
    } else if (step % 20 == 15) {
      badge->setPicture({});
      badge->setFrame({320, 400, 0, 0});
    }
    if (step == 40)
      camera = panel({100, 100, 120, 120});
    std::this_thread::sleep_for(std::chrono::milliseconds(25));
  }
  // What lies beneath changes, and is seen.
  client->command("paint ff806040");
  EXPECT_TRUE(receiver->becomes([](const Pixels& pixels) { return pixels.at(5, 5) == 0x806040; }));
  stream->stopCapture();
  // A compositing manager shows the change a little later than what is patched in, so that a picture may have
  // both colours, but no other one.
  for (const auto& delivery : receiver->deliveries()) {
    const auto strangers =
        std::count_if(delivery.pixels.values.begin(), delivery.pixels.values.end(),
                      [](std::uint32_t each) { return each != 0x204060 && each != 0x806040; });
    EXPECT_EQ(strangers, 0);
  }
}

INSTANTIATE_TEST_SUITE_P(Managers, RecordedPanel,
                         ::testing::Values(std::vector<std::string>{},
                                           std::vector<std::string>{"xcompmgr", "-c"},
                                           std::vector<std::string>{"picom", "--config", "/dev/null",
                                                                    "--backend", "xrender", "--shadow"}));

} // namespace
} // namespace tessarin
