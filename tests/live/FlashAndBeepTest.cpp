#include "support/FlashAndBeep.hpp"
#include "backends/pipewire/Devices.hpp"
#include "backends/x11/Stream.hpp"
#include "live/SoundTesting.hpp"
#include "live/StreamReceiver.hpp"
#include "support/PrivateDesktop.hpp"
#include "support/PrivateSoundServer.hpp"

#include <gtest/gtest.h>

#include <string>

// Screen, computer's sound and microphone at once, on the one clock: what happens together comes with the
// same time from each of them.
namespace tessarin {
namespace {

constexpr std::int64_t millisecond = 1'000'000;
constexpr std::int64_t longestInterval = 17 * millisecond; // of the pictures, at 60 a second

class FlashAndBeep : public testing::TestWithParam<std::string> {
 protected:
  static constexpr std::size_t channelRate = 48000;

  void SetUp() override {
    ignoreBrokenPipes();
    window_ = desktop_.client({"--style", "override", "--size", "320x240", "--colour", "ff204060"});
    configuration_.sourceRect = {0, 0, 320, 240};
    configuration_.width = 320;
    configuration_.height = 240;
    configuration_.minimumFrameInterval = MediaTime(1, 60);
    filter_.displayID = firstDisplay(desktop_.display());
    stream_ = factory_->makeStream(filter_, configuration_, std::make_shared<StreamEnd>());
    stream_->addScreenOutput(pictures_, *queue_);
    stream_->startCapture();
  }
  void TearDown() override { stream_->stopCapture(); }

  // The time of the first picture whose middle is white, in nanoseconds.
  std::optional<std::int64_t> firstWhite() const {
    for (const auto& delivery : pictures_->deliveries()) {
      if (delivery.pixels.at(160, 120) == 0xFFFFFFU) {
        return hostNanoseconds(delivery.time);
      }
    }
    return std::nullopt;
  }

  MonotonicHostClock clock_;
  PrivateDesktop desktop_{{.width = 320, .height = 240}};
  PrivateSoundServer server_;
  ProcessEnvironment environment_{server_.environment()};
  std::unique_ptr<TestClient> window_;
  std::unique_ptr<SerialQueue> queue_ = makeThreadQueue("receiver");
  std::shared_ptr<StreamReceiver> pictures_ = std::make_shared<StreamReceiver>();
  std::unique_ptr<ScreenStreamFactory> factory_ =
      x11::makeScreenStreamFactory(std::make_shared<x11::DisplayServer>(desktop_.display()), clock_);
  ContentFilter filter_;
  StreamConfiguration configuration_;
  std::unique_ptr<ScreenStream> stream_;
  std::unique_ptr<CaptureDevices> devices_ = pipewire::makeCaptureDevices();
};

TEST_P(FlashAndBeep, ComeWithTheSameTime) {
  const auto source = server_.source({GetParam()});
  SoundReceiver sound;
  const auto opened = GetParam() == "player"
                          ? devices_->openSystemAudio(sound.handler(), sound.endHandler())
                          : devices_->openMicrophone(std::nullopt, sound.handler(), sound.endHandler());
  opened->start();
  ASSERT_TRUE(sound.hears(channelRate / 2));
  const auto moment = flashAndBeep(*window_, {source.get()});
  ASSERT_TRUE(sound.hears(channelRate / 4));
  const auto heard = sound.firstLouderThan(0.2F);
  const auto seen = firstWhite();
  opened->stop();
  ASSERT_TRUE(heard);
  ASSERT_TRUE(seen);
  EXPECT_LT(std::abs(*heard - moment), 5 * millisecond);
  EXPECT_LT(std::abs(*seen - moment), longestInterval / 2 + 5 * millisecond);
}

INSTANTIATE_TEST_SUITE_P(Both, FlashAndBeep, testing::Values("player", "microphone"));

} // namespace
} // namespace tessarin
