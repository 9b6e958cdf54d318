#include "support/ScriptedTypesetter.hpp"

#include <array>
#include <cmath>
#include <cstdint>

namespace tessarin {

namespace {

std::uint8_t channel(double value, double alpha) {
  return static_cast<std::uint8_t>(std::lround(value * alpha * 255));
}

PlacedPicture block(double left, double top, double right, double bottom, const Color& color) {
  PlacedPicture placed;
  placed.x = static_cast<std::int32_t>(std::floor(left));
  placed.y = static_cast<std::int32_t>(std::floor(top));
  const auto width = static_cast<std::int32_t>(std::ceil(right)) - placed.x;
  const auto height = static_cast<std::int32_t>(std::ceil(bottom)) - placed.y;
  const std::array<std::uint8_t, 4> pixel = {channel(color.blue, color.alpha),
                                             channel(color.green, color.alpha),
                                             channel(color.red, color.alpha), channel(1, color.alpha)};
  const auto bytes = std::make_shared<std::vector<std::uint8_t>>();
  for (std::int64_t i = 0; i < std::int64_t{width} * height; ++i)
    bytes->insert(bytes->end(), pixel.begin(), pixel.end());
  placed.picture = {
      {bytes->data(), width, height, std::ptrdiff_t{width} * 4, PixelFormat::bgra8Premultiplied}, bytes};
  return placed;
}

class ScriptedLine final : public TypesetLine {
 public:
  ScriptedLine(ScriptedTypesetter& script, std::size_t letters, double em)
      : script_(script), width_(0.5 * em * static_cast<double>(letters)), em_(em) {}

  double width() const override { return width_; }
  double ascent() const override { return 0.75 * em_; }
  double descent() const override { return 0.25 * em_; }
  double capitalHeight() const override { return 0.7 * em_; }

  PlacedPicture draw(double x, double y, double scale, const Color& color) const override {
    script_.drawings.push_back({x, y, scale, color});
    if (script_.isUndrawable)
      throw TypesettingFailure();
    if (script_.isBlank)
      return {};
    return block(x * scale, (y - ascent()) * scale, (x + width_) * scale, (y + descent()) * scale, color);
  }

 private:
  ScriptedTypesetter& script_;
  const double width_;
  const double em_;
};

} // namespace

std::unique_ptr<TypesetLine> ScriptedTypesetter::typesetLine(const std::string& text,
                                                             const FontDescription& font) {
  if (isUnavailable)
    throw TypesettingFailure();
  texts.push_back(text);
  fonts.push_back(font);
  return std::make_unique<ScriptedLine>(*this, text.size(), font.size);
}

} // namespace tessarin
