#include "project/CharacterCount.hpp"

#include <gtest/gtest.h>

#include <string>

namespace tessarin {
namespace {

struct Case {
  const char* name;
  std::string text;
  std::size_t count;
};

TEST(CharacterCount, CountsWhatAReaderTakesForOne) {
  const Case cases[] = {
      {"nothing", "", 0},
      {"letters", "abc", 3},
      {"accented letters, composed", "\u00e9\u00e8", 2},
      {"accented letters, decomposed", "e\u0301e\u0300", 2},
      {"several marks on one letter", "a\u0301\u0323\u0302", 1},
      {"a mark alone", "\u0301", 1},
      {"a line's end", "a\r\nb", 3},
      {"line ends apart", "a\n\rb", 4},
      {"Han", "\u5b57\u5e55", 2},
      {"Hangul by its parts", "\u1112\u1161\u11ab\u1100\u116e\u11a8", 2},
      {"an emoji with its skin", "\U0001f44d\U0001f3fd", 1},
      {"a family", "\U0001f468\u200d\U0001f469\u200d\U0001f467", 1},
      {"two families", "\U0001f468\u200d\U0001f469\U0001f468\u200d\U0001f469", 2},
      {"a joiner between letters", "a\u200db", 2},
      {"three flags", "\U0001f1e9\U0001f1ea\U0001f1eb\U0001f1f7\U0001f1ee\U0001f1f9", 3},
      {"half a flag more", "\U0001f1e9\U0001f1ea\U0001f1eb", 2},
      {"a keycap", "1\ufe0f\u20e3", 1},
      {"a stray byte",
       "a\xff"
       "b",
       3},
  };
  for (const Case& each : cases)
    EXPECT_EQ(characterCount(each.text), each.count) << each.name;
}

TEST(CharacterCount, ComparesCharactersAndNotBytes) {
  std::string text;
  for (int i = 0; i < 60; ++i)
    text += "e\u0301";
  EXPECT_TRUE(hasAtMostCharacters(text, 60));
  EXPECT_FALSE(hasAtMostCharacters(text, 59));
  EXPECT_TRUE(hasAtMostCharacters(std::string(60, 'x'), 60));
  EXPECT_FALSE(hasAtMostCharacters(std::string(61, 'x'), 60));
  EXPECT_TRUE(hasAtMostCharacters("", 0));
}

} // namespace
} // namespace tessarin
