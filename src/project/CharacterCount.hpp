#pragma once

#include <cstddef>
#include <string_view>

namespace tessarin {

// How many characters a reader sees in the text: extended grapheme clusters (Unicode Standard Annex 29), so
// that a letter with its accents, a line feed with its carriage return, or an emoji of several parts is one.
// An ill-formed byte sequence counts as U+FFFD. Pure, any thread.
std::size_t characterCount(std::string_view utf8);

// Whether there are at most so many.
bool hasAtMostCharacters(std::string_view utf8, std::size_t limit);

} // namespace tessarin
