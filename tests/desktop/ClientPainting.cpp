#include "ClientPainting.hpp"

#include "support/FrameCounter.hpp"

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <string>

namespace tessarin::client {

namespace {

using Pixels = std::vector<std::uint32_t>;

void put(Server& server, xcb_drawable_t drawable, std::uint8_t depth, const Pixels& pixels, int width,
         int height) {
  const auto graphics = xcb_generate_id(server.get());
  xcb_create_gc(server.get(), graphics, drawable, 0, nullptr);
  const int rowsAtOnce = std::max(1, 60000 / width); // a request has at most 256 KiB
  for (int y = 0; y < height; y += rowsAtOnce) {
    const int rows = std::min(rowsAtOnce, height - y);
    xcb_put_image(server.get(), XCB_IMAGE_FORMAT_Z_PIXMAP, drawable, graphics,
                  static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(rows), 0,
                  static_cast<std::int16_t>(y), 0, depth, static_cast<std::uint32_t>(width * rows * 4),
                  reinterpret_cast<const std::uint8_t*>(pixels.data() + static_cast<std::size_t>(y) * width));
  }
  xcb_free_gc(server.get(), graphics);
}

std::uint32_t pixel(double red, double green, double blue) {
  const auto channel = [](double v) { return static_cast<std::uint32_t>(std::clamp(v, 0.0, 255.0)); };
  return 0xFF000000U | channel(red) << 16U | channel(green) << 8U | channel(blue);
}

// Smooth waves with a little noise, as compressible as a photograph.
Pixels photo(int width, int height) {
  Pixels pixels(static_cast<std::size_t>(width) * height);
  std::uint32_t noise = 0x12345678;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      noise ^= noise << 13U;
      noise ^= noise >> 17U;
      noise ^= noise << 5U;
      const double grain = static_cast<double>(noise % 13U) - 6;
      const double u = x / 137.0;
      const double v = y / 91.0;
      pixels[static_cast<std::size_t>(y) * width + x] =
          pixel(128 + 90 * std::sin(u + v) + grain, 120 + 80 * std::sin(1.7 * u - v) + grain,
                110 + 70 * std::cos(0.6 * u + 1.3 * v) + grain);
    }
  }
  return pixels;
}

void drawText(Server& server, xcb_pixmap_t pixmap, int width, int height) {
  constexpr std::string_view font = "fixed";
  constexpr int lineHeight = 14;
  const auto fontID = xcb_generate_id(server.get());
  xcb_open_font(server.get(), fontID, font.size(), font.data());
  const auto graphics = xcb_generate_id(server.get());
  const std::uint32_t values[] = {0xFF202428, 0xFFFCFCFC, fontID};
  xcb_create_gc(server.get(), graphics, pixmap, XCB_GC_FOREGROUND | XCB_GC_BACKGROUND | XCB_GC_FONT, values);
  constexpr std::uint32_t inks[] = {0xFF202428, 0xFF8A2B90, 0xFF1B6E3C, 0xFF20409A};
  for (int line = 0, y = lineHeight; y < height; ++line, y += lineHeight) {
    std::string text(static_cast<std::size_t>(line * 7 % 4) * 2, ' ');
    for (int word = 0; static_cast<int>(text.size()) < std::min(200, width / 6) * (3 + line % 5) / 8;
         ++word) {
      for (int i = 0; i <= (line * 5 + word * 3) % 9; ++i) {
        text.push_back(static_cast<char>('a' + (line * 11 + word * 7 + i * 5) % 26));
      }
      text += word % 4 == 3 ? ");" : word % 4 == 1 ? " = " : " ";
    }
    text.resize(std::min<std::size_t>(text.size(), 250));
    xcb_change_gc(server.get(), graphics, XCB_GC_FOREGROUND, &inks[line % 4]);
    xcb_image_text_8(server.get(), static_cast<std::uint8_t>(text.size()), pixmap, graphics, 8,
                     static_cast<std::int16_t>(y), text.data());
  }
  xcb_free_gc(server.get(), graphics);
  xcb_close_font(server.get(), fontID);
}

} // namespace

std::uint32_t premultiplied(std::uint32_t colour) {
  const auto alpha = colour >> 24U;
  std::uint32_t result = alpha << 24U;
  for (unsigned shift = 0; shift < 24; shift += 8) {
    result |= (((colour >> shift & 0xFFU) * alpha + 127) / 255) << shift;
  }
  return result;
}

xcb_pixmap_t paintPixmap(Server& server, xcb_window_t window, std::uint8_t depth, const Options& options,
                         int width, int height) {
  const auto pixmap = xcb_generate_id(server.get());
  xcb_create_pixmap(server.get(), depth, pixmap, window, static_cast<std::uint16_t>(width),
                    static_cast<std::uint16_t>(height));
  if (options.painting == Painting::photo) {
    put(server, pixmap, depth, photo(width, height), width, height);
    return pixmap;
  }
  const auto graphics = xcb_generate_id(server.get());
  const auto fill = [&](std::uint32_t colour, int x, int y, int w, int h) {
    xcb_change_gc(server.get(), graphics, XCB_GC_FOREGROUND, &colour);
    const xcb_rectangle_t area{static_cast<std::int16_t>(x), static_cast<std::int16_t>(y),
                               static_cast<std::uint16_t>(std::max(0, w)),
                               static_cast<std::uint16_t>(std::max(0, h))};
    xcb_poly_fill_rectangle(server.get(), pixmap, graphics, 1, &area);
  };
  xcb_create_gc(server.get(), graphics, pixmap, 0, nullptr);
  const auto colour = options.hasAlpha ? premultiplied(options.colour) : options.colour;
  const auto shadow = options.shadow.value_or(std::array<std::uint32_t, 4>{});
  fill(options.hasAlpha ? translucentShadowColour : shadowColour, 0, 0, width, height);
  fill(options.painting == Painting::text ? 0xFFFCFCFC : colour, static_cast<int>(shadow[0]),
       static_cast<int>(shadow[2]), width - static_cast<int>(shadow[0] + shadow[1]),
       height - static_cast<int>(shadow[2] + shadow[3]));
  if (options.painting == Painting::text) {
    drawText(server, pixmap, width, height);
  }
  xcb_free_gc(server.get(), graphics);
  return pixmap;
}

namespace {

// The background is wider than the window by this, and moves to and fro.
constexpr int travel = 256;

} // namespace

CounterPainting::CounterPainting(Server& server, xcb_window_t window, std::uint8_t depth, int frameRate)
    : server_(server), window_(window), depth_(depth), frameRate_(frameRate),
      timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC)), graphics_(xcb_generate_id(server.get())),
      blocks_(xcb_generate_id(server.get())) {
  const std::uint32_t noExposures = 0;
  xcb_create_gc(server.get(), graphics_, window, XCB_GC_GRAPHICS_EXPOSURES, &noExposures);
  xcb_create_pixmap(server.get(), depth, blocks_, window, frameCounter::width, frameCounter::height);

  constexpr long second = 1'000'000'000;
  itimerspec times{};
  times.it_interval.tv_sec = frameRate == 1 ? 1 : 0;
  times.it_interval.tv_nsec = frameRate == 1 ? 0 : second / frameRate;
  times.it_value = times.it_interval;
  timerfd_settime(timer_, 0, &times, nullptr);
}

CounterPainting::~CounterPainting() {
  close(timer_);
}

void CounterPainting::makeBackground(int width, int height) {
  if (background_ != XCB_NONE) {
    xcb_free_pixmap(server_.get(), background_);
  }
  backgroundWidth_ = width;
  backgroundHeight_ = height;
  const int whole = width + travel;
  Pixels pixels(static_cast<std::size_t>(whole) * height);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < whole; ++x) {
      pixels[static_cast<std::size_t>(y) * whole + x] =
          pixel((x / 2 + y / 3) % 256, (x / 5 + 255 - y % 256) % 256, ((x ^ y) & 64) != 0 ? 200 : 90);
    }
  }
  background_ = xcb_generate_id(server_.get());
  xcb_create_pixmap(server_.get(), depth_, background_, window_, static_cast<std::uint16_t>(whole),
                    static_cast<std::uint16_t>(height));
  put(server_, background_, depth_, pixels, whole, height);
}

// The counter is copied into place by one request, so that nobody sees it half painted.
void CounterPainting::paintDueFrame(int width, int height) {
  std::uint64_t due = 0;
  if (read(timer_, &due, sizeof due) == sizeof due) {
    frame_ += due;
  }
  if (width != backgroundWidth_ || height != backgroundHeight_) {
    makeBackground(width, height);
  }
  auto* c = server_.get();
  const auto number = static_cast<std::uint32_t>(frame_);
  for (int block = 0; block < frameCounter::columns * frameCounter::rows; ++block) {
    const std::uint32_t colour = frameCounter::isWhite(number, block) ? 0xFFFFFFFF : 0xFF000000;
    xcb_change_gc(c, graphics_, XCB_GC_FOREGROUND, &colour);
    const xcb_rectangle_t area{
        static_cast<std::int16_t>(block % frameCounter::columns * frameCounter::blockSize),
        static_cast<std::int16_t>(block / frameCounter::columns * frameCounter::blockSize),
        frameCounter::blockSize, frameCounter::blockSize};
    xcb_poly_fill_rectangle(c, blocks_, graphics_, 1, &area);
  }
  const auto phase = static_cast<int>(frame_ * 4 % (2 * travel));
  const int offset = phase < travel ? phase : 2 * travel - phase;
  const auto copyBackground = [&](int x, int y, int w, int h) {
    if (w > 0 && h > 0) {
      xcb_copy_area(c, background_, window_, graphics_, static_cast<std::int16_t>(x + offset),
                    static_cast<std::int16_t>(y), static_cast<std::int16_t>(x), static_cast<std::int16_t>(y),
                    static_cast<std::uint16_t>(w), static_cast<std::uint16_t>(h));
    }
  };
  copyBackground(frameCounter::width, 0, width - frameCounter::width, frameCounter::height);
  copyBackground(0, frameCounter::height, width, height - frameCounter::height);
  xcb_copy_area(c, blocks_, window_, graphics_, 0, 0, 0, 0, frameCounter::width, frameCounter::height);
  server_.sync();
}

} // namespace tessarin::client
