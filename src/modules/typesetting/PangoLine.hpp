#pragma once

#include "modules/typesetting/PangoTypesetter.hpp"

namespace tessarin::typesetting {

// A line as the library has laid it out. Any thread: everything is done under the mutex of the fonts.
class PangoLine final : public TypesetLine {
 public:
  // The layout holds a single line. Under the mutex of the stock.
  PangoLine(std::shared_ptr<FontStock> stock, Handle<PangoLayout> layout, double capitalHeight);
  ~PangoLine() override;

  double width() const override { return width_; }
  double ascent() const override { return ascent_; }
  double descent() const override { return descent_; }
  double capitalHeight() const override { return capitalHeight_; }

  PlacedPicture draw(double x, double y, double scale, const Color& color) const override;

 private:
  struct Bounds;
  Bounds inkBounds(double x, double y, double scale) const;
  void drawRuns(cairo_t& context) const;

  const std::shared_ptr<FontStock> stock_;
  Handle<PangoLayout> layout_; // under the stock's mutex
  PangoLayoutLine* line_;      // of the layout
  PangoRectangle ink_{};       // in units of the library
  double width_ = 0;
  double ascent_ = 0;
  double descent_ = 0;
  const double capitalHeight_;
};

} // namespace tessarin::typesetting
