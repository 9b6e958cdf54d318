#include "base/Json.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

namespace tessarin {
namespace {

enum class Fruit : std::uint8_t { apple, pear };
constexpr auto jsonNames(Fruit) {
  return json::names<Fruit>({{Fruit::apple, "apple"}, {Fruit::pear, "pear/tree"}});
}

struct Point {
  double y = 0;
  double x = 0;
  static constexpr auto fields() {
    return json::table(json::field("y", &Point::y), json::field("x", &Point::x));
  }
  bool operator==(const Point&) const = default;
};

struct Basket {
  std::string name;
  std::int32_t count = 0;
  std::uint8_t small = 0;
  bool isFull = false;
  Fruit fruit = Fruit::apple;
  Point place;
  std::optional<std::string> note;
  std::optional<Point> other;
  std::optional<std::vector<Point>> path;
  std::vector<std::vector<std::int64_t>> rows;

  static constexpr auto fields() {
    return json::table(json::field("name", &Basket::name), json::field("count", &Basket::count),
                       json::field("small", &Basket::small), json::field("isFull", &Basket::isFull),
                       json::field("fruit", &Basket::fruit), json::field("place", &Basket::place),
                       json::field("note", &Basket::note), json::field("other", &Basket::other),
                       json::field("path", &Basket::path), json::field("rows", &Basket::rows));
  }
  bool operator==(const Basket&) const = default;
};

// A type that takes both directions into its own hands: a rational as "3/4".
struct Ratio {
  std::int64_t above = 0;
  std::int64_t below = 1;

  static Ratio fromJson(const json::Value& value) {
    const std::string text = value.string();
    if (text != "3/4")
      throw json::DecodingFailure("no ratio");
    return {3, 4};
  }
  void toJson(std::string& out) const {
    json::appendString(out, std::to_string(above) + "/" + std::to_string(below));
  }
  bool operator==(const Ratio&) const = default;
};

struct Recipe {
  Ratio ratio;
  std::optional<Ratio> spare;
  static constexpr auto fields() {
    return json::table(json::field("ratio", &Recipe::ratio), json::field("spare", &Recipe::spare));
  }
  bool operator==(const Recipe&) const = default;
};

struct Numbers {
  std::int8_t tiny = 0;
  std::uint16_t medium = 0;
  std::int64_t wide = 0;
  std::uint64_t widest = 0;
  static constexpr auto fields() {
    return json::table(json::field("tiny", &Numbers::tiny), json::field("medium", &Numbers::medium),
                       json::field("wide", &Numbers::wide), json::field("widest", &Numbers::widest));
  }
  bool operator==(const Numbers&) const = default;
};

struct Nothing {
  static constexpr auto fields() { return json::table(); }
  bool operator==(const Nothing&) const = default;
};

const std::string fullBasket =
    R"({"count":-7,"fruit":"pear/tree","isFull":true,"name":"a/b","note":"n","other":{"x":1,"y":2},)"
    R"("path":[{"x":3,"y":4}],"place":{"x":0.5,"y":-1},"rows":[[1,2],[]],"small":255})";

std::string failureOf(const std::string& text) {
  try {
    json::decode<Basket>(text);
  } catch (const json::DecodingFailure& failure) {
    return failure.what();
  }
  return "decoded";
}

std::string basketWith(const std::string& from, const std::string& to) {
  std::string text = fullBasket;
  const std::size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return text.replace(at, from.size(), to);
}

TEST(JsonRecord, DecodesEveryKindOfField) {
  const Basket expected{.name = "a/b",
                        .count = -7,
                        .small = 255,
                        .isFull = true,
                        .fruit = Fruit::pear,
                        .place = {-1, 0.5},
                        .note = "n",
                        .other = Point{2, 1},
                        .path = {{{4, 3}}},
                        .rows = {{1, 2}, {}}};
  EXPECT_EQ(json::decode<Basket>(fullBasket), expected);
}

TEST(JsonRecord, EncodesWithSortedKeysWithoutSpacesAndWithPlainSlashes) {
  EXPECT_EQ(json::encode(json::decode<Basket>(fullBasket)), fullBasket);
}

TEST(JsonRecord, LeavesAbsentOptionalsOut) {
  EXPECT_EQ(
      json::encode(Basket{}),
      R"({"count":0,"fruit":"apple","isFull":false,"name":"","place":{"x":0,"y":0},"rows":[],"small":0})");
  EXPECT_EQ(json::encode(Nothing{}), "{}");
}

TEST(JsonRecord, OptionalsMayBeAbsentOrNull) {
  const std::string without = json::encode(Basket{});
  EXPECT_EQ(json::decode<Basket>(without), Basket{});
  const std::string nulls =
      without.substr(0, without.size() - 1) + R"(,"note":null,"other":null,"path":null})";
  EXPECT_EQ(json::decode<Basket>(nulls), Basket{});
  EXPECT_EQ(json::decode<Basket>(basketWith("[{\"x\":3,\"y\":4}]", "[]")).path, std::vector<Point>{});
}

TEST(JsonRecord, AnOptionalOfAnotherTypeIsRefused) {
  EXPECT_EQ(failureOf(basketWith("\"note\":\"n\"", "\"note\":1")), "note: expected a string");
  EXPECT_EQ(failureOf(basketWith("{\"x\":1,\"y\":2}", "{\"x\":1}")), "other: missing key: y");
}

TEST(JsonRecord, RequiredFieldsMayBeNeitherAbsentNorNull) {
  for (const char* key : {"name", "count", "small", "isFull", "fruit", "place", "rows"}) {
    const std::string quoted = std::string("\"") + key + "\":";
    EXPECT_EQ(failureOf(basketWith(quoted, std::string("\"no-") + key + "\":")),
              std::string("missing key: ") + key);
    EXPECT_NE(failureOf("{" + quoted + "null," + basketWith(quoted, "\"was-" + quoted.substr(1)).substr(1)),
              "decoded");
  }
}

TEST(JsonRecord, UnknownKeysAreIgnored) {
  EXPECT_EQ(json::encode(json::decode<Basket>("{\"extra\":[{}],\"Name\":1," + fullBasket.substr(1))),
            fullBasket);
}

TEST(JsonRecord, WrongTypesAreRefused) {
  struct Row {
    const char* from;
    const char* to;
    const char* failure;
  };
  for (const Row& row : {
           Row{"\"name\":\"a/b\"", "\"name\":1", "name: expected a string"},
           Row{"\"count\":-7", "\"count\":\"-7\"", "count: expected an integer"},
           Row{"\"count\":-7", "\"count\":true", "count: expected an integer"},
           Row{"\"isFull\":true", "\"isFull\":1", "isFull: expected a Boolean"},
           Row{"\"isFull\":true", "\"isFull\":\"true\"", "isFull: expected a Boolean"},
           Row{"\"pear/tree\"", "\"Pear/tree\"", "fruit: unknown string"},
           Row{"\"pear/tree\"", "\"\"", "fruit: unknown string"},
           Row{"\"pear/tree\"", "1", "fruit: expected a string"},
           Row{"{\"x\":0.5,\"y\":-1}", "[0.5,-1]", "place: expected an object"},
           Row{"\"x\":0.5", "\"x\":\"0.5\"", "place: x: expected a number"},
           Row{"\"x\":0.5", "\"x\":null", "place: x: expected a number"},
           Row{"[[1,2],[]]", "{}", "rows: expected an array"},
           Row{"[[1,2],[]]", "[1]", "rows: expected an array"},
           Row{"[[1,2],[]]", "[[1.5]]", "rows: expected an integer"},
           Row{"[[1,2],[]]", "[null]", "rows: expected an array"},
       })
    EXPECT_EQ(failureOf(basketWith(row.from, row.to)), row.failure);
  EXPECT_EQ(failureOf("[]"), "expected an object");
  EXPECT_EQ(failureOf("null"), "expected an object");
  EXPECT_EQ(failureOf("{"), "not a JSON document");
}

TEST(JsonRecord, TheFirstFieldInDeclaredOrderThatFailsDecides) {
  EXPECT_EQ(failureOf(R"({"rows":1,"small":-1,"count":"x"})"), "missing key: name");
  EXPECT_EQ(failureOf(R"({"rows":1,"small":-1,"count":"x","name":"n"})"), "count: expected an integer");
  EXPECT_EQ(failureOf(R"({"rows":1,"small":-1,"count":1,"name":"n"})"),
            "small: expected an integer in range");
  // Within a nested record its own order decides: y is declared first.
  EXPECT_EQ(failureOf(basketWith("{\"x\":0.5,\"y\":-1}", "{\"x\":\"\"}")), "place: missing key: y");
}

TEST(JsonRecord, IntegersKeepTheRangeOfTheirType) {
  const auto decoded = [](const char* tiny, const char* medium, const char* wide, const char* widest) {
    return json::decode<Numbers>(std::string("{\"tiny\":") + tiny + ",\"medium\":" + medium +
                                 ",\"wide\":" + wide + ",\"widest\":" + widest + "}");
  };
  EXPECT_EQ(decoded("-128", "0", "-9223372036854775808", "0"),
            (Numbers{-128, 0, std::numeric_limits<std::int64_t>::min(), 0}));
  EXPECT_EQ(decoded("127", "65535.0", "9223372036854775807", "18446744073709551615"),
            (Numbers{127, 65535, std::numeric_limits<std::int64_t>::max(),
                     std::numeric_limits<std::uint64_t>::max()}));
  EXPECT_THROW(decoded("-129", "0", "0", "0"), json::DecodingFailure);
  EXPECT_THROW(decoded("128", "0", "0", "0"), json::DecodingFailure);
  EXPECT_THROW(decoded("0", "-1", "0", "0"), json::DecodingFailure);
  EXPECT_THROW(decoded("0", "65536", "0", "0"), json::DecodingFailure);
  EXPECT_THROW(decoded("0", "0", "9223372036854775808", "0"), json::DecodingFailure);
  EXPECT_THROW(decoded("0", "0", "-9223372036854775809", "0"), json::DecodingFailure);
  EXPECT_THROW(decoded("0", "0", "0", "18446744073709551616"), json::DecodingFailure);
  EXPECT_THROW(decoded("0", "0", "0", "-1"), json::DecodingFailure);
}

TEST(JsonRecord, IntegersAreWrittenWhole) {
  EXPECT_EQ(json::encode(Numbers{-128, 65535, std::numeric_limits<std::int64_t>::min(),
                                 std::numeric_limits<std::uint64_t>::max()}),
            R"({"medium":65535,"tiny":-128,"wide":-9223372036854775808,"widest":18446744073709551615})");
}

TEST(JsonRecord, ATypeMayTakeBothDirectionsIntoItsOwnHands) {
  EXPECT_EQ(json::decode<Recipe>(R"({"ratio":"3/4"})"), (Recipe{{3, 4}, std::nullopt}));
  EXPECT_EQ(json::encode(Recipe{{3, 4}, Ratio{5, 6}}), R"({"ratio":"3/4","spare":"5/6"})");
  EXPECT_THROW(json::decode<Recipe>(R"({"ratio":"4/3"})"), json::DecodingFailure);
}

TEST(JsonRecord, ValuesWithoutAJsonFormAreRefused) {
  Basket basket;
  basket.place.x = std::nan("");
  EXPECT_THROW(json::encode(basket), json::EncodingFailure);
  basket.place.x = 0;
  basket.note = "\xFF";
  EXPECT_THROW(json::encode(basket), json::EncodingFailure);
}

TEST(JsonRecord, ArraysStandAloneToo) {
  EXPECT_EQ(json::decode<std::vector<std::string>>(R"(["a","b"])"), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(json::encode(std::vector<bool>{true, false}), "[true,false]");
  EXPECT_EQ(json::encode(std::vector<Fruit>{Fruit::pear}), "[\"pear/tree\"]");
}

TEST(JsonNames, RunBothWays) {
  static_assert(json::nameOf(Fruit::pear) == "pear/tree");
  static_assert(json::fromName<Fruit>("apple") == Fruit::apple);
  static_assert(!json::fromName<Fruit>("plum"));
}

} // namespace
} // namespace tessarin
