#include "backends/x11/StillCapture.hpp"

#include "backends/x11/CanvasReader.hpp"
#include "backends/x11/Cursor.hpp"
#include "backends/x11/Displays.hpp"
#include "backends/x11/Exclusion.hpp"
#include "backends/x11/ServerGrab.hpp"
#include "backends/x11/WindowPicture.hpp"

#include <algorithm>
#include <cmath>

namespace tessarin::x11 {

namespace {

// Windows that move all the time are caught by stopping everything for the last attempt.
constexpr int attempts = 5;
constexpr std::int64_t largestSide = 32'767; // that the protocol's coordinates express

std::int32_t pixelCount(double pixels) {
  if (!(std::abs(pixels) <= static_cast<double>(largestSide))) {
    throw CaptureFailure();
  }
  return static_cast<std::int32_t>(std::lround(pixels));
}

// The size asked for is the rectangle's own in pixels; rounding may only differ by one.
std::int32_t sideInPixels(double points, double scale, std::int64_t asked) {
  const auto native = pixelCount(points * scale);
  return asked > 0 && std::abs(asked - native) <= 1 ? static_cast<std::int32_t>(asked) : native;
}

const Display& displayOf(const DisplayLayout& layout, std::uint32_t id) {
  const auto found = std::find_if(layout.displays.begin(), layout.displays.end(),
                                  [&](const Display& display) { return display.id == id; });
  if (found == layout.displays.end()) {
    throw CaptureFailure();
  }
  return *found;
}

PixelRect areaOf(const DisplayLayout& layout, const ContentFilter& filter,
                 const StillConfiguration& configuration) {
  const auto& display = displayOf(layout, filter.displayID);
  if (!configuration.sourceRect) {
    return display.bounds;
  }
  const auto& source = *configuration.sourceRect;
  return {display.bounds.x + pixelCount(source.x * layout.scale),
          display.bounds.y + pixelCount(source.y * layout.scale),
          sideInPixels(source.width, layout.scale, configuration.width),
          sideInPixels(source.height, layout.scale, configuration.height)};
}

Picture pictureOf(const PixelBuffer& buffer, const pixels::Canvas& canvas) {
  return {canvas.view(), buffer.hold()};
}

class X11StillCapturer final : public StillCapturer {
 public:
  X11StillCapturer(std::shared_ptr<DisplayServer> server, const HostClock& clock)
      : server_(std::move(server)), clock_(clock) {}

  double pointPixelScale(const ContentFilter&) override {
    try {
      return DisplayQuery(server_->connection()).result().scale;
    } catch (const DesktopFailure&) {
      throw CaptureFailure();
    }
  }

  Picture captureImage(const ContentFilter& filter, const StillConfiguration& configuration) override {
    try {
      if (filter.kind == ContentFilter::Kind::desktopIndependentWindow) {
        return window(filter, configuration);
      }
      if (filter.excludedApplications.empty()) {
        return screen(filter, configuration);
      }
      return screenWithoutApplications(filter, configuration);
    } catch (const DesktopFailure&) {
      throw CaptureFailure();
    }
  }

 private:
  Picture screen(const ContentFilter& filter, const StillConfiguration& configuration) {
    auto& connection = server_->connection();
    const auto layout = DisplayQuery(connection).result();
    const auto area = areaOf(layout, filter, configuration);
    if (area.isEmpty()) {
      return {};
    }
    PixelReader reader(connection);
    CanvasReader canvasReader(reader);
    const PixelBuffer& buffer = memoryFor(packedBytes(area), reader);
    const auto canvas = packedCanvas(buffer.data(), area.width, area.height, PixelFormat::bgrx8);
    canvasReader.request(connection.root(), layout.root, area, buffer, canvas);
    std::optional<Cursor> cursor;
    if (configuration.showsCursor) {
      cursor.emplace(connection);
      cursor->request();
    }
    if (!canvasReader.collect()) {
      throw CaptureFailure();
    }
    blend(cursor, canvas, area);
    return pictureOf(buffer, canvas);
  }

  // Memory that the server and this process have written to before costs either of them no new pages, which
  // would take longer than the pixels. It serves again when nobody looks at what is in it any more.
  const PixelBuffer& memoryFor(std::size_t bytes, PixelReader& reader) {
    auto& kept = server_->stillMemory();
    if (!kept || kept->size() < bytes || kept->isHeld()) {
      kept.reset();
      kept = std::make_shared<PixelBuffer>(reader.makeBuffer(bytes));
    }
    return *kept;
  }

  static void blend(std::optional<Cursor>& cursor, const pixels::Canvas& canvas, const PixelRect& area) {
    if (cursor) {
      cursor->collect();
      cursor->blendOver(canvas, area.x, area.y);
    }
  }

  // On a connection of its own, with which all that it asks of the server ends.
  Picture screenWithoutApplications(const ContentFilter& filter, const StillConfiguration& configuration) {
    const auto connection = server_->open();
    const auto layout = DisplayQuery(*connection).result();
    const auto area = areaOf(layout, filter, configuration);
    if (area.isEmpty()) {
      return {};
    }
    PixelReader reader(*connection);
    CanvasReader canvasReader(reader);
    Exclusion exclusion(*connection, reader, clock_, filter.excludedApplications, area);
    const auto buffer = reader.makeBuffer(packedBytes(area));
    const auto canvas = packedCanvas(buffer.data(), area.width, area.height, PixelFormat::bgrx8);
    std::optional<Cursor> cursor;
    if (configuration.showsCursor) {
      cursor.emplace(*connection);
    }
    for (int attempt = 1; attempt <= attempts; ++attempt) {
      std::optional<ServerGrab> grab;
      if (attempt == attempts) {
        grab.emplace(*connection);
      }
      exclusion.refresh(layout.root, [](const xcb_generic_event_t&) {});
      canvasReader.request(connection->root(), layout.root, area, buffer, canvas);
      exclusion.request();
      if (cursor) {
        cursor->request();
      }
      const bool isRead = canvasReader.collect();
      const bool isPatchRead = exclusion.collect();
      while (const auto event = connection->pollEvent()) {
        exclusion.handle(*event);
      }
      if (isRead && isPatchRead && !exclusion.isStale()) {
        exclusion.paint(canvas, area.x, area.y);
        blend(cursor, canvas, area);
        return pictureOf(buffer, canvas);
      }
      if (cursor) {
        cursor->collect();
      }
    }
    throw CaptureFailure();
  }

  Picture window(const ContentFilter& filter, const StillConfiguration& configuration) {
    const auto connection = server_->open();
    const auto layout = DisplayQuery(*connection).result();
    PixelReader reader(*connection);
    WindowPicture window(*connection, reader, clock_, filter.windowID);
    const auto format = configuration.shouldBeOpaque ? PixelFormat::bgrx8 : PixelFormat::bgra8Premultiplied;
    for (int attempt = 1; attempt <= attempts; ++attempt) {
      window.refresh(layout.root, [](const xcb_generic_event_t&) {});
      if (!window.isShown()) {
        throw CaptureFailure();
      }
      const auto area = window.bounds();
      const auto buffer = reader.makeBuffer(packedBytes(area));
      const auto canvas = packedCanvas(buffer.data(), area.width, area.height, format);
      window.request(area, buffer, canvas);
      const bool isRead = window.collect(area, canvas);
      while (const auto event = connection->pollEvent()) {
        if (window.handle(*event) == WindowPicture::Sign::gone) {
          throw CaptureFailure();
        }
      }
      if (isRead && !window.isStale()) {
        return pictureOf(buffer, canvas);
      }
    }
    throw CaptureFailure();
  }

  std::shared_ptr<DisplayServer> server_;
  const HostClock& clock_;
};

} // namespace

std::unique_ptr<StillCapturer> makeStillCapturer(std::shared_ptr<DisplayServer> server,
                                                 const HostClock& clock) {
  return std::make_unique<X11StillCapturer>(std::move(server), clock);
}

} // namespace tessarin::x11
