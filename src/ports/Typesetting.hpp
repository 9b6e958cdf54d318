#pragma once

#include "model/Picture.hpp"

#include <exception>
#include <memory>
#include <string>

// Text as pictures. One module serves it (src/modules/typesetting).
namespace tessarin {

struct FontDescription {
  std::string family; // replaced by the nearest one where it is not installed
  bool isBold = false;
  double size = 0; // the em, in the units of the drawing
};

// Text could not be set: the module is not there, no font is installed, or the picture would be too
// large or too far away.
class TypesettingFailure : public std::exception {
 public:
  const char* what() const noexcept override { return "text could not be set"; }
};

// One line of text. Measures are in the units of the drawing, relative to the left end of the baseline.
// Immutable; any thread, one call at a time.
class TypesetLine {
 public:
  virtual ~TypesetLine() = default;

  // The typographic bounds: how far the line advances, and how far its fonts reach up and down (both
  // positive), whichever letters there are.
  virtual double width() const = 0;
  virtual double ascent() const = 0;
  virtual double descent() const = 0;
  // How high the capitals of the wanted font stand, be there any or not: a line whose capitals are in the
  // middle looks as if it were, while fonts reach up and down by any measure.
  virtual double capitalHeight() const = 0;

  // The line in one colour, of straight alpha, on nothing: `scale` pixels a unit, the baseline's left end at
  // (x, y) in units from a plane's top left. bgra8Premultiplied and no larger than the ink, so of no size for
  // blanks; the place is in pixels of that plane. Throws TypesettingFailure.
  virtual PlacedPicture draw(double x, double y, double scale, const Color& color) const = 0;
};

// Any thread, one call at a time.
class TextTypesetter {
 public:
  virtual ~TextTypesetter() = default;
  // UTF-8 of one line, shaped, with replacement fonts where the family lacks a character. Throws
  // TypesettingFailure.
  virtual std::unique_ptr<TypesetLine> typesetLine(const std::string& text, const FontDescription& font) = 0;
};

} // namespace tessarin
