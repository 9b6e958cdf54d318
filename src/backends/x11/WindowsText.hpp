#pragma once

#include <string>
#include <string_view>

// The encodings of text properties. Pure; the results are UTF-8 and always well formed.
namespace tessarin::x11 {

std::string utf8FromLatin1(std::string_view text);

// X compound text: ISO 2022 with the registered character sets. What stands in a set that is not known here
// becomes U+FFFD.
std::string utf8FromCompoundText(std::string_view text);

} // namespace tessarin::x11
