#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Pure text helpers: UTF-8, identifiers, base64, paths. No state, any thread.
namespace tessarin {

bool isValidUtf8(std::string_view text);

// The text with every ill-formed byte sequence replaced by U+FFFD.
std::string repairedUtf8(std::string_view text);

// The characters of the text, U+FFFD for every ill-formed byte sequence.
std::u32string codePoints(std::string_view utf8);

// Without white space and newlines (Unicode categories Zs, Zl, Zp and the control white space) at both ends.
std::string_view trimmed(std::string_view utf8);

// Whether the text is a UUID: 8-4-4-4-12 hexadecimal digits in either case.
bool isUuid(std::string_view text);

// Strict standard base64 with padding and nothing else; nothing on any other character or length.
std::optional<std::string> decodedBase64(std::string_view text);
std::string encodedBase64(std::string_view bytes);

// Absolute means that the path begins with a slash.
bool isAbsolutePath(std::string_view path);

// The components between slashes, without empty ones; the leading slash is no component.
std::vector<std::string_view> pathComponents(std::string_view path);
std::string_view lastPathComponent(std::string_view path);
bool hasParentComponent(std::string_view path); // ".."

// The text behind the last dot of the last component, lower-cased as ASCII; empty when there is none or
// the name only begins with the dot.
std::string lowercasePathExtension(std::string_view path);

// Absolute, and no component is "." or "..".
bool isCleanAbsoluteMediaPath(std::string_view path);

} // namespace tessarin
