#pragma once

#include "backends/x11/Connection.hpp"
#include "backends/x11/Displays.hpp"
#include "model/Picture.hpp"

#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

// Pictures as tests compare them.
namespace tessarin {

struct Pixels {
  int width = 0;
  int height = 0;
  std::vector<std::uint32_t> values; // AARRGGBB

  std::uint32_t at(int x, int y) const {
    return values.at(static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                     static_cast<std::size_t>(x));
  }
};

// The unused byte of opaque pictures reads 00.
inline Pixels pixelsOf(const PictureView& view) {
  Pixels pixels{view.width, view.height, {}};
  for (int y = 0; y < view.height; ++y) {
    for (int x = 0; x < view.width; ++x) {
      std::uint32_t value = 0;
      std::memcpy(&value, view.data + y * view.stride + std::ptrdiff_t{x} * 4, 4);
      pixels.values.push_back(view.format == PixelFormat::bgrx8 ? value & 0xFFFFFF : value);
    }
  }
  return pixels;
}

// What the screen shows, by the plainest means there is.
inline Pixels screenPixels(const std::string& display, const x11::PixelRect& area) {
  auto* connection = xcb_connect(display.c_str(), nullptr);
  const auto root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
  const x11::Owned<xcb_get_image_reply_t> image(xcb_get_image_reply(
      connection,
      xcb_get_image(connection, XCB_IMAGE_FORMAT_Z_PIXMAP, root, static_cast<std::int16_t>(area.x),
                    static_cast<std::int16_t>(area.y), static_cast<std::uint16_t>(area.width),
                    static_cast<std::uint16_t>(area.height), ~0U),
      nullptr));
  xcb_disconnect(connection);
  if (!image) {
    throw std::runtime_error("the screen could not be read");
  }
  return pixelsOf(
      {xcb_get_image_data(image.get()), area.width, area.height, area.width * 4, PixelFormat::bgrx8});
}

inline Pixels cut(const Pixels& from, int x, int y, int width, int height) {
  Pixels part{width, height, {}};
  for (int row = 0; row < height; ++row) {
    for (int column = 0; column < width; ++column) {
      part.values.push_back(from.at(x + column, y + row));
    }
  }
  return part;
}

inline ::testing::AssertionResult areSame(const Pixels& a, const Pixels& b) {
  if (a.width != b.width || a.height != b.height) {
    return ::testing::AssertionFailure()
           << a.width << "x" << a.height << " against " << b.width << "x" << b.height;
  }
  int differing = 0;
  std::string first;
  for (int y = 0; y < a.height; ++y) {
    for (int x = 0; x < a.width; ++x) {
      if (a.at(x, y) != b.at(x, y) && ++differing == 1) {
        char text[64];
        std::snprintf(text, sizeof text, "%d,%d: %08x against %08x", x, y, a.at(x, y), b.at(x, y));
        first = text;
      }
    }
  }
  return differing == 0 ? ::testing::AssertionSuccess()
                        : ::testing::AssertionFailure() << differing << " pixels differ, first " << first;
}

// Looks again until it holds, for up to five seconds.
inline bool eventually(const std::function<bool()>& holds) {
  constexpr int looks = 500;
  for (int look = 0; look < looks; ++look) {
    if (holds()) {
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

// A lost server must not end the test.
inline void ignoreBrokenPipes() {
  std::signal(SIGPIPE, SIG_IGN);
}

// As desktops set it for text.
inline void setResolution(const std::string& display, const std::string& dotsPerInch) {
  x11::Connection connection(display);
  const auto resources = "Xft.dpi:\t" + dotsPerInch + "\n";
  xcb_change_property(connection.get(), XCB_PROP_MODE_REPLACE, connection.root(), XCB_ATOM_RESOURCE_MANAGER,
                      XCB_ATOM_STRING, 8, static_cast<std::uint32_t>(resources.size()), resources.data());
  connection.sync();
}

// The number of the display whose left edge is there, in pixels.
inline std::uint32_t displayAt(const std::string& display, int x) {
  x11::Connection connection(display);
  for (const auto& each : x11::DisplayQuery(connection).result().displays) {
    if (each.bounds.x == x) {
      return each.id;
    }
  }
  throw std::runtime_error("no such display");
}

inline std::uint32_t firstDisplay(const std::string& display) {
  x11::Connection connection(display);
  return x11::DisplayQuery(connection).result().displays.at(0).id;
}

} // namespace tessarin
