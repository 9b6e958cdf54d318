#include "modules/typesetting/PangoLine.hpp"

#include <algorithm>
#include <cmath>

namespace tessarin::typesetting {

namespace {

constexpr std::ptrdiff_t pixelBytes = 4;
// A picture of the library has at most that many pixels a side.
constexpr double maximumSide = 32767;
constexpr double maximumPlace = 1 << 30;

double units(int value) {
  return static_cast<double>(value) / PANGO_SCALE;
}

// The library cuts channels off to eight bits where it should round them.
double exactChannel(double value) {
  return std::round(std::clamp(value, 0.0, 1.0) * 255) / 255;
}

bool isEmptyRow(const PictureView& view, std::int32_t y) {
  const std::uint8_t* const row = view.data + y * view.stride;
  return std::all_of(row, row + view.width * pixelBytes, [](std::uint8_t byte) { return byte == 0; });
}

bool isEmptyColumn(const PictureView& view, std::int32_t x) {
  for (std::int32_t y = 0; y < view.height; ++y)
    if (view.data[y * view.stride + x * pixelBytes + 3] != 0)
      return false;
  return true;
}

// Without the transparent rows and columns at the sides; of no size when there is nothing else.
void crop(PlacedPicture& placed) {
  PictureView& view = placed.picture.view;
  while (view.height > 0 && isEmptyRow(view, view.height - 1))
    --view.height;
  while (view.height > 0 && isEmptyRow(view, 0)) {
    view.data += view.stride;
    --view.height;
    ++placed.y;
  }
  if (view.height == 0)
    view.width = 0;
  while (view.width > 0 && isEmptyColumn(view, view.width - 1))
    --view.width;
  while (view.width > 0 && isEmptyColumn(view, 0)) {
    view.data += pixelBytes;
    --view.width;
    ++placed.x;
  }
}

} // namespace

// In pixels of the plane.
struct PangoLine::Bounds {
  double left, top, width, height;

  bool isDrawable() const {
    return width <= maximumSide && height <= maximumSide && std::abs(left) <= maximumPlace &&
           std::abs(top) <= maximumPlace;
  }
};

PangoLine::PangoLine(std::shared_ptr<FontStock> stock, Handle<PangoLayout> layout, double capitalHeight)
    : stock_(std::move(stock)), layout_(std::move(layout)),
      line_(pango_layout_get_line_readonly(layout_.get(), 0)), capitalHeight_(capitalHeight) {
  PangoRectangle logical{};
  pango_layout_line_get_extents(line_, &ink_, &logical);
  width_ = units(logical.width);
  ascent_ = units(PANGO_ASCENT(logical));
  descent_ = units(PANGO_DESCENT(logical));
}

PangoLine::~PangoLine() {
  const std::lock_guard lock(stock_->mutex);
  layout_.reset();
}

// With a margin for what the library rounds.
PangoLine::Bounds PangoLine::inkBounds(double x, double y, double scale) const {
  constexpr double margin = 2;
  const double left = std::floor((x + units(ink_.x)) * scale) - margin;
  const double top = std::floor((y + units(ink_.y)) * scale) - margin;
  const double right = std::ceil((x + units(ink_.x + ink_.width)) * scale) + margin;
  const double bottom = std::ceil((y + units(ink_.y + ink_.height)) * scale) + margin;
  return {left, top, right - left, bottom - top};
}

PlacedPicture PangoLine::draw(double x, double y, double scale, const Color& color) const {
  const std::lock_guard lock(stock_->mutex);
  const Bounds bounds = inkBounds(x, y, scale);
  if (!bounds.isDrawable())
    throw TypesettingFailure();
  const std::shared_ptr<cairo_surface_t> surface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32,
                                                                            static_cast<int>(bounds.width),
                                                                            static_cast<int>(bounds.height)),
                                                 cairo_surface_destroy);
  const Handle<cairo_t> context(cairo_create(surface.get()));
  cairo_set_antialias(context.get(), CAIRO_ANTIALIAS_BEST);
  cairo_set_source_rgba(context.get(), exactChannel(color.red), exactChannel(color.green),
                        exactChannel(color.blue), exactChannel(color.alpha));
  cairo_translate(context.get(), x * scale - bounds.left, y * scale - bounds.top);
  cairo_scale(context.get(), scale, scale);
  drawRuns(*context);
  cairo_surface_flush(surface.get());
  if (cairo_status(context.get()) != CAIRO_STATUS_SUCCESS)
    throw TypesettingFailure();

  PlacedPicture placed;
  placed.picture.view = {cairo_image_surface_get_data(surface.get()),
                         cairo_image_surface_get_width(surface.get()),
                         cairo_image_surface_get_height(surface.get()),
                         cairo_image_surface_get_stride(surface.get()), PixelFormat::bgra8Premultiplied};
  placed.picture.owner = surface;
  placed.x = static_cast<std::int32_t>(bounds.left);
  placed.y = static_cast<std::int32_t>(bounds.top);
  crop(placed);
  return placed;
}

// Letters are filled as outlines, since the library would put pictures of them on whole pixels, which makes
// the gaps between them uneven. What has no outlines, as coloured signs, comes as its picture.
void PangoLine::drawRuns(cairo_t& context) const {
  double x = 0;
  for (const GSList* item = line_->runs; item != nullptr; item = item->next) {
    const auto& run = *static_cast<const PangoGlyphItem*>(item->data);
    cairo_new_path(&context);
    cairo_move_to(&context, x, -units(run.y_offset));
    pango_cairo_glyph_string_path(&context, run.item->analysis.font, run.glyphs);
    double left = 0, top = 0, right = 0, bottom = 0;
    cairo_path_extents(&context, &left, &top, &right, &bottom);
    if (right > left && bottom > top) {
      cairo_fill(&context);
    } else {
      cairo_new_path(&context);
      cairo_move_to(&context, x, -units(run.y_offset));
      pango_cairo_show_glyph_string(&context, run.item->analysis.font, run.glyphs);
    }
    x += units(pango_glyph_string_get_width(run.glyphs));
  }
}

} // namespace tessarin::typesetting
