#include "base/JsonDocument.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>

namespace tessarin::json {
namespace {

constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();
constexpr std::uint64_t highestUnsigned = std::numeric_limits<std::uint64_t>::max();

std::int64_t signedOf(const std::string& text, std::int64_t low = lowest, std::int64_t high = highest) {
  return Document(text).root().signedInteger(low, high);
}

std::uint64_t unsignedOf(const std::string& text, std::uint64_t high = highestUnsigned) {
  return Document(text).root().unsignedInteger(high);
}

std::string repeated(const std::string& piece, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i)
    text += piece;
  return text;
}

std::string numberText(double value) {
  std::string text;
  appendNumber(text, value);
  return text;
}

std::string stringText(std::string_view value) {
  std::string text;
  appendString(text, value);
  return text;
}

TEST(JsonDocument, TakesExactlyOneValue) {
  EXPECT_TRUE(Document(" null\n").root().isNull());
  EXPECT_TRUE(Document("{}").root().isObject());
  EXPECT_EQ(Document("\"a\"").root().string(), "a");
  for (const char* text :
       {"",         " ",  "{} {}", "1 2", "{",  "[1,]", "{\"a\":1,}", "{a:1}",   "'a'",     "nul", "NaN",
        "Infinity", "01", "+1",    "1.",  ".5", "\"a",  "[1 2]",      "{\"a\"}", "// c\n1", "\x01"})
    EXPECT_THROW(Document{text}, DecodingFailure) << text;
}

TEST(JsonDocument, RefusesTextBehindANulByte) {
  using namespace std::string_literals;
  EXPECT_THROW(Document("{}\0"s), DecodingFailure);
  EXPECT_THROW(Document("{}\0{"s), DecodingFailure);
  EXPECT_THROW(Document("\0"s), DecodingFailure);
  EXPECT_EQ(Document("\"a\\u0000b\"").root().string(), "a\0b"s);
}

TEST(JsonDocument, RefusesTextThatIsNotUtf8) {
  for (const char* text : {"\"\xFF\"", "\"\xC0\xAF\"", "\"\xED\xA0\x80\"", "\"\xE2\x82\"", "\"\\ud800\"",
                           "\"\\udc00\\ud800\"", "{\"\xFF\":1}"})
    EXPECT_THROW(Document{text}, DecodingFailure);
  EXPECT_EQ(Document("\"\\u20ac \\ud83d\\ude00 \u20ac\"").root().string(), "\u20ac \U0001F600 \u20ac");
}

TEST(JsonDocument, TheLastOfTwoEqualKeysCounts) {
  const Document document(R"({"a":1,"b":2,"a":{"c":3},"a":4})");
  EXPECT_EQ(document.root().member("a")->signedInteger(0, 9), 4);
  EXPECT_FALSE(document.root().member("c"));
}

TEST(JsonDocument, NestsFiveHundredAndTwelveDeepAndNoDeeper) {
  EXPECT_NO_THROW(Document(repeated("[", 512) + repeated("]", 512)));
  EXPECT_THROW(Document(repeated("[", 513) + repeated("]", 513)), DecodingFailure);
  EXPECT_NO_THROW(Document(repeated("[", 512) + "1" + repeated("]", 512)));
  EXPECT_NO_THROW(Document(repeated("{\"a\":", 512) + "1" + repeated("}", 512)));
  EXPECT_THROW(Document(repeated("{\"a\":", 512) + "{}" + repeated("}", 512)), DecodingFailure);
  EXPECT_NO_THROW(Document(repeated("{\"a\":[", 256) + "1" + repeated("]}", 256)));
  EXPECT_THROW(Document(repeated("[{\"a\":", 256) + "[]" + repeated("}]", 256)), DecodingFailure);
}

TEST(JsonDocument, CountsDepthNotTheNumberOfValues) {
  EXPECT_EQ(Document("[" + repeated("[],", 5000) + "[]]").root().arraySize(), 5001U);
}

TEST(JsonDocument, SurvivesHostileNesting) {
  const std::string megabyte(1 << 20, '[');
  EXPECT_THROW(Document{megabyte}, DecodingFailure);
  EXPECT_THROW(Document{megabyte + std::string(1 << 20, ']')}, DecodingFailure);
  EXPECT_THROW(Document{repeated("{\"a\":", 200000)}, DecodingFailure);
}

TEST(JsonDocument, StaysReadableWhenMoved) {
  Document first("{\"a\":[1]}");
  const Document second = std::move(first);
  EXPECT_EQ(second.root().member("a")->at(0).signedInteger(0, 1), 1);
}

TEST(JsonValue, EveryAccessorRefusesOtherTypes) {
  struct Row {
    const char* text;
    const char* type;
  };
  for (const Row& row :
       {Row{"null", "null"}, Row{"true", "boolean"}, Row{"1", "number"}, Row{"1.5", "number"},
        Row{"\"1\"", "string"}, Row{"[]", "array"}, Row{"{}", "object"}}) {
    SCOPED_TRACE(row.text);
    const Document document(row.text);
    const Value value = document.root();
    const std::string type = row.type;
    EXPECT_EQ(value.isNull(), type == "null");
    EXPECT_EQ(value.isObject(), type == "object");
    if (type != "boolean") {
      EXPECT_THROW(value.boolean(), DecodingFailure);
    }
    if (type != "string") {
      EXPECT_THROW(value.string(), DecodingFailure);
    }
    if (type != "array") {
      EXPECT_THROW(value.arraySize(), DecodingFailure);
    }
    if (type != "object") {
      EXPECT_THROW(value.member("a"), DecodingFailure);
    }
    if (type != "number") {
      EXPECT_THROW(value.number(), DecodingFailure);
      EXPECT_THROW(value.signedInteger(lowest, highest), DecodingFailure);
      EXPECT_THROW(value.unsignedInteger(highestUnsigned), DecodingFailure);
    }
  }
}

TEST(JsonValue, AnElementBehindTheEndIsRefused) {
  const Document document("[7]");
  EXPECT_EQ(document.root().at(0).signedInteger(7, 7), 7);
  EXPECT_THROW(document.root().at(1), DecodingFailure);
}

TEST(JsonValue, IntegersTakeNumbersOfIntegralValue) {
  EXPECT_EQ(signedOf("3"), 3);
  EXPECT_EQ(signedOf("3.0"), 3);
  EXPECT_EQ(signedOf("3e0"), 3);
  EXPECT_EQ(signedOf("30e-1"), 3);
  EXPECT_EQ(signedOf("-3.0"), -3);
  EXPECT_EQ(signedOf("-0.0"), 0);
  EXPECT_EQ(unsignedOf("3.0"), 3U);
  EXPECT_EQ(unsignedOf("-0.0"), 0U);
  EXPECT_EQ(unsignedOf("-0"), 0U);
  EXPECT_THROW(signedOf("3.5"), DecodingFailure);
  EXPECT_THROW(unsignedOf("0.1"), DecodingFailure);
}

TEST(JsonValue, SignedIntegersKeepTheirRangeOnBothSides) {
  EXPECT_EQ(signedOf("9223372036854775807"), highest);
  EXPECT_THROW(signedOf("9223372036854775808"), DecodingFailure);
  EXPECT_EQ(signedOf("-9223372036854775808"), lowest);
  EXPECT_THROW(signedOf("-9223372036854775809"), DecodingFailure);
  EXPECT_EQ(signedOf("-9223372036854774784.0"), lowest + 1024);
  EXPECT_EQ(signedOf("9223372036854774784.0"), highest - 1023);
  EXPECT_THROW(signedOf("9223372036854775808.0"), DecodingFailure);
  EXPECT_THROW(signedOf("1e300"), DecodingFailure);
  EXPECT_THROW(signedOf("-1e300"), DecodingFailure);
  EXPECT_EQ(signedOf("-5", -5, 7), -5);
  EXPECT_EQ(signedOf("7", -5, 7), 7);
  EXPECT_THROW(signedOf("-6", -5, 7), DecodingFailure);
  EXPECT_THROW(signedOf("8", -5, 7), DecodingFailure);
}

TEST(JsonValue, UnsignedIntegersKeepTheirRangeOnBothSides) {
  EXPECT_EQ(unsignedOf("18446744073709551615"), highestUnsigned);
  EXPECT_THROW(unsignedOf("18446744073709551616"), DecodingFailure);
  EXPECT_THROW(unsignedOf("18446744073709551616.0"), DecodingFailure);
  EXPECT_EQ(unsignedOf("9223372036854775808"), std::uint64_t{1} << 63);
  EXPECT_EQ(unsignedOf("9223372036854775808.0"), std::uint64_t{1} << 63);
  EXPECT_EQ(unsignedOf("0"), 0U);
  EXPECT_THROW(unsignedOf("-1"), DecodingFailure);
  EXPECT_THROW(unsignedOf("-1.0"), DecodingFailure);
  EXPECT_EQ(unsignedOf("255", 255), 255U);
  EXPECT_THROW(unsignedOf("256", 255), DecodingFailure);
}

TEST(JsonValue, ANumberThatNoDoubleHoldsIsRefused) {
  EXPECT_DOUBLE_EQ(Document("1e308").root().number(), 1e308);
  EXPECT_THROW(Document("1e309"), DecodingFailure);
  EXPECT_EQ(Document("7").root().number(), 7.0);
}

TEST(JsonText, StringsEscapeWhatMustBeAndNothingElse) {
  using namespace std::string_literals;
  EXPECT_EQ(stringText(""), "\"\"");
  EXPECT_EQ(stringText("/a/b"), "\"/a/b\"");
  EXPECT_EQ(stringText("\"\\\b\f\n\r\t"), R"("\"\\\b\f\n\r\t")");
  EXPECT_EQ(stringText("\0\x01\x1f\x20\x7f"s), "\"\\u0000\\u0001\\u001f \x7f\"");
  EXPECT_EQ(stringText("\u00e9\u20ac\U0001F600\u2028"), "\"\u00e9\u20ac\U0001F600\u2028\"");
}

TEST(JsonText, StringsThatAreNotUtf8AreRefused) {
  for (const char* text : {"\xFF", "a\xC0\xAF", "\xED\xA0\x80", "\xE2\x82"})
    EXPECT_THROW(stringText(text), EncodingFailure);
}

TEST(JsonText, DoublesHaveTheirShortestForm) {
  struct Row {
    double value;
    const char* text;
  };
  for (const Row& row :
       {Row{0, "0"}, Row{-0.0, "-0"}, Row{1, "1"}, Row{-2, "-2"}, Row{0.1, "0.1"}, Row{1.5, "1.5"},
        Row{1.0 / 3, "0.3333333333333333"}, Row{1440, "1440"}, Row{1e15, "1000000000000000"},
        Row{123456789.125, "123456789.125"}, Row{1e16, "1e+16"}, Row{0.00001, "0.00001"}, Row{1e-6, "1e-06"},
        Row{5e-324, "5e-324"}, Row{1.7976931348623157e308, "1.7976931348623157e+308"},
        Row{0.1 + 0.2, "0.30000000000000004"}})
    EXPECT_EQ(numberText(row.value), row.text);
}

TEST(JsonText, DoublesReadBackTheSame) {
  for (const double value :
       {0.1, 1.0 / 3, 1e21, 1.2345678901234567e-5, 9007199254740993.0, 4.9e-324, -1e-300}) {
    EXPECT_EQ(std::strtod(numberText(value).c_str(), nullptr), value);
    EXPECT_EQ(Document(numberText(value)).root().number(), value);
  }
}

TEST(JsonText, NumbersThatAreNotFiniteAreRefused) {
  EXPECT_THROW(numberText(std::numeric_limits<double>::infinity()), EncodingFailure);
  EXPECT_THROW(numberText(-std::numeric_limits<double>::infinity()), EncodingFailure);
  EXPECT_THROW(numberText(std::numeric_limits<double>::quiet_NaN()), EncodingFailure);
}

std::string rewritten(std::string_view text, Slashes slashes = Slashes::plain) {
  const Document document(text);
  std::string out;
  appendValue(out, document.root(), slashes);
  return out;
}

TEST(JsonDocument, ToldItsSlashesAreEscaped) {
  std::string text;
  appendString(text, "a/b\\/", Slashes::escaped);
  EXPECT_EQ(text, R"("a\/b\\\/")");
}

TEST(JsonDocument, TellsTheKeysOfAnObjectInOrder) {
  EXPECT_EQ(Document(R"({"b":1,"a":2,"B":3,"":4,"b":5})").root().keys(),
            (std::vector<std::string>{"", "B", "a", "b"}));
  EXPECT_EQ(Document("{}").root().keys(), std::vector<std::string>());
  EXPECT_THROW((void)Document("[]").root().keys(), DecodingFailure);
}

TEST(JsonDocument, WritesAParsedValueAgain) {
  for (const char* const text :
       {"null", "true", "false", "0", "-1", "18446744073709551615", "-9223372036854775808", "0.1", "-2.5",
        "1e+300", "{}", "[]", R"("")", R"("a\"\\\b\f\n\r\t\u0001")", R"([[],{},[1,2.5,null]])",
        R"({"a":{"b":[true]},"c":"\u0000"})", "\"\xC3\xA4\xF0\x9F\x96\xA5\""})
    EXPECT_EQ(rewritten(text), text);
  EXPECT_EQ(rewritten(" { \"b\" : [ 1 , 2 ] , \"a\" : 1.0 } "), R"({"a":1,"b":[1,2]})");
  EXPECT_EQ(rewritten(R"({"p":"\/x/y"})"), R"({"p":"/x/y"})");
  EXPECT_EQ(rewritten(R"({"a/b":["/x"]})", Slashes::escaped), R"({"a\/b":["\/x"]})");
}

TEST(JsonDocument, WritesTheDeepestTreeThatItTakes) {
  const std::string deepest = repeated("[", 512) + repeated("]", 512);
  EXPECT_EQ(rewritten(deepest), deepest);
}

} // namespace
} // namespace tessarin::json
