#include "PanelFixture.hpp"

#include "backends/x11/Discovery.hpp"

#include <unistd.h>

#include <algorithm>

namespace tessarin {
namespace {

constexpr std::uint32_t background = 0x204060;

std::unique_ptr<TestClient> showBackground(const PrivateDesktop& desktop) {
  return desktop.client({"--at", "0,0", "--size", "640x480", "--style", "override", "--colour", "ff204060"});
}

// One half mixed, by the rule of compositing managers: colour times alpha plus what is beneath.
constexpr std::uint32_t halfRed = 0x80800000;

std::uint32_t channel(std::uint32_t colour, int shift) {
  return colour >> shift & 0xFF;
}

bool isNear(std::uint32_t a, std::uint32_t b, int tolerance) {
  for (const int shift : {0, 8, 16})
    if (std::abs(static_cast<int>(channel(a, shift)) - static_cast<int>(channel(b, shift))) > tolerance)
      return false;
  return true;
}

TEST_F(PanelFixture, StandsOnExactlyThePixelsThatItsFrameTouches) {
  start();
  const auto client = showBackground(*desktop);
  const auto tested = panel({100.5, 50, 39, 30.25});
  EXPECT_EQ(tested->pixelSize(), (SizeDTO{40, 31}));
  EXPECT_EQ(tested->backingScale(), 1);
  tested->setPicture(pictureOf(40, 31, [](int x, int y) {
    return 0xFF000000U | static_cast<std::uint32_t>(x * 4 << 16 | y * 8 << 8 | 0x55);
  }));
  EXPECT_TRUE(becomesLike({80, 30, 80, 70}, [](int x, int y) {
    const bool isInside = x >= 100 && x < 140 && y >= 50 && y < 81;
    return isInside ? static_cast<std::uint32_t>((x - 100) * 4 << 16 | (y - 50) * 8 << 8 | 0x55) : background;
  }));
}

TEST_F(PanelFixture, NothingIsSeenBeforeThereIsAPictureAndBesideIt) {
  start();
  const auto client = showBackground(*desktop);
  const auto tested = panel({10, 10, 30, 30});
  EXPECT_TRUE(becomesLike({0, 0, 50, 50}, [](int, int) { return background; }));
  tested->setPicture(plainPicture(12, 20, 0xFFFF8000));
  EXPECT_TRUE(becomesLike({0, 0, 50, 50}, [](int x, int y) {
    return x >= 10 && x < 22 && y >= 10 && y < 30 ? 0xFF8000U : background;
  }));
  tested->setPicture({});
  EXPECT_TRUE(becomesLike({0, 0, 50, 50}, [](int, int) { return background; }));
}

TEST_F(PanelFixture, WithoutACompositingManagerHalfTransparentPixelsAreShownOpaqueOrNot) {
  start();
  const auto client = showBackground(*desktop);
  const auto tested = panel({10, 10, 30, 10});
  tested->setPicture(pictureOf(30, 10, [](int x, int) {
    return x < 10 ? 0xFF00FF00U : x < 20 ? halfRed : 0x7F7F0000U;
  }));
  EXPECT_TRUE(becomesLike({0, 0, 50, 30}, [](int x, int y) {
    if (x < 10 || x >= 30 || y < 10 || y >= 20)
      return background;
    return x < 20 ? 0x00FF00U : 0xFF0000U;
  }));
}

class PanelWithManager : public PanelFixture,
                         public ::testing::WithParamInterface<std::vector<std::string>> {};

TEST_P(PanelWithManager, MixesByAlphaThrowsNoShadowAndFollowsTheManager) {
  start();
  const auto client = showBackground(*desktop);
  const auto tested = panel({100, 100, 60, 40});
  tested->setPicture(pictureOf(60, 40, [](int x, int) {
    return x < 20 ? 0xFF00FF00U : x < 40 ? halfRed : 0U;
  }));
  EXPECT_TRUE(becomes(130, 120, 0xFF0000));
  {
    const auto manager = desktop->start(GetParam());
    desktop->waitFor("compositing-manager");
    EXPECT_TRUE(eventually([&] { return isNear(screenAt(130, 120), 0x8F2030, 2); }))
        << std::hex << screenAt(130, 120);
    EXPECT_TRUE(becomes(110, 120, 0x00FF00));
    EXPECT_TRUE(becomes(150, 120, background));
    // Once the picture is settled, everything around is as if the panel weren't there.
    EXPECT_TRUE(becomesLike({60, 60, 140, 40}, [](int, int) { return background; }));  // above
    EXPECT_TRUE(becomesLike({60, 140, 140, 60}, [](int, int) { return background; })); // below
    EXPECT_TRUE(becomesLike({60, 100, 40, 40}, [](int, int) { return background; }));
    EXPECT_TRUE(becomesLike({140, 100, 60, 40}, [](int, int) { return background; }));
    tested->setPicture(plainPicture(60, 40, 0x40404040));
    EXPECT_TRUE(eventually([&] { return isNear(screenAt(110, 120), 0x587088, 2); }))
        << std::hex << screenAt(110, 120);
    tested->setPicture(plainPicture(60, 40, 0xC0C00000));
  }
  EXPECT_TRUE(becomesLike({90, 90, 80, 60}, [](int x, int y) {
    return x >= 100 && x < 160 && y >= 100 && y < 140 ? 0xFF0000U : background;
  }));
}

INSTANTIATE_TEST_SUITE_P(
    Managers, PanelWithManager,
    ::testing::Values(std::vector<std::string>{"xcompmgr"}, std::vector<std::string>{"xcompmgr", "-c"},
                      std::vector<std::string>{"picom", "--config", "/dev/null", "--backend", "xrender"},
                      std::vector<std::string>{"picom", "--config", "/dev/null", "--backend", "xrender",
                                               "--shadow"}));

TEST_F(PanelFixture, MovesAndGrowsWithItsPicture) {
  start();
  const auto client = showBackground(*desktop);
  const auto tested = panel({10, 10, 20, 20});
  tested->setPicture(
      pictureOf(40, 40, [](int x, int y) { return 0xFF000000U | static_cast<std::uint32_t>(x << 8 | y); }));
  EXPECT_TRUE(becomes(29, 29, 0x001313));
  EXPECT_TRUE(becomes(30, 30, background));
  const auto expectAt = [&](const x11::PixelRect& place) {
    tested->setFrame({static_cast<double>(place.x), static_cast<double>(place.y),
                      static_cast<double>(place.width), static_cast<double>(place.height)});
    EXPECT_TRUE(becomesLike({0, 0, 200, 200},
                            [&](int x, int y) {
                              const bool isInside =
                                  x >= place.x && x < std::min(place.right(), place.x + 40) && y >= place.y &&
                                  y < std::min(place.bottom(), place.y + 40);
                              return isInside ? static_cast<std::uint32_t>((x - place.x) << 8 | (y - place.y))
                                              : background;
                            }))
        << place.x << "," << place.y;
  };
  expectAt({100, 50, 20, 20});
  expectAt({100, 50, 60, 30}); // beyond the picture
  expectAt({-15, -5, 40, 40}); // partly off the screen
  expectAt({-300, 700, 40, 40});
  expectAt({120, 120, 40, 40});
  tested->setFrame({});
  EXPECT_EQ(tested->pixelSize(), SizeDTO());
  EXPECT_TRUE(becomesLike({0, 0, 200, 200}, [](int, int) { return background; }));
  expectAt({30, 30, 40, 40});
}

TEST_F(PanelFixture, WhatWasCoveredIsSeenAgainThoughNobodyPaints) {
  start();
  const auto client = showBackground(*desktop);
  const auto tested = panel({100, 100, 40, 40});
  tested->setPicture(plainPicture(40, 40, 0xFF336699));
  ASSERT_TRUE(becomes(120, 120, 0x336699));
  // The main thread is kept busy while a window lies over the panel and goes.
  mainThread.sync([&] {
    const auto cover =
        desktop->client({"--at", "90,90", "--size", "60x60", "--style", "override", "--colour", "ffffffff"});
    EXPECT_TRUE(becomes(120, 120, 0xFFFFFF));
    cover->command("unmap");
    EXPECT_TRUE(becomesLike({100, 100, 40, 40}, [](int, int) { return 0x336699U; }));
  });
}

TEST_F(PanelFixture, ShowsTheNewestOfManyPictures) {
  start();
  const auto tested = panel({0, 0, 200, 150});
  for (std::uint32_t i = 0; i < 200; ++i)
    tested->setPicture(plainPicture(200, 150, 0xFF000000 | i));
  EXPECT_TRUE(becomesLike({0, 0, 200, 150}, [](int, int) { return 199U; }));
}

TEST_F(PanelFixture, CountsInPointsOnAScaledDesktop) {
  desktop = std::make_unique<PrivateDesktop>(PrivateDesktop::Options{.width = 640, .height = 480});
  setResolution(desktop->display(), "192");
  makeFactory();
  const auto client = showBackground(*desktop);
  const auto tested = panel({50.25, 20, 30, 10});
  EXPECT_EQ(tested->backingScale(), 2);
  EXPECT_EQ(tested->pixelSize(), (SizeDTO{61, 20}));
  tested->setPicture(plainPicture(61, 20, 0xFF00FFFF));
  EXPECT_TRUE(becomesLike({90, 30, 90, 50}, [](int x, int y) {
    return x >= 100 && x < 161 && y >= 40 && y < 60 ? 0x00FFFFU : background;
  }));
  Hands hands(desktop->display());
  hands.moveTo(111, 45);
  hands.press();
  hands.release();
  EXPECT_TRUE(eventually([&] { return tested->told() == std::vector<std::string>{"down 55.5,22.5", "up"}; }));
}

TEST_F(PanelFixture, IsShownOnTheScreenAsTheServerHasIt) {
  // Without shared memory pictures go through the connection, in pieces.
  start({.width = 640, .height = 480, .serverArguments = {"-extension", "MIT-SHM"}});
  const auto tested = panel({0, 0, 500, 400});
  for (std::uint32_t i = 0; i < 20; ++i)
    tested->setPicture(pictureOf(500, 400, [i](int x, int y) {
      return 0xFF000000U | i << 16 | static_cast<std::uint32_t>((x & 0xFF) << 8 | (y & 0xFF));
    }));
  EXPECT_TRUE(becomesLike({0, 0, 500, 400}, [](int x, int y) {
    return 19U << 16 | static_cast<std::uint32_t>((x & 0xFF) << 8 | (y & 0xFF));
  }));
}

TEST_F(PanelFixture, IsShapedWhereTheServerHasNoVisualWithAlpha) {
  start({.width = 640, .height = 480, .serverArguments = {"-extension", "Composite"}});
  const auto client = showBackground(*desktop);
  const auto tested = panel({10, 10, 30, 10});
  x11::Connection viewer(desktop->display());
  EXPECT_EQ(viewer.required(xcb_get_geometry_reply, xcb_get_geometry(viewer.get(), tested->id()))->depth, 24);
  tested->setPicture(pictureOf(30, 10, [](int x, int) { return x < 15 ? halfRed : 0x7F7F0000U; }));
  EXPECT_TRUE(becomesLike({0, 0, 50, 30}, [](int x, int y) {
    return x >= 10 && x < 25 && y >= 10 && y < 20 ? 0xFF0000U : background;
  }));
}

TEST_F(PanelFixture, TheDesktopsContentKnowsItWhetherAnythingIsSeenOfItOrNot) {
  for (const bool hasCompositingManager : {false, true}) {
    start({.width = 640, .height = 480, .hasCompositingManager = hasCompositingManager});
    const auto discovery = x11::makeDesktopContent(std::make_shared<x11::DisplayServer>(desktop->display()));
    const auto own = x11::makeDesktopContent(server);
    const auto find = [](const ShareableContent& content, std::uint32_t id) {
      const auto found = std::find_if(content.windows.begin(), content.windows.end(),
                                      [id](const auto& each) { return each.windowID == id; });
      return found != content.windows.end() ? std::optional(*found) : std::nullopt;
    };
    auto tested = panel({20, 30, 40, 50});
    const auto id = tested->id();
    const auto expectOwn = [&](const RectDTO& frame, bool isOnScreen) {
      ShareableContent content;
      std::optional<ShareableWindow> window;
      eventually([&] { // the server has done what the panel asked it for
        content = own->content();
        window = find(content, id);
        return window && window->frame == frame;
      });
      ASSERT_TRUE(window);
      EXPECT_EQ(window->windowLayer, 3);
      EXPECT_EQ(window->title, "Camera / \u6444\u50cf\u5934");
      EXPECT_EQ(window->isOnScreen, isOnScreen);
      EXPECT_EQ(window->frame, frame);
      ASSERT_TRUE(window->owningApplication);
      EXPECT_EQ(*window->owningApplication,
                (RunningApplication{"tessarin-native", getpid(), "tessarin-native"}));
      EXPECT_EQ(content.applications, std::vector{*window->owningApplication});
      EXPECT_EQ(content.windows.size(), 1U);
    };
    expectOwn({}, false);
    EXPECT_FALSE(find(discovery->content(), id)); // nobody else is offered it
    tested->setPicture(plainPicture(40, 50, 0xFF00FF00));
    EXPECT_TRUE(becomes(30, 40, 0x00FF00));
    expectOwn({20, 30, 40, 50}, true);
    const auto seen = find(discovery->content(), id);
    ASSERT_TRUE(seen);
    EXPECT_EQ(seen->windowLayer, 3);
    EXPECT_EQ(seen->owningApplication->processID, getpid());
    tested->setFrame({300, 300, 0, 0});
    expectOwn({}, false);
    tested.reset();
    EXPECT_TRUE(eventually([&] { return !find(own->content(), id); }));
  }
}

TEST_F(PanelFixture, StandsWhereItIsToldOnAnyOfSeveralMonitors) {
  start();
  desktop->run({"xrandr", "--setmonitor", "left", "320/80x480/120+0+0", "screen"});
  desktop->run({"xrandr", "--setmonitor", "right", "320/80x480/120+320+0", "none"});
  const auto tested = panel({310, 10, 20, 10});
  tested->setPicture(plainPicture(20, 10, 0xFFABCDEF));
  EXPECT_TRUE(becomesLike({310, 10, 20, 10}, [](int, int) { return 0xABCDEFU; }));
}

} // namespace
} // namespace tessarin
