#include "base/Text.hpp"

#include <algorithm>
#include <array>

namespace tessarin {

namespace {

// The first character of a text: well formed, or the longest beginning of one that is cut short, or one
// stray byte.
struct Character {
  char32_t codePoint = 0;
  std::size_t length = 0; // bytes
  bool isWellFormed = false;
};

Character firstCharacter(std::string_view text) {
  const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80)
    return {lead, 1, true};
  if (lead < 0xC2 || lead > 0xF4)
    return {0, 1, false};
  const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  // The second byte's range rules out overlong forms, surrogates and what lies above U+10FFFF.
  const unsigned char lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const unsigned char highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  char32_t codePoint = lead & (0xFFU >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    if (i >= text.size() || byte(i) < (i == 1 ? lowest : 0x80) || byte(i) > (i == 1 ? highest : 0xBF))
      return {0, i, false};
    codePoint = codePoint << 6 | (byte(i) & 0x3FU);
  }
  return {codePoint, length, true};
}

// The last well-formed character; a length of 0 when the text does not end in one.
Character lastCharacter(std::string_view text) {
  for (std::size_t length = 1; length <= std::min<std::size_t>(4, text.size()); ++length) {
    const Character character = firstCharacter(text.substr(text.size() - length));
    if (character.isWellFormed && character.length == length)
      return character;
  }
  return {};
}

bool isWhiteSpace(char32_t codePoint) {
  return (codePoint >= 0x09 && codePoint <= 0x0D) || codePoint == 0x20 || codePoint == 0x85 ||
         codePoint == 0xA0 || codePoint == 0x1680 || (codePoint >= 0x2000 && codePoint <= 0x200A) ||
         codePoint == 0x2028 || codePoint == 0x2029 || codePoint == 0x202F || codePoint == 0x205F ||
         codePoint == 0x3000;
}

bool isHexadecimalDigit(char character) {
  return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'f') ||
         (character >= 'A' && character <= 'F');
}

constexpr std::string_view base64Alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The value of each character, or 64.
constexpr auto base64Values = [] {
  std::array<std::uint8_t, 256> values{};
  values.fill(64);
  for (std::size_t i = 0; i < base64Alphabet.size(); ++i)
    values[static_cast<unsigned char>(base64Alphabet[i])] = static_cast<std::uint8_t>(i);
  return values;
}();

} // namespace

bool isValidUtf8(std::string_view text) {
  while (!text.empty()) {
    const Character character = firstCharacter(text);
    if (!character.isWellFormed)
      return false;
    text.remove_prefix(character.length);
  }
  return true;
}

std::string repairedUtf8(std::string_view text) {
  std::string repaired;
  repaired.reserve(text.size());
  while (!text.empty()) {
    const Character character = firstCharacter(text);
    repaired += character.isWellFormed ? text.substr(0, character.length) : "\uFFFD";
    text.remove_prefix(character.length);
  }
  return repaired;
}

std::u32string codePoints(std::string_view utf8) {
  std::u32string result;
  result.reserve(utf8.size());
  while (!utf8.empty()) {
    const Character character = firstCharacter(utf8);
    result += character.isWellFormed ? character.codePoint : U'\uFFFD';
    utf8.remove_prefix(character.length);
  }
  return result;
}

std::string_view trimmed(std::string_view utf8) {
  while (!utf8.empty()) {
    const Character first = firstCharacter(utf8);
    if (!first.isWellFormed || !isWhiteSpace(first.codePoint))
      break;
    utf8.remove_prefix(first.length);
  }
  while (!utf8.empty()) {
    const Character last = lastCharacter(utf8);
    if (!last.isWellFormed || !isWhiteSpace(last.codePoint))
      break;
    utf8.remove_suffix(last.length);
  }
  return utf8;
}

bool isUuid(std::string_view text) {
  constexpr std::string_view form = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
  return std::equal(text.begin(), text.end(), form.begin(), form.end(), [](char character, char expected) {
    return expected == '-' ? character == '-' : isHexadecimalDigit(character);
  });
}

std::optional<std::string> decodedBase64(std::string_view text) {
  if (text.size() % 4 != 0)
    return std::nullopt;
  std::size_t padding = 0;
  while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=')
    ++padding;
  text.remove_suffix(padding);

  std::string bytes;
  bytes.reserve(text.size() * 3 / 4);
  std::uint32_t bits = 0;
  int bitCount = 0;
  for (const char character : text) {
    const std::uint8_t value = base64Values[static_cast<unsigned char>(character)];
    if (value == 64)
      return std::nullopt;
    bits = (bits << 6 | value) & 0xFFFF;
    bitCount += 6;
    if (bitCount >= 8) {
      bitCount -= 8;
      bytes += static_cast<char>(bits >> bitCount & 0xFF);
    }
  }
  // Bits that no byte takes up are zero in the one canonical form.
  if ((bits & ((1U << bitCount) - 1)) != 0)
    return std::nullopt;
  return bytes;
}

std::string encodedBase64(std::string_view bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t count = std::min<std::size_t>(3, bytes.size() - i);
    std::uint32_t group = 0;
    for (std::size_t j = 0; j < 3; ++j)
      group = group << 8 | (j < count ? static_cast<unsigned char>(bytes[i + j]) : 0U);
    for (std::size_t j = 0; j < 4; ++j)
      text += j <= count ? base64Alphabet[group >> (18 - 6 * j) & 0x3F] : '=';
  }
  return text;
}

bool isAbsolutePath(std::string_view path) {
  return path.starts_with('/');
}

std::vector<std::string_view> pathComponents(std::string_view path) {
  std::vector<std::string_view> components;
  while (!path.empty()) {
    const std::size_t end = std::min(path.find('/'), path.size());
    if (end > 0)
      components.push_back(path.substr(0, end));
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return components;
}

std::string_view lastPathComponent(std::string_view path) {
  const std::size_t last = path.find_last_not_of('/');
  if (last == std::string_view::npos)
    return {};
  path = path.substr(0, last + 1);
  return path.substr(path.rfind('/') + 1); // npos + 1 is 0
}

bool hasParentComponent(std::string_view path) {
  const std::vector<std::string_view> components = pathComponents(path);
  return std::find(components.begin(), components.end(), "..") != components.end();
}

std::string lowercasePathExtension(std::string_view path) {
  const std::string_view name = lastPathComponent(path);
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0)
    return {};
  std::string extension(name.substr(dot + 1));
  for (char& character : extension)
    if (character >= 'A' && character <= 'Z')
      character = static_cast<char>(character - 'A' + 'a');
  return extension;
}

bool isCleanAbsoluteMediaPath(std::string_view path) {
  const std::vector<std::string_view> components = pathComponents(path);
  return isAbsolutePath(path) &&
         std::none_of(components.begin(), components.end(),
                      [](std::string_view each) { return each == "." || each == ".."; });
}

} // namespace tessarin
