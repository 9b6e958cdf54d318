#pragma once

#include <compare>
#include <string_view>

namespace tessarin {

// The order in which a person expects names in a list, the same in every locale: letters without regard to
// case and accents, runs of digits by their value ("Mic 2" before "Mic 10"). Where that finds no difference,
// accents decide, plain letters first, then case, small letters first. Knows the letters of Latin, Greek and
// Cyrillic; others stand in the order of Unicode. The names are UTF-8. Pure, any thread.
std::strong_ordering compareNames(std::string_view a, std::string_view b);

} // namespace tessarin
