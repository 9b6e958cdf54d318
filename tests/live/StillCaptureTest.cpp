#include "backends/x11/StillCapture.hpp"

#include "backends/x11/CanvasReader.hpp"
#include "live/StillTesting.hpp"
#include "support/PrivateDesktop.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <functional>

namespace tessarin {
namespace {

using Arguments = std::vector<std::string>;
constexpr int screenWidth = 640;
constexpr int screenHeight = 481;

class StillCapture : public ::testing::Test {
 protected:
  void start(bool hasWindowManager = false, bool hasCompositingManager = false) {
    ignoreBrokenPipes();
    desktop = std::make_unique<PrivateDesktop>(
        PrivateDesktop::Options{screenWidth, screenHeight, hasWindowManager, hasCompositingManager, {}});
    capturer = x11::makeStillCapturer(std::make_shared<x11::DisplayServer>(desktop->display()), clock);
    display = firstDisplay(desktop->display());
  }

  TestClient& open(Arguments arguments) {
    clients.push_back(desktop->client(arguments));
    return *clients.back();
  }

  Pixels screen() const { return screenPixels(desktop->display(), {0, 0, screenWidth, screenHeight}); }

  Pixels capture(std::optional<RectDTO> area = std::nullopt, const std::vector<pid_t>& excluded = {}) {
    ContentFilter filter;
    filter.displayID = display;
    for (const auto process : excluded) {
      filter.excludedApplications.push_back({"", process, ""});
    }
    StillConfiguration configuration;
    configuration.sourceRect = area;
    const auto picture = capturer->captureImage(filter, configuration);
    EXPECT_EQ(picture.view.format, PixelFormat::bgrx8);
    return pixelsOf(picture.view);
  }

  Pixels captureWindow(const TestClient& client, bool isOpaque = false) {
    ContentFilter filter;
    filter.kind = ContentFilter::Kind::desktopIndependentWindow;
    filter.displayID = display;
    filter.windowID = client.window();
    StillConfiguration configuration;
    configuration.shouldBeOpaque = isOpaque;
    const auto picture = capturer->captureImage(filter, configuration);
    EXPECT_EQ(picture.view.format, isOpaque ? PixelFormat::bgrx8 : PixelFormat::bgra8Premultiplied);
    return pixelsOf(picture.view);
  }

  MonotonicHostClock clock;
  std::unique_ptr<PrivateDesktop> desktop;
  std::unique_ptr<StillCapturer> capturer;
  std::uint32_t display = 0;
  std::vector<std::unique_ptr<TestClient>> clients;
};

std::string sizeArgument(int width, int height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

const Arguments photo = {"--style", "override", "--paint",
                         "photo",   "--size",   sizeArgument(screenWidth, screenHeight)};

TEST_F(StillCapture, GivesTheExactPixelsOfAnyRectangleOfTheScreen) {
  start();
  open(photo);
  const auto all = screen();
  EXPECT_TRUE(areSame(capture(), all));
  for (const auto& [x, y, width, height] : std::vector<std::array<int, 4>>{
           {0, 0, 1, 1}, {13, 7, 101, 57}, {639, 480, 1, 1}, {0, 1, 640, 480}, {1, 0, 639, 481}}) {
    const RectDTO area{double(x), double(y), double(width), double(height)};
    EXPECT_TRUE(areSame(capture(area), cut(all, x, y, width, height))) << x << "," << y;
  }
}

TEST_F(StillCapture, APictureStaysAsItIsWhileOthersAreTaken) {
  start();
  ContentFilter filter;
  filter.displayID = display;
  std::optional before(capturer->captureImage(filter, {}));
  const auto empty = pixelsOf(before->view);
  open(photo);
  const auto all = screen();
  ASSERT_FALSE(areSame(empty, all));
  EXPECT_TRUE(areSame(capture(), all));
  EXPECT_TRUE(areSame(pixelsOf(before->view), empty));
  // Memory that nobody looks at any more serves the next ones, also for less, and for more.
  const auto* const memory = capturer->captureImage(filter, {}).view.data;
  EXPECT_EQ(capturer->captureImage(filter, {}).view.data, memory);
  before.reset();
  EXPECT_TRUE(areSame(capture(RectDTO{13, 7, 101, 57}), cut(all, 13, 7, 101, 57)));
  EXPECT_TRUE(areSame(cut(capture(RectDTO{0, 0, 700, 500}), 0, 0, screenWidth, screenHeight), all));
  EXPECT_TRUE(areSame(capture(), all));
}

TEST_F(StillCapture, FillsWhatLiesOutsideOfTheScreenWithBlack) {
  start();
  open(photo);
  const auto picture = capture(RectDTO{-3, 470, 700, 20});
  ASSERT_EQ(picture.width, 700);
  ASSERT_EQ(picture.height, 20);
  EXPECT_TRUE(areSame(cut(picture, 3, 0, 640, 11), cut(screen(), 0, 470, 640, 11)));
  EXPECT_TRUE(areSame(cut(picture, 0, 0, 3, 20), Pixels{3, 20, std::vector<std::uint32_t>(60)}));
  EXPECT_TRUE(areSame(cut(picture, 643, 0, 57, 20), Pixels{57, 20, std::vector<std::uint32_t>(1140)}));
  EXPECT_TRUE(areSame(cut(picture, 3, 11, 640, 9), Pixels{640, 9, std::vector<std::uint32_t>(5760)}));
}

TEST_F(StillCapture, ReadsTheSameByEveryTransport) {
  start();
  open(photo);
  const auto all = screen();
  for (const auto transport : {x11::PixelTransport::descriptor, x11::PixelTransport::systemNumber,
                               x11::PixelTransport::connection}) {
    x11::Connection connection(desktop->display());
    x11::PixelReader reader(connection, transport);
    const auto buffer = reader.makeBuffer(std::size_t{screenWidth} * screenHeight * 4);
    EXPECT_EQ(reader.transport(), transport);
    const x11::PixelRect area{5, 9, 633, 400};
    ASSERT_TRUE(reader.collect(reader.request(connection.root(), area, buffer)));
    const auto canvas = x11::packedCanvas(buffer.data(), 633, 400, PixelFormat::bgrx8);
    EXPECT_TRUE(areSame(pixelsOf(canvas.view()), cut(all, 5, 9, 633, 400)));
    EXPECT_FALSE(reader.collect(reader.request(connection.root(), {600, 0, 100, 10}, buffer)));
  }
}

TEST_F(StillCapture, TurnsPointsIntoPixelsByTheDisplaysScale) {
  start();
  open(photo);
  setResolution(desktop->display(), "144");
  EXPECT_EQ(capturer->pointPixelScale({}), 1.5);
  // 21, 4 to 51, 25 in pixels, of which no third is a binary fraction.
  const auto picture = capture(RectDTO{14, 4 / 1.5, 20, 14});
  EXPECT_TRUE(areSame(picture, cut(screen(), 21, 4, 30, 21)));
}

TEST_F(StillCapture, CountsFromTheCornerOfItsOwnDisplay) {
  start();
  open(photo);
  desktop->run({"xrandr", "--setmonitor", "left", "301/80x481/130+0+0", "screen"});
  desktop->run({"xrandr", "--setmonitor", "right", "339/90x400/110+301+81", "none"});
  setResolution(desktop->display(), "144");
  display = displayAt(desktop->display(), 301);
  EXPECT_TRUE(areSame(capture(), cut(screen(), 301, 81, 339, 400)));
  EXPECT_TRUE(
      areSame(capture(RectDTO{10 / 1.5, 20 / 1.5, 33 / 1.5, 41 / 1.5}), cut(screen(), 311, 101, 33, 41)));
  auto& host = open({"--style", "override", "--colour", "ffff0000", "--size", "50x50", "--at", "320,110"});
  host.command("unmap");
  const auto before = screen();
  host.command("map");
  EXPECT_TRUE(areSame(capture(RectDTO{10 / 1.5, 20 / 1.5, 33 / 1.5, 41 / 1.5}, {host.pid()}),
                      cut(before, 311, 101, 33, 41)));
  display = displayAt(desktop->display(), 0);
  EXPECT_TRUE(areSame(capture(std::nullopt, {host.pid()}), cut(before, 0, 0, 301, 481)));
}

TEST_F(StillCapture, FailsWhenTheServerDoesNotAnswer) {
  start();
  auto& window = open(photo);
  const auto impatient =
      std::make_shared<x11::DisplayServer>(desktop->display(), std::chrono::milliseconds(100));
  capturer = x11::makeStillCapturer(impatient, clock);
  EXPECT_TRUE(areSame(capture(), screen()));
  kill(desktop->serverPid(), SIGSTOP);
  EXPECT_THROW(capture(), CaptureFailure);
  EXPECT_THROW(capture(std::nullopt, {1}), CaptureFailure);
  EXPECT_THROW(captureWindow(window), CaptureFailure);
  EXPECT_THROW(capturer->pointPixelScale({}), CaptureFailure);
  kill(desktop->serverPid(), SIGCONT);
  EXPECT_TRUE(eventually([&] {
    try {
      return static_cast<bool>(areSame(capture(), screen()));
    } catch (const CaptureFailure&) {
      return false; // it is not asked again at once
    }
  }));
}

TEST_F(StillCapture, ShowsThePointerOnlyWhenAsked) {
  start();
  open(photo);
  desktop->run({"xsetroot", "-cursor_name", "left_ptr"});
  const auto all = screen();
  ContentFilter filter;
  filter.displayID = display;
  StillConfiguration configuration;
  configuration.showsCursor = true;
  const auto picture = pixelsOf(capturer->captureImage(filter, configuration).view);
  EXPECT_FALSE(areSame(picture, all));
  EXPECT_TRUE(areSame(capture(), all));
}

TEST_F(StillCapture, ShowsAWindowWithItsOwnAlphaHoweverCovered) {
  start();
  auto& window =
      open({"--style", "override", "--argb", "--colour", "80ff4000", "--at", "40,50", "--size", "120x90"});
  open(photo);
  const auto picture = captureWindow(window);
  EXPECT_TRUE(areSame(picture, Pixels{120, 90, std::vector<std::uint32_t>(120 * 90, 0x80802000)}));
}

TEST_F(StillCapture, ShowsACoveredWindowWholeOnceItsClientHasPaintedIt) {
  start();
  Arguments arguments = {"--style", "override", "--paint", "photo", "--at", "-70,300", "--size", "300x250"};
  const auto whole = [&] {
    auto inSight = arguments;
    inSight[5] = "100,100";
    auto& window = open(inSight);
    const auto picture = captureWindow(window, true);
    EXPECT_TRUE(areSame(picture, cut(screen(), 100, 100, 300, 250)));
    clients.clear();
    return picture;
  }();
  arguments.insert(arguments.end(), {"--repaint-delay", "40"});
  auto& window = open(arguments);
  open({"--style", "override", "--at", "20,350", "--size", "90x40"});
  EXPECT_TRUE(areSame(captureWindow(window, true), whole));
}

TEST_F(StillCapture, LeavesAShapedWindowTransparentOutsideOfItsShape) {
  start();
  auto& window = open({"--style", "override", "--shape", "circle", "--colour", "ff204060", "--at", "30,30",
                       "--size", "101x101"});
  const auto picture = captureWindow(window);
  ASSERT_EQ(picture.width, 101);
  ASSERT_EQ(picture.height, 101);
  EXPECT_EQ(picture.at(0, 0), 0U);
  EXPECT_EQ(picture.at(100, 100), 0U);
  EXPECT_EQ(picture.at(50, 50), 0xFF204060);
  EXPECT_EQ(picture.at(50, 0), 0xFF204060);
  EXPECT_EQ(picture.at(0, 50), 0xFF204060);
}

TEST_F(StillCapture, ShowsTheDecorationButNoShadowOfAWindow) {
  start(true);
  auto& plain = open({"--style", "decorated", "--colour", "ff10a020", "--size", "160x120", "--at", "60,60"});
  const auto picture = captureWindow(plain);
  ASSERT_GT(picture.width, 160);
  ASSERT_GT(picture.height, 130);
  // The decoration is at the top; the client's pixels are all there, and what is shown is opaque.
  int clientPixels = 0;
  for (const auto value : picture.values) {
    clientPixels += value == 0xFF10A020 ? 1 : 0;
    EXPECT_EQ(value >> 24U, 0xFFU);
  }
  EXPECT_EQ(clientPixels, 160 * 120);
  EXPECT_NE(picture.at(picture.width / 2, 4), 0xFF10A020);

  auto& shadowed =
      open({"--style", "borderless", "--colour", "ffa01020", "--shadow", "10,20,5,15", "--size", "200x100"});
  EXPECT_TRUE(
      areSame(captureWindow(shadowed), Pixels{170, 80, std::vector<std::uint32_t>(170 * 80, 0xFFA01020)}));
}

TEST_F(StillCapture, ShowsABorderOfTheServer) {
  start();
  auto& window = open(
      {"--style", "override", "--border", "4", "--colour", "ff0000ff", "--size", "50x40", "--at", "20,20"});
  const auto picture = captureWindow(window, true);
  EXPECT_TRUE(areSame(picture, cut(screen(), 20, 20, 58, 48)));
  EXPECT_EQ(picture.at(4, 4), 0x0000FFU);
}

TEST_F(StillCapture, FailsForWindowsAndDisplaysThatAreNotThere) {
  start();
  auto& window = open({"--style", "override"});
  EXPECT_EQ(captureWindow(window).width, 200);
  window.command("unmap");
  EXPECT_THROW(captureWindow(window), CaptureFailure);
  window.command("close");
  EXPECT_THROW(captureWindow(window), CaptureFailure);
  ContentFilter filter;
  filter.displayID = 0xFFFFFFF;
  EXPECT_THROW(capturer->captureImage(filter, {}), CaptureFailure);
  EXPECT_THROW(capture(RectDTO{0, 0, 1e9, 10}), CaptureFailure);
  desktop->killServer();
  EXPECT_THROW(capture(), CaptureFailure);
  EXPECT_THROW(capture(std::nullopt, {1}), CaptureFailure);
  EXPECT_THROW(captureWindow(window), CaptureFailure);
  EXPECT_THROW(capturer->pointPixelScale({}), CaptureFailure);
}

// A desk of overlapping windows that the server or their clients paint.
void openDesk(const std::function<TestClient&(Arguments)>& open) {
  open({"--style", "override", "--paint", "photo", "--size", "400x300", "--at", "50,40", "--repaint-delay",
        "20"});
  open({"--style", "override", "--paint", "text", "--size", "300x300", "--at", "250,120"});
  open({"--style", "override", "--shape", "circle", "--colour", "ffd0a000", "--size", "150x150", "--at",
        "300,200", "--repaint-delay", "5"});
  open({"--style", "override", "--argb", "--colour", "800060ff", "--size", "120x200", "--at", "180,60"});
  open({"--style", "override", "--border", "5", "--colour", "ff00a060", "--size", "80x80", "--at", "420,60"});
}

class StillExclusion : public StillCapture {};

TEST_F(StillExclusion, LeavesTheScreenAsItWasWithoutTheExcludedWindows) {
  start();
  desktop->run({"xsetroot", "-mod", "5", "7", "-fg", "white", "-bg", "navy"});
  openDesk([this](Arguments a) -> TestClient& { return open(std::move(a)); });
  const auto before = screen();
  auto& covering =
      open({"--style", "override", "--colour", "ffff0000", "--size", "300x200", "--at", "151,111"});
  auto& shaped = open(
      {"--style", "override", "--shape", "circle", "--colour", "ff00ffff", "--size", "99x99", "--at", "5,9"});
  auto& edge = open(
      {"--style", "override", "--colour", "ffffffff", "--border", "3", "--size", "90x90", "--at", "590,430"});
  const std::vector<pid_t> all = {covering.pid(), shaped.pid(), edge.pid()};
  const auto shown = screen();
  EXPECT_FALSE(areSame(shown, before));
  EXPECT_TRUE(areSame(capture(std::nullopt, all), before));
  EXPECT_TRUE(areSame(capture(RectDTO{201, 77, 333, 211}, all), cut(before, 201, 77, 333, 211)));
  EXPECT_TRUE(areSame(capture(std::nullopt, {1}), shown)); // a process without windows
  EXPECT_TRUE(areSame(screen(), shown));                   // nothing has changed for the people before it
}

TEST_F(StillExclusion, ShowsWindowsInFrontOfAnExcludedOneAndBetweenTwo) {
  start();
  auto& below = open({"--style", "override", "--colour", "ffff0000", "--size", "300x200", "--at", "100,100"});
  openDesk([this](Arguments a) -> TestClient& { return open(std::move(a)); });
  auto& above = open({"--style", "override", "--colour", "ffff00ff", "--size", "200x300", "--at", "300,50"});
  const auto picture = capture(std::nullopt, {below.pid(), above.pid()});
  below.command("unmap");
  above.command("unmap");
  // What came to light is painted by the clients first.
  EXPECT_TRUE(eventually([&] { return areSame(picture, screen()); })) << areSame(picture, screen()).message();
}

TEST_F(StillExclusion, MixesTranslucentWindowsAsTheCompositingManagerDoes) {
  start(true, true);
  open({"--style", "borderless", "--paint", "photo", "--size", "400x300", "--at", "50,40"});
  open({"--style", "override", "--argb", "--colour", "800060ff", "--size", "120x200", "--at", "180,60"});
  Pixels before; // once the compositing manager has shown them
  int equal = 0;
  ASSERT_TRUE(eventually([&] {
    const auto last = std::exchange(before, screen());
    equal = areSame(last, before) && before.at(200, 100) != 0 ? equal + 1 : 0;
    return equal == 10;
  }));
  auto& covering =
      open({"--style", "override", "--colour", "ffff0000", "--size", "200x100", "--at", "151,111"});
  ASSERT_TRUE(eventually([&] { return screen().at(200, 150) == 0xFF0000; }));
  const auto picture = capture(std::nullopt, {covering.pid()});
  // Mixing rounds like the manager, give or take one.
  for (int y = 0; y < before.height; ++y) {
    for (int x = 0; x < before.width; ++x) {
      for (unsigned shift = 0; shift < 24; shift += 8) {
        const auto was = static_cast<int>(before.at(x, y) >> shift & 0xFFU);
        const auto is = static_cast<int>(picture.at(x, y) >> shift & 0xFFU);
        ASSERT_LE(std::abs(was - is), 1) << x << "," << y;
      }
    }
  }
}

TEST_F(StillExclusion, LeavesOutTheShadowThatACompositingManagerThrows) {
  start();
  open({"--style", "override", "--paint", "photo", "--size", "640x481"});
  const auto manager = desktop->start({"xcompmgr", "-c"});
  desktop->waitFor("compositing-manager");
  const auto becomes = [this](const Pixels& picture) {
    return eventually([&] { return areSame(screen(), picture); });
  };
  const auto before = capture();
  ASSERT_TRUE(becomes(before));
  auto& host = open({"--style", "override", "--colour", "ffff0000", "--size", "200x100", "--at", "151,111"});
  ASSERT_TRUE(eventually([&] { return screen().at(355, 200) != before.at(355, 200); })); // beside it
  EXPECT_TRUE(areSame(capture(std::nullopt, {host.pid()}), before));
  EXPECT_TRUE(areSame(capture(RectDTO{340, 100, 100, 150}, {host.pid()}), cut(before, 340, 100, 100, 150)));
}

TEST_F(StillExclusion, KnowsTheWindowsOfAManagedApplication) {
  start(true);
  open({"--style", "decorated", "--paint", "photo", "--size", "400x300", "--at", "50,40"});
  auto& host = open({"--style", "decorated", "--colour", "ff00ff00", "--size", "200x150", "--at", "100,100"});
  const auto picture = capture(std::nullopt, {host.pid()});
  for (const auto value : picture.values) {
    ASSERT_NE(value, 0x00FF00U);
  }
  // Where its frame was, there is what lies beneath.
  host.command("unmap");
  EXPECT_TRUE(eventually(
      [&] { return areSame(cut(picture, 150, 120, 100, 100), cut(screen(), 150, 120, 100, 100)); }));
}

} // namespace
} // namespace tessarin
