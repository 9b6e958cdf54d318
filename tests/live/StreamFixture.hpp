#pragma once

#include "backends/x11/Stream.hpp"
#include "live/StreamReceiver.hpp"
#include "support/PrivateDesktop.hpp"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace tessarin {

// A client's command line.
using Arguments = std::vector<std::string>;
constexpr int screenWidth = 640;
constexpr int screenHeight = 481;
// Long against a frame, so that silence means something.
constexpr std::chrono::milliseconds silence(300);
// A window over the whole screen, no two pixels alike.
inline const Arguments photo = {"--style", "override", "--paint", "photo", "--size", "640x481"};

// A stream of a small private desktop, and what it delivers. A test sets what it wants before beginStream.
class Stream : public ::testing::Test {
 protected:
  ~Stream() override {
    if (stream) {
      try {
        stream->stopCapture();
      } catch (const CaptureFailure&) {
        // It had ended, as the test says.
      }
    }
  }

  void start(bool hasWindowManager = false) {
    ignoreBrokenPipes();
    desktop = std::make_unique<PrivateDesktop>(
        PrivateDesktop::Options{screenWidth, screenHeight, hasWindowManager, false, {}});
    factory = x11::makeScreenStreamFactory(std::make_shared<x11::DisplayServer>(desktop->display()), clock);
    filter.displayID = firstDisplay(desktop->display());
    configuration.sourceRect = {0, 0, screenWidth, screenHeight};
    configuration.width = screenWidth;
    configuration.height = screenHeight;
    configuration.minimumFrameInterval = MediaTime(1, 60);
  }

  TestClient& open(const Arguments& arguments) {
    clients.push_back(desktop->client(arguments));
    return *clients.back();
  }

  void watch(const TestClient& client) {
    filter.kind = ContentFilter::Kind::desktopIndependentWindow;
    filter.windowID = client.window();
  }

  void beginStream() {
    stream = factory->makeStream(filter, configuration, end);
    stream->addScreenOutput(receiver, *queue);
    stream->startCapture();
  }

  Pixels screen() const { return screenPixels(desktop->display(), {0, 0, screenWidth, screenHeight}); }
  bool becomesScreen() const {
    return receiver->becomes([this](const Pixels& pixels) { return bool(areSame(pixels, screen())); });
  }

  MonotonicHostClock clock;
  std::unique_ptr<PrivateDesktop> desktop;
  std::unique_ptr<ScreenStreamFactory> factory;
  ContentFilter filter;
  StreamConfiguration configuration;
  std::vector<std::unique_ptr<TestClient>> clients;
  std::unique_ptr<SerialQueue> queue = makeThreadQueue("receiver");
  std::shared_ptr<StreamReceiver> receiver = std::make_shared<StreamReceiver>();
  std::shared_ptr<StreamEnd> end = std::make_shared<StreamEnd>();
  std::unique_ptr<ScreenStream> stream;
};

} // namespace tessarin
