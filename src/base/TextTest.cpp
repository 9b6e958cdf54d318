#include "base/Text.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessarin {
namespace {

using namespace std::string_literals;

TEST(Utf8, WellFormedTextIsValid) {
  for (const std::string& text :
       {""s, "plain"s, "\0"s, "\x7F"s, "\u0080"s, "\u07FF"s, "\u0800"s, "\uD7FF"s, "\uE000"s, "\uFFFD"s,
        "\uFFFF"s, "\U00010000"s, "\U0010FFFF"s, "\uFEFFa"s, "a\u00e9\u20ac\U0001F600z"s}) {
    EXPECT_TRUE(isValidUtf8(text));
    EXPECT_EQ(repairedUtf8(text), text);
  }
}

TEST(Utf8, CharactersAreReadOneByOne) {
  EXPECT_EQ(codePoints(""), U"");
  EXPECT_EQ(codePoints("a\u00e9\u20ac\U0001F600z"), U"a\u00e9\u20ac\U0001F600z");
  EXPECT_EQ(codePoints("a\x80z\xE2\x82"), U"a\uFFFDz\uFFFD");
}

TEST(Utf8, IllFormedTextIsRefusedAndRepaired) {
  struct Row {
    const char* what;
    std::string text;
    std::string repaired;
  };
  const std::string mark = "\uFFFD";
  for (const Row& row : std::initializer_list<Row>{
           {"stray continuation", "a\x80z", "a" + mark + "z"},
           {"overlong slash, two bytes", "\xC0\xAF", mark + mark},
           {"overlong, C1", "\xC1\xBF", mark + mark},
           {"overlong slash, three bytes", "\xE0\x80\xAF", mark + mark + mark},
           {"overlong, just below U+0800", "\xE0\x9F\xBF", mark + mark + mark},
           {"overlong, four bytes", "\xF0\x8F\xBF\xBF", mark + mark + mark + mark},
           {"first surrogate", "\xED\xA0\x80", mark + mark + mark},
           {"last surrogate", "\xED\xBF\xBF", mark + mark + mark},
           {"above U+10FFFF", "\xF4\x90\x80\x80", mark + mark + mark + mark},
           {"F5", "\xF5\x80\x80\x80", mark + mark + mark + mark},
           {"FE and FF", "\xFE\xFF", mark + mark},
           {"two bytes cut short", "a\xC3", "a" + mark},
           {"three bytes cut short after two", "\xE2\x82", mark},
           {"four bytes cut short after three", "\xF0\x9F\x98", mark},
           {"cut short by a letter", "\xE2\x82z", mark + "z"},
           {"cut short by another character", "\xF0\x9F\u20ac", mark + "\u20ac"},
           {"Latin-1", "caf\xE9 noir", "caf" + mark + " noir"},
       }) {
    SCOPED_TRACE(row.what);
    EXPECT_FALSE(isValidUtf8(row.text));
    EXPECT_EQ(repairedUtf8(row.text), row.repaired);
    EXPECT_TRUE(isValidUtf8(repairedUtf8(row.text)));
  }
}

TEST(Trimming, TakesWhiteSpaceFromBothEnds) {
  for (const std::string& blank :
       {" "s, "\t"s, "\n"s, "\v"s, "\f"s, "\r"s, "\u0085"s, "\u00A0"s, "\u1680"s, "\u2000"s, "\u200A"s,
        "\u2028"s, "\u2029"s, "\u202F"s, "\u205F"s, "\u3000"s, " \u3000\n"s}) {
    EXPECT_EQ(trimmed(blank + "a" + blank + "b" + blank), "a" + blank + "b");
    EXPECT_EQ(trimmed(blank), "");
  }
  EXPECT_EQ(trimmed(""), "");
  EXPECT_EQ(trimmed("ab"), "ab");
}

TEST(Trimming, LeavesOtherCharacters) {
  for (const std::string& text :
       {"\u200B"s, "\uFEFF"s, "\x1F"s, "\0"s, "\u180E"s, "\u1FFF"s, "\u200C"s, "\u3001"s, "\u0084"s,
        "\u0086"s, "\u20ac"s, "\U0001F600"s, "\xA0"s, "a\xE3\x80"s})
    EXPECT_EQ(trimmed(text), text);
  EXPECT_EQ(trimmed(" \xFF "), "\xFF");
}

TEST(Uuid, HasFiveGroupsOfHexadecimalDigits) {
  EXPECT_TRUE(isUuid("123e4567-e89b-12d3-a456-426614174000"));
  EXPECT_TRUE(isUuid("ABCDEF00-ABCD-ABCD-ABCD-abcdefABCDEF"));
  for (const char* text : {"", "123e4567-e89b-12d3-a456-42661417400", "123e4567-e89b-12d3-a456-4266141740000",
                           "123e4567e89b-12d3-a456-4266141740000", "g23e4567-e89b-12d3-a456-426614174000",
                           "{123e4567-e89b-12d3-a456-426614174000}", "123e4567-e89b-12d3-a456-42661417400-",
                           "123e4567 e89b-12d3-a456-426614174000", " 23e4567-e89b-12d3-a456-426614174000",
                           "123e45678e89b-12d3-a456-42661417400", "@23e4567-e89b-12d3-a456-426614174000"})
    EXPECT_FALSE(isUuid(text)) << text;
}

TEST(Base64, RunsBothWays) {
  struct Row {
    std::string bytes;
    const char* text;
  };
  for (const Row& row : std::initializer_list<Row>{{"", ""},
                                                   {"A", "QQ=="},
                                                   {"AB", "QUI="},
                                                   {"ABC", "QUJD"},
                                                   {"ABCD", "QUJDRA=="},
                                                   {"\0"s, "AA=="},
                                                   {"\xFF\xFF\xFF", "////"},
                                                   {"\xFB\xEF\xBE", "++++"},
                                                   {"\xFF", "/w=="},
                                                   {"{\"a\":1}", "eyJhIjoxfQ=="}}) {
    EXPECT_EQ(encodedBase64(row.bytes), row.text);
    EXPECT_EQ(decodedBase64(row.text), row.bytes);
  }
}

TEST(Base64, EveryByteSurvives) {
  std::string bytes;
  for (int length = 0; length < 300; ++length) {
    EXPECT_EQ(decodedBase64(encodedBase64(bytes)), bytes);
    bytes += static_cast<char>(length * 7);
  }
}

TEST(Base64, TakesNothingButTheCanonicalForm) {
  for (const std::string& text :
       {"Q"s,      "QQ"s,       "QQ="s,        "QUI"s,      "QQ==="s,   "="s,     "=="s,    "==="s,
        "===="s,   "Q==="s,     "A=B="s,       "QQ==QQ=="s, "QUJD="s,   "Q Q="s,  " QQ=="s, "QQ==\n"s,
        "QU\nJD"s, "QUJD\r\n"s, "Q-=="s,       "Q_=="s,     "QQ=\0"s,   "Q\0=="s, "QR=="s,  "QV=="s,
        "QUJ="s,   "QUL="s,     "\xC3\xA9=="s, "QUJD*UJD"s, "QUJDQQ=Q"s})
    EXPECT_FALSE(decodedBase64(text)) << text;
}

TEST(Path, AbsoluteMeansALeadingSlash) {
  EXPECT_TRUE(isAbsolutePath("/"));
  EXPECT_TRUE(isAbsolutePath("/a"));
  EXPECT_TRUE(isAbsolutePath("//"));
  for (const char* path : {"", "a", "./a", "~", "~/a", " /a", "a/"})
    EXPECT_FALSE(isAbsolutePath(path)) << path;
}

TEST(Path, SplitsIntoComponents) {
  using testing::ElementsAre;
  EXPECT_THAT(pathComponents("/a/b.c/d"), ElementsAre("a", "b.c", "d"));
  EXPECT_THAT(pathComponents("//a///b/"), ElementsAre("a", "b"));
  EXPECT_THAT(pathComponents("a/../."), ElementsAre("a", "..", "."));
  EXPECT_THAT(pathComponents("/"), ElementsAre());
  EXPECT_THAT(pathComponents(""), ElementsAre());
  EXPECT_THAT(pathComponents("a"), ElementsAre("a"));
}

TEST(Path, KnowsItsLastComponent) {
  EXPECT_EQ(lastPathComponent("/a/b"), "b");
  EXPECT_EQ(lastPathComponent("/a/b//"), "b");
  EXPECT_EQ(lastPathComponent("b"), "b");
  EXPECT_EQ(lastPathComponent("/"), "");
  EXPECT_EQ(lastPathComponent(""), "");
}

TEST(Path, KnowsItsExtensionInLowerCase) {
  EXPECT_EQ(lowercasePathExtension("/a/shot.png"), "png");
  EXPECT_EQ(lowercasePathExtension("/a/./shot.PNG"), "png");
  EXPECT_EQ(lowercasePathExtension("/a/shot.tar.GZ"), "gz");
  EXPECT_EQ(lowercasePathExtension("/a.b/shot"), "");
  EXPECT_EQ(lowercasePathExtension("/a/.png"), "");
  EXPECT_EQ(lowercasePathExtension("/a/.hidden.png"), "png");
  EXPECT_EQ(lowercasePathExtension("/a/shot."), "");
  EXPECT_EQ(lowercasePathExtension("/a/shot.png/"), "png");
  EXPECT_EQ(lowercasePathExtension(""), "");
  EXPECT_EQ(lowercasePathExtension("/a/shot.\u00c9"), "\u00c9");
}

TEST(Path, IsCleanWithoutDotComponents) {
  for (const char* path : {"/", "/a", "/a/b.png", "/a..b", "/..a", "/a..", "/...", "//a//b"})
    EXPECT_TRUE(isCleanAbsoluteMediaPath(path)) << path;
  for (const char* path : {"", "a", "/.", "/..", "/a/../b", "/a/./b", "/a/..", "/a/.", "../a", "/a//..//b"})
    EXPECT_FALSE(isCleanAbsoluteMediaPath(path)) << path;
}

} // namespace
} // namespace tessarin
