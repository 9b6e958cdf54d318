#include "backends/x11/WindowsText.hpp"

#include <gtest/gtest.h>

#include <string_view>

namespace tessarin::x11 {
namespace {

using namespace std::string_view_literals;

TEST(WindowsText, ReadsLatin1) {
  EXPECT_EQ(utf8FromLatin1(""), "");
  EXPECT_EQ(utf8FromLatin1("plain ~"), "plain ~");
  EXPECT_EQ(utf8FromLatin1("Gr\xFC\xDF"
                           "e \x80\xBF\xC0\xFF"),
            "Gr\u00FC\u00DFe \u0080\u00BF\u00C0\u00FF");
}

TEST(WindowsText, ReadsCompoundText) {
  struct Case {
    std::string_view text;
    std::string_view utf8;
  };
  for (const auto& [text, utf8] : {
           Case{"", ""},
           {"plain", "plain"},
           {"caf\xE9", "caf\u00E9"},                             // Latin-1 from the start
           {"\x1b-B\xB1", "\u0105"},                             // Latin-2
           {"\x1b-L\xBF\xD6 \x1b-A\xE9", "\u041F\u0436 \u00E9"}, // Cyrillic and back
           {"\x1b$)A\xD6\xD0\xCE\xC4", "\u4E2D\u6587"},          // GB 2312 in the upper half
           {"\x1b$(AVPND\x1b(Bx", "\u4E2D\u6587x"},              // and in the lower
           {"\x1b$(BF|K\\", "\u65E5\u672C"},                     // JIS X 0208
           {"\x1b$(C\x47\x51", "\uD55C"},                        // KS C 5601
           {"\x1b%G\u4E2D\u6587\x1b%@ end", "\u4E2D\u6587 end"}, // UTF-8
           {"\x1b%G\u4E2D", "\u4E2D"},                           // UTF-8 not ended
           {"\x1b%G\xFF\x1b%@", "\uFFFD"},                       // UTF-8 ill formed
           {"\x1b-Z\xB1 ok", "\uFFFD ok"},                       // a set that is not known
           {"a\x1b", "a"},                                       // cut in a sequence
           {"a\x1b$", "a$"},
           {"a\x1b-", "a-"},
           {"tab\there", "tab\there"},
       }) {
    EXPECT_EQ(utf8FromCompoundText(text), utf8) << text;
  }
}

} // namespace
} // namespace tessarin::x11
