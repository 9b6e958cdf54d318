#include "backends/x11/Displays.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace tessarin::x11 {

namespace {

// In units of four bytes; resource texts of desktops have a few kilobytes.
constexpr std::uint32_t longestResources = 64 * 1024;

std::string_view withoutBlanks(std::string_view text) {
  constexpr std::string_view blanks = " \t\r";
  const auto first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// The largest length that gives the pixels again by the factor.
double lengthInPoints(std::int32_t pixels, double scale, double factor) {
  double length = pixels / scale;
  while (length > 0 && length * factor > pixels) {
    length = std::nextafter(length, 0.0);
  }
  return length;
}

// And by the ratio of the pixels to the length, by which readers compute it again.
double displayLengthInPoints(std::int32_t pixels, double scale) {
  double length = lengthInPoints(pixels, scale, scale);
  while (length > 0 && length * (pixels / length) > pixels) {
    length = std::nextafter(length, 0.0);
  }
  return length;
}

} // namespace

PixelRect PixelRect::intersection(const PixelRect& other) const {
  const auto left = std::max(x, other.x);
  const auto top = std::max(y, other.y);
  return {left, top, std::max(0, std::min(right(), other.right()) - left),
          std::max(0, std::min(bottom(), other.bottom()) - top)};
}

double scaleFromResources(std::string_view resources) {
  double scale = 1;
  while (!resources.empty()) {
    const auto end = std::min(resources.find('\n'), resources.size());
    const auto line = resources.substr(0, end);
    resources.remove_prefix(std::min(end + 1, resources.size()));

    const auto colon = line.find(':');
    if (colon == std::string_view::npos || withoutBlanks(line.substr(0, colon)) != "Xft.dpi") {
      continue;
    }
    const auto value = withoutBlanks(line.substr(colon + 1));
    double dotsPerInch = 0;
    const auto [rest, error] = std::from_chars(value.data(), value.data() + value.size(), dotsPerInch);
    if (error == std::errc() && rest == value.data() + value.size() && std::isfinite(dotsPerInch)) {
      scale = static_cast<float>(std::clamp(dotsPerInch / 96, 1.0, 4.0));
    }
  }
  return scale;
}

RectDTO pointsFromPixels(const PixelRect& pixels, double scale, double factor) {
  return {pixels.x / scale, pixels.y / scale, lengthInPoints(pixels.width, scale, factor),
          lengthInPoints(pixels.height, scale, factor)};
}

RectDTO displayPointsFromPixels(const PixelRect& pixels, double scale) {
  return {pixels.x / scale, pixels.y / scale, displayLengthInPoints(pixels.width, scale),
          displayLengthInPoints(pixels.height, scale)};
}

DisplayQuery::DisplayQuery(Connection& connection)
    : connection_(connection), geometry_(xcb_get_geometry(connection.get(), connection.root())),
      resources_(xcb_get_property(connection.get(), 0, connection.root(), XCB_ATOM_RESOURCE_MANAGER,
                                  XCB_ATOM_STRING, 0, longestResources)) {
  if (connection.extension(Extension::randr).isAtLeast(1, 5)) {
    monitors_ = xcb_randr_get_monitors(connection.get(), connection.root(), 1);
  }
}

DisplayLayout DisplayQuery::result() {
  DisplayLayout layout;
  const auto geometry = connection_.required(xcb_get_geometry_reply, geometry_);
  layout.root = {0, 0, geometry->width, geometry->height};

  const auto resources = connection_.required(xcb_get_property_reply, resources_);
  layout.scale =
      scaleFromResources({static_cast<const char*>(xcb_get_property_value(resources.get())),
                          static_cast<std::size_t>(xcb_get_property_value_length(resources.get()))});

  if (monitors_) {
    if (const auto reply = connection_.reply(xcb_randr_get_monitors_reply, *monitors_)) {
      for (auto each = xcb_randr_get_monitors_monitors_iterator(reply.get()); each.rem > 0;
           xcb_randr_monitor_info_next(&each)) {
        const auto& monitor = *each.data;
        const bool isMain =
            monitor.primary != 0 && std::none_of(layout.displays.begin(), layout.displays.end(),
                                                 [](const auto& d) { return d.isMain; });
        layout.displays.push_back(
            {monitor.name, {monitor.x, monitor.y, monitor.width, monitor.height}, isMain});
      }
    }
  }
  if (layout.displays.empty()) {
    layout.displays.push_back({connection_.root(), layout.root, true});
  }
  if (std::none_of(layout.displays.begin(), layout.displays.end(), [](const auto& d) { return d.isMain; })) {
    layout.displays.front().isMain = true;
  }
  return layout;
}

} // namespace tessarin::x11
