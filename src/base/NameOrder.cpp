#include "base/NameOrder.hpp"

#include "base/Text.hpp"

#include <algorithm>
#include <iterator>
#include <string>

namespace tessarin {

namespace {

struct LetterRange {
  char32_t first; // up to the next range's first
  char32_t base;  // 0 where each letter stands for itself
};

// The plain letters of small Latin, Greek and Cyrillic letters with marks. Ligatures stand with their first
// letter.
constexpr LetterRange plainLetters[] = {
    {0x00, 0},      {0xDF, U's'},   {0xE0, U'a'},   {0xE7, U'c'},   {0xE8, U'e'},  {0xEC, U'i'},
    {0xF0, U'd'},   {0xF1, U'n'},   {0xF2, U'o'},   {0xF7, 0},      {0xF8, U'o'},  {0xF9, U'u'},
    {0xFD, U'y'},   {0xFE, 0},      {0xFF, U'y'},   {0x100, U'a'},  {0x106, U'c'}, {0x10E, U'd'},
    {0x112, U'e'},  {0x11C, U'g'},  {0x124, U'h'},  {0x128, U'i'},  {0x134, U'j'}, {0x136, U'k'},
    {0x139, U'l'},  {0x143, U'n'},  {0x14C, U'o'},  {0x154, U'r'},  {0x15A, U's'}, {0x162, U't'},
    {0x168, U'u'},  {0x174, U'w'},  {0x176, U'y'},  {0x179, U'z'},  {0x17F, U's'}, {0x180, 0},
    {0x3AC, 0x3B1}, {0x3AD, 0x3B5}, {0x3AE, 0x3B7}, {0x3AF, 0x3B9}, {0x3B0, 0},    {0x3C2, 0x3C3},
    {0x3C3, 0},     {0x3CC, 0x3BF}, {0x3CD, 0x3C5}, {0x3CE, 0x3C9}, {0x3CF, 0},    {0x451, 0x435},
    {0x452, 0}};

char32_t plainLetter(char32_t small) {
  const auto* const behind =
      std::upper_bound(std::begin(plainLetters), std::end(plainLetters), small,
                       [](char32_t letter, const LetterRange& range) { return letter < range.first; });
  const char32_t base = std::prev(behind)->base;
  return base != 0 ? base : small;
}

bool isWithin(char32_t letter, char32_t first, char32_t last) {
  return letter >= first && letter <= last;
}

char32_t smallGreekLetter(char32_t letter) {
  if (isWithin(letter, 0x391, 0x3A9))
    return letter + 0x20;
  if (letter == 0x386)
    return 0x3AC;
  if (isWithin(letter, 0x388, 0x38A))
    return letter + 0x25;
  if (letter == 0x38C)
    return 0x3CC;
  return isWithin(letter, 0x38E, 0x38F) ? letter + 0x3F : letter;
}

char32_t smallLetter(char32_t letter) {
  if (isWithin(letter, U'A', U'Z') || (isWithin(letter, 0xC0, 0xDE) && letter != 0xD7) ||
      isWithin(letter, 0x410, 0x42F))
    return letter + 0x20;
  if (letter == 0x178)
    return 0xFF;
  if (isWithin(letter, 0x100, 0x137) || isWithin(letter, 0x14A, 0x177))
    return letter | 1;
  if (isWithin(letter, 0x139, 0x148) || isWithin(letter, 0x179, 0x17E))
    return letter + (letter & 1);
  if (isWithin(letter, 0x400, 0x40F))
    return letter + 0x50;
  return smallGreekLetter(letter);
}

bool isDigit(char32_t letter) {
  return isWithin(letter, U'0', U'9');
}

// What is left of a name, taken from its front.
class NameRest {
 public:
  explicit NameRest(std::u32string_view rest) : rest_(rest) { skipMarks(); }

  bool isEmpty() const { return rest_.empty(); }
  bool beginsWithDigit() const { return !rest_.empty() && isDigit(rest_.front()); }

  char32_t takeLetter() {
    const char32_t letter = plainLetter(smallLetter(rest_.front()));
    take(1);
    return letter;
  }

  // A run of digits without its leading zeros.
  std::u32string_view takeNumber() {
    const auto end = std::find_if_not(rest_.begin(), rest_.end(), isDigit);
    std::u32string_view number = rest_.substr(0, static_cast<std::size_t>(end - rest_.begin()));
    take(number.size());
    number.remove_prefix(std::min(number.find_first_not_of(U'0'), number.size()));
    return number;
  }

 private:
  void take(std::size_t count) {
    rest_.remove_prefix(count);
    skipMarks();
  }

  // Marks that stand behind the letter that they belong to.
  void skipMarks() {
    while (!rest_.empty() && isWithin(rest_.front(), 0x300, 0x36F))
      rest_.remove_prefix(1);
  }

  std::u32string_view rest_;
};

std::strong_ordering compareValues(std::u32string_view a, std::u32string_view b) {
  return a.size() != b.size() ? a.size() <=> b.size() : a <=> b;
}

std::strong_ordering comparePlain(std::u32string_view a, std::u32string_view b) {
  NameRest restOfA(a);
  NameRest restOfB(b);
  while (!restOfA.isEmpty() && !restOfB.isEmpty()) {
    const auto order = restOfA.beginsWithDigit() && restOfB.beginsWithDigit()
                           ? compareValues(restOfA.takeNumber(), restOfB.takeNumber())
                           : restOfA.takeLetter() <=> restOfB.takeLetter();
    if (std::is_neq(order))
      return order;
  }
  return restOfB.isEmpty() <=> restOfA.isEmpty();
}

std::u32string inSmallLetters(std::u32string text) {
  std::transform(text.begin(), text.end(), text.begin(), smallLetter);
  return text;
}

} // namespace

std::strong_ordering compareNames(std::string_view a, std::string_view b) {
  const std::u32string textOfA = codePoints(a);
  const std::u32string textOfB = codePoints(b);
  if (const auto order = comparePlain(textOfA, textOfB); std::is_neq(order))
    return order;
  if (const auto order = inSmallLetters(textOfA) <=> inSmallLetters(textOfB); std::is_neq(order))
    return order;
  // A capital letter comes before its small one in Unicode.
  return textOfB <=> textOfA;
}

} // namespace tessarin
