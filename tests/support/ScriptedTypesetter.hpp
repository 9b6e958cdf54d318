#pragma once

#include "ports/Typesetting.hpp"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace tessarin {

// Text of a font whose every letter (every byte of the text) is half an em wide, and which reaches three
// quarters of an em up and a quarter down; its capitals are seven tenths high. A line is drawn as one block
// of its colour that fills its bounds, grown to whole pixels. One thread.
class ScriptedTypesetter final : public TextTypesetter {
 public:
  struct Drawing {
    double x = 0;
    double y = 0;
    double scale = 0;
    Color color;
  };

  std::unique_ptr<TypesetLine> typesetLine(const std::string& text, const FontDescription& font) override;

  // The script.
  bool isUnavailable = false; // setting a line fails
  bool isUndrawable = false;  // drawing one does
  bool isBlank = false;       // what is drawn has no ink

  // The log, by calls.
  std::vector<std::string> texts;
  std::vector<FontDescription> fonts;
  std::vector<Drawing> drawings;
};

} // namespace tessarin
