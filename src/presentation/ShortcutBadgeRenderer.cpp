#include "presentation/ShortcutBadgeRenderer.hpp"

#include "pixels/Compose.hpp"
#include "pixels/RoundedRect.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace tessarin {

namespace {

constexpr std::ptrdiff_t pixelBytes = 4;

// Parts of the render size.
constexpr double fontSizePart = 0.026;
constexpr double bottomPart = 0.055;
constexpr double minimumFontSize = 14;
// Parts of the font's size.
constexpr double sidePaddingPart = 0.9;
constexpr double verticalPaddingPart = 0.55;
// Part of the badge's height.
constexpr double cornerRadiusPart = 0.28;

struct Colors {
  Color text;
  Color background;
};

Colors colorsOf(InteractionShortcutStyleDTO style) {
  switch (style) {
  case InteractionShortcutStyleDTO::dark:
    return {Color::gray(1), Color::gray(0.04, 0.88)};
  case InteractionShortcutStyleDTO::light:
    return {Color::gray(0.05), Color::gray(1, 0.9)};
  case InteractionShortcutStyleDTO::minimal:
    break;
  }
  return {Color::gray(1), Color::gray(0, 0.45)};
}

// There is a key at least.
std::string joined(const std::vector<std::string>& keys) {
  std::string text = keys.front();
  for (auto key = keys.begin() + 1; key != keys.end(); ++key)
    text += "  +  " + *key;
  return text;
}

struct Layout {
  std::unique_ptr<TypesetLine> line;
  RectDTO rect; // of the badge, in units
};

Layout layOut(TextTypesetter& typesetter, const std::vector<std::string>& keys,
              const ShortcutBadgeRenderer::Size& renderSize) {
  const double fontSize =
      std::max(std::min(renderSize.width, renderSize.height) * fontSizePart, minimumFontSize);
  Layout layout;
  layout.line =
      typesetter.typesetLine(joined(keys), {.family = "Helvetica", .isBold = true, .size = fontSize});
  const TypesetLine& line = *layout.line;
  RectDTO& rect = layout.rect;
  rect.width = line.width() + 2 * sidePaddingPart * fontSize;
  rect.height = line.ascent() + line.descent() + 2 * verticalPaddingPart * fontSize;
  rect.x = (renderSize.width - rect.width) * 0.5;
  rect.y = renderSize.height - renderSize.height * bottomPart - rect.height;
  return layout;
}

bool isWithin(double value, double maximum) {
  return value > 0 && value <= maximum;
}

// Pixels of a size, transparent.
struct Bitmap {
  std::shared_ptr<std::vector<std::uint8_t>> bytes;
  pixels::Canvas canvas;

  Bitmap(std::int32_t width, std::int32_t height)
      : bytes(std::make_shared<std::vector<std::uint8_t>>(static_cast<std::size_t>(width) *
                                                          static_cast<std::size_t>(height) * pixelBytes)),
        canvas{bytes->data(), width, height, width * pixelBytes, PixelFormat::bgra8Premultiplied} {}
};

using Pixel = std::array<std::uint8_t, pixelBytes>;

// The pixels of a colour by the share, of 255, that it has of them.
std::array<Pixel, 256> pixelsByShare(const Color& color) {
  const std::array<double, pixelBytes> channels = {color.blue * color.alpha, color.green * color.alpha,
                                                   color.red * color.alpha, color.alpha};
  std::array<Pixel, 256> byShare{};
  for (std::size_t share = 0; share < byShare.size(); ++share)
    for (std::size_t i = 0; i < channels.size(); ++i)
      byShare[share][i] = static_cast<std::uint8_t>(std::lround(channels[i] * static_cast<double>(share)));
  return byShare;
}

// The shape in one colour, on nothing.
void fill(const pixels::Canvas& canvas, const pixels::RoundedRect& shape, const Color& color) {
  const std::array<Pixel, 256> byShare = pixelsByShare(color);
  std::vector<std::uint8_t> shares(static_cast<std::size_t>(canvas.width));
  for (std::int32_t y = 0; y < canvas.height; ++y) {
    shape.cover(y, shares);
    std::uint8_t* to = canvas.row(y);
    for (const std::uint8_t share : shares) {
      std::memcpy(to, byShare[share].data(), pixelBytes);
      to += pixelBytes;
    }
  }
}

// The badge at the top left of a bitmap that its size just fits into. The capitals are in the middle of its
// height, as near as letters can be that stand on the edge of a row of pixels, which keeps them sharp.
Picture draw(const Layout& layout, const Colors& colors, double scale, std::int32_t width,
             std::int32_t height) {
  const Bitmap bitmap(width, height);
  const RectDTO& rect = layout.rect;
  fill(bitmap.canvas,
       {.right = rect.width * scale,
        .bottom = rect.height * scale,
        .radius = std::min(rect.height * cornerRadiusPart, rect.width / 2) * scale},
       colors.background);
  const TypesetLine& line = *layout.line;
  const double left = (rect.width - line.width()) * 0.5;
  const double baseline = std::round((rect.height + line.capitalHeight()) * 0.5 * scale) / scale;
  const PlacedPicture text = line.draw(left, baseline, scale, colors.text);
  blendOver(text.picture.view, bitmap.canvas, text.x, text.y);
  return {bitmap.canvas.view(), bitmap.bytes};
}

} // namespace

std::optional<ShortcutBadgeRenderer::Badge> ShortcutBadgeRenderer::image(const std::vector<std::string>& keys,
                                                                         InteractionShortcutStyleDTO style,
                                                                         const Size& renderSize,
                                                                         double scale) const {
  if (keys.empty() || !isWithin(renderSize.width, maximumRenderSize) ||
      !isWithin(renderSize.height, maximumRenderSize) || !isWithin(scale, maximumScale))
    return std::nullopt;
  try {
    const Layout layout = layOut(typesetter_, keys, renderSize);
    const double width = std::ceil(scale * layout.rect.width);
    const double height = std::ceil(scale * layout.rect.height);
    if (!isWithin(width, maximumWidth) || !isWithin(height, maximumHeight))
      return std::nullopt;
    return Badge{draw(layout, colorsOf(style), scale, static_cast<std::int32_t>(width),
                      static_cast<std::int32_t>(height)),
                 layout.rect};
  } catch (const TypesettingFailure&) {
    return std::nullopt;
  }
}

} // namespace tessarin
