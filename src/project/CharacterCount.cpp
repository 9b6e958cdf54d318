#include "project/CharacterCount.hpp"

#include "base/Text.hpp"

#include <utf8proc.h>

namespace tessarin {

std::size_t characterCount(std::string_view utf8) {
  const std::u32string scalars = codePoints(utf8);
  if (scalars.empty())
    return 0;
  std::size_t count = 1;
  utf8proc_int32_t state = 0; // what the library remembers of the scalars before, of flags and emoji
  for (std::size_t i = 1; i < scalars.size(); ++i)
    if (utf8proc_grapheme_break_stateful(static_cast<utf8proc_int32_t>(scalars[i - 1]),
                                         static_cast<utf8proc_int32_t>(scalars[i]), &state))
      ++count;
  return count;
}

bool hasAtMostCharacters(std::string_view utf8, std::size_t limit) {
  return utf8.size() <= limit || characterCount(utf8) <= limit;
}

} // namespace tessarin
