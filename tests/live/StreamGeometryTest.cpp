#include "live/StreamFixture.hpp"

#include <algorithm>

namespace tessarin {
namespace {

// Gives the pointer a shape of the server's own, for as long as this exists.
class PointerShape {
 public:
  PointerShape(const std::string& display, std::uint16_t glyph) : connection_(display) {
    auto* xcb = connection_.get();
    const auto font = xcb_generate_id(xcb);
    const auto cursor = xcb_generate_id(xcb);
    xcb_open_font(xcb, font, 6, "cursor");
    xcb_create_glyph_cursor(xcb, cursor, font, font, glyph, static_cast<std::uint16_t>(glyph + 1), 0, 0, 0,
                            0xFFFF, 0xFFFF, 0xFFFF);
    xcb_change_window_attributes(xcb, connection_.root(), XCB_CW_CURSOR, &cursor);
    connection_.sync();
  }

 private:
  x11::Connection connection_;
};

TEST_F(Stream, AddsOrDropsASingleColumnAndRowForTheSizeAskedFor) {
  start();
  open(photo);
  configuration.sourceRect = {539, 420, 101, 61}; // to the very corner of the screen
  const auto content = cut(screen(), 539, 420, 101, 61);
  for (const auto& [width, height] :
       std::vector<std::pair<int, int>>{{101, 61}, {102, 62}, {100, 60}, {102, 60}, {100, 62}}) {
    configuration.width = width;
    configuration.height = height;
    receiver = std::make_shared<StreamReceiver>();
    beginStream();
    ASSERT_TRUE(receiver->hasCome(1));
    const auto picture = receiver->last().pixels;
    ASSERT_EQ(picture.width, width);
    ASSERT_EQ(picture.height, height);
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        ASSERT_EQ(picture.at(x, y), content.at(std::min(x, 100), std::min(y, 60))) << x << "," << y;
      }
    }
  }
  configuration.width = 50;
  configuration.height = 30;
  receiver = std::make_shared<StreamReceiver>();
  beginStream();
  ASSERT_TRUE(receiver->hasCome(1));
  EXPECT_TRUE(areSame(receiver->last().pixels, content));
}

TEST_F(Stream, ShowsItsPartOfASecondDisplayAndThePointerThere) {
  start();
  open(photo);
  desktop->run({"xrandr", "--setmonitor", "left", "301/80x481/130+0+0", "screen"});
  desktop->run({"xrandr", "--setmonitor", "right", "339/90x400/110+301+81", "none"});
  setResolution(desktop->display(), "144");
  filter.displayID = displayAt(desktop->display(), 301);
  configuration.sourceRect = {10 / 1.5, 20 / 1.5, 121 / 1.5, 91 / 1.5};
  configuration.width = 122;
  configuration.height = 92;
  beginStream();
  ASSERT_TRUE(receiver->hasCome(1));
  EXPECT_TRUE(areSame(cut(receiver->last().pixels, 0, 0, 121, 91), cut(screen(), 311, 101, 121, 91)));

  auto& beside = open({"--style", "override", "--colour", "ff00ff00", "--size", "10x10", "--at", "301,101"});
  beside.command("paint ff00ff01");
  EXPECT_FALSE(receiver->hasCome(2, silence));
  open({"--style", "override", "--colour", "ff00ff00", "--size", "10x10", "--at", "422,182"});
  EXPECT_TRUE(receiver->becomes([](const Pixels& pixels) { return pixels.at(120, 90) == 0x00FF00; }));
  const auto content = cut(screen(), 311, 101, 121, 91);
  EXPECT_TRUE(areSame(cut(receiver->last().pixels, 0, 0, 121, 91), content));

  desktop->run({"xsetroot", "-cursor_name", "left_ptr"});
  desktop->run({"xdotool", "mousemove", "361", "131"});
  configuration.showsCursor = true;
  receiver = std::make_shared<StreamReceiver>();
  beginStream();
  ASSERT_TRUE(receiver->hasCome(1));
  const auto picture = receiver->last().pixels;
  int differing = 0;
  for (int y = 0; y < 91; ++y) {
    for (int x = 0; x < 121; ++x) {
      if (picture.at(x, y) != content.at(x, y)) {
        ++differing;
        EXPECT_TRUE(x >= 46 && x < 82 && y >= 26 && y < 62) << x << "," << y;
      }
    }
  }
  EXPECT_GT(differing, 20);
}

TEST_F(Stream, KeepsDeliveringWhatIsLeftOfItsRectangleWhenTheScreenShrinks) {
  start();
  open(photo);
  beginStream();
  ASSERT_TRUE(receiver->hasCome(1));
  const auto before = receiver->last().pixels;
  desktop->run(
      {"xrandr", "--newmode", "small", "10", "320", "330", "340", "350", "240", "250", "260", "270"});
  desktop->run({"xrandr", "--addmode", "screen", "small"});
  desktop->run({"xrandr", "--output", "screen", "--mode", "small"});
  ASSERT_TRUE(receiver->becomes([](const Pixels& pixels) { return pixels.at(400, 100) == 0; }));
  const auto after = receiver->last().pixels;
  EXPECT_TRUE(areSame(cut(after, 0, 0, 320, 240), cut(before, 0, 0, 320, 240)));
  for (int y = 0; y < screenHeight; ++y) {
    for (int x = y < 240 ? 320 : 0; x < screenWidth; ++x) {
      ASSERT_EQ(after.at(x, y), 0U) << x << "," << y;
    }
  }
  EXPECT_EQ(end->count(), 0);
}

TEST_F(Stream, ShowsThePointerWhereItIsWhenAsked) {
  start();
  open(photo);
  desktop->run({"xsetroot", "-cursor_name", "left_ptr"});
  desktop->run({"xdotool", "mousemove", "200", "150"});
  configuration.showsCursor = true;
  beginStream();
  const auto differences = [this](const Pixels& pixels) {
    const auto plain = screen();
    Pixels changed;
    x11::PixelRect bounds{screenWidth, screenHeight, 0, 0};
    int right = 0;
    int bottom = 0;
    for (int y = 0; y < screenHeight; ++y) {
      for (int x = 0; x < screenWidth; ++x) {
        if (pixels.at(x, y) != plain.at(x, y)) {
          bounds.x = std::min(bounds.x, x);
          bounds.y = std::min(bounds.y, y);
          right = std::max(right, x + 1);
          bottom = std::max(bottom, y + 1);
        }
      }
    }
    bounds.width = right - bounds.x;
    bounds.height = bottom - bounds.y;
    return bounds;
  };
  const auto isAt = [&](int x, int y) {
    return receiver->becomes([&](const Pixels& pixels) {
      const auto bounds = differences(pixels);
      return !bounds.isEmpty() && std::abs(bounds.x - x) <= 2 && std::abs(bounds.y - y) <= 2 &&
             bounds.width <= 32 && bounds.height <= 32;
    });
  };
  EXPECT_TRUE(isAt(200, 150));
  desktop->run({"xdotool", "mousemove", "310", "77"});
  EXPECT_TRUE(isAt(310, 77));
  // Another shape in the same place; the cross lies about its hot spot.
  constexpr std::uint16_t crosshair = 34;
  const PointerShape shape(desktop->display(), crosshair);
  EXPECT_TRUE(receiver->becomes([&](const Pixels& pixels) {
    const auto bounds = differences(pixels);
    return bounds.x < 310 && bounds.right() > 310 && bounds.y < 77 && bounds.bottom() > 77;
  }));
  desktop->run({"xdotool", "mousemove_relative", "5", "0"});
  EXPECT_TRUE(receiver->becomes([&](const Pixels& pixels) { return differences(pixels).right() > 320; }));

  configuration.showsCursor = false;
  receiver = std::make_shared<StreamReceiver>();
  beginStream();
  ASSERT_TRUE(receiver->hasCome(1));
  EXPECT_TRUE(areSame(receiver->last().pixels, screen()));
  desktop->run({"xdotool", "mousemove", "100", "100"});
  EXPECT_FALSE(receiver->hasCome(2, silence));
}

} // namespace
} // namespace tessarin
