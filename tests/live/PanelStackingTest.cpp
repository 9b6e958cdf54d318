#include "PanelFixture.hpp"

#include <atomic>

namespace tessarin {
namespace {

constexpr std::uint32_t green = 0x00FF00;

class PanelStacking : public PanelFixture {
 protected:
  std::unique_ptr<TestedPanel> shownPanel(const RectDTO& frame, std::uint32_t colour = green) {
    auto shown = panel(frame);
    const auto size = shown->pixelSize();
    shown->setPicture(
        plainPicture(static_cast<int>(size.width), static_cast<int>(size.height), 0xFF000000 | colour));
    EXPECT_TRUE(becomes(static_cast<int>(frame.x), static_cast<int>(frame.y), colour));
    return shown;
  }

  std::unique_ptr<TestClient> cover(const std::string& style) {
    return desktop->client({"--at", "80,80", "--size", "150x150", "--style", style, "--colour", "ffff0000"});
  }
};

TEST_F(PanelStacking, StaysAboveWindowsThatAreMappedOrRaised) {
  start();
  const auto tested = shownPanel({100, 100, 40, 40});
  const auto client = cover("override");
  EXPECT_TRUE(becomes(120, 120, green));
  client->command("raise");
  EXPECT_TRUE(becomes(120, 120, green));
  client->command("unmap");
  client->command("map");
  EXPECT_TRUE(becomes(120, 120, green));
  EXPECT_TRUE(becomes(90, 90, 0xFF0000));
}

TEST_F(PanelStacking, StaysAboveAWindowManagersWindows) {
  start({.width = 640, .height = 480, .hasWindowManager = true});
  const auto tested = shownPanel({100, 100, 40, 40});
  const auto first = cover("borderless");
  const auto second = cover("decorated");
  for (int i = 0; i < 3; ++i) {
    first->command("raise");
    EXPECT_TRUE(becomes(120, 120, green));
    second->command("raise");
    EXPECT_TRUE(becomes(120, 120, green));
  }
  const auto full = desktop->client({"--full-screen", "--colour", "ff0000ff"});
  EXPECT_TRUE(becomes(120, 120, green));
  EXPECT_TRUE(becomes(10, 10, 0x0000FF));
}

TEST_F(PanelStacking, KeepsTheOrderOfItsPanels) {
  start();
  const auto back = shownPanel({100, 100, 40, 40});
  const auto front = shownPanel({120, 120, 40, 40}, 0x0000FF);
  const auto client = cover("override");
  EXPECT_TRUE(becomes(105, 105, green));
  EXPECT_TRUE(becomes(130, 130, 0x0000FF));
}

// Raises its window as soon as another one lies above it, at once and without end.
class Rival {
 public:
  Rival(const std::string& display, const x11::PixelRect& place) : connection_(display) {
    window_ = xcb_generate_id(connection_.get());
    const std::uint32_t values[] = {connection_.screen().white_pixel, 1, XCB_EVENT_MASK_VISIBILITY_CHANGE};
    xcb_create_window(connection_.get(), XCB_COPY_FROM_PARENT, window_, connection_.root(),
                      static_cast<std::int16_t>(place.x), static_cast<std::int16_t>(place.y),
                      static_cast<std::uint16_t>(place.width), static_cast<std::uint16_t>(place.height), 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                      XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
    xcb_map_window(connection_.get(), window_);
    connection_.sync();
    thread_ = std::jthread([this](const std::stop_token& token) { run(token); });
  }

  int raises() const { return raises_; }

 private:
  void run(const std::stop_token& token) {
    constexpr std::uint32_t above = XCB_STACK_MODE_ABOVE;
    while (!token.stop_requested()) {
      connection_.sync();
      while (const auto event = connection_.pollEvent()) {
        if ((event->response_type & 0x7F) == XCB_VISIBILITY_NOTIFY &&
            reinterpret_cast<xcb_visibility_notify_event_t&>(*event).state != XCB_VISIBILITY_UNOBSCURED) {
          ++raises_;
          xcb_configure_window(connection_.get(), window_, XCB_CONFIG_WINDOW_STACK_MODE, &above);
        }
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  x11::Connection connection_;
  xcb_window_t window_;
  std::atomic<int> raises_ = 0;
  std::jthread thread_;
};

TEST_F(PanelStacking, DoesNotFightForeverWithOneWhoAlwaysRaisesItself) {
  start();
  const auto tested = shownPanel({100, 100, 40, 40});
  Rival rival(desktop->display(), {80, 80, 150, 150});
  EXPECT_TRUE(eventually([&] { return rival.raises() >= 12; }));
  // From then on it gives way for a second, two, four: at most two more within three seconds.
  const auto raises = rival.raises();
  std::this_thread::sleep_for(std::chrono::milliseconds(2500));
  EXPECT_LE(rival.raises(), raises + 3);
  EXPECT_GE(rival.raises(), raises + 1); // but it has not given up
}

} // namespace
} // namespace tessarin
