#include "Fuzz.hpp"
#include "base/Json.hpp"

#include <limits>

using namespace tessarin;

namespace {

enum class Kind : std::uint8_t { one, other };
constexpr auto jsonNames(Kind) {
  return json::names<Kind>({{Kind::one, "one"}, {Kind::other, "other"}});
}

struct Inner {
  double number = 0;
  std::int64_t wide = 0;
  std::uint64_t widest = 0;

  static constexpr auto fields() {
    return json::table(json::field("number", &Inner::number), json::field("wide", &Inner::wide),
                       json::field("widest", &Inner::widest));
  }
  bool operator==(const Inner&) const = default;
};

// Every kind of field.
struct Outer {
  std::string text;
  std::int8_t small = 0;
  bool flag = false;
  std::optional<Kind> kind;
  std::optional<Inner> inner;
  std::vector<Inner> list;

  static constexpr auto fields() {
    return json::table(json::field("text", &Outer::text), json::field("small", &Outer::small),
                       json::field("flag", &Outer::flag), json::field("kind", &Outer::kind),
                       json::field("inner", &Outer::inner), json::field("list", &Outer::list));
  }
  bool operator==(const Outer&) const = default;
};

template<class Call> bool succeeds(Call call) {
  try {
    call();
    return true;
  } catch (const json::DecodingFailure&) {
    return false;
  }
}

// Asks a value for everything; it is of one type at most.
void probe(const json::Value& value) {
  const bool isNumber = succeeds([&] { value.number(); });
  const int types = value.isNull() + value.isObject() + isNumber + succeeds([&] { value.boolean(); }) +
                    succeeds([&] { value.string(); }) + succeeds([&] { value.arraySize(); });
  fuzz::require(types == 1, "a value has one type");
  const bool isSigned = succeeds([&] {
    value.signedInteger(std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max());
  });
  fuzz::require(isNumber || !isSigned, "an integer is a number");
  if (!succeeds([&] { value.arraySize(); }))
    return;
  for (std::size_t i = 0; i < value.arraySize(); ++i)
    probe(value.at(i));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = fuzz::textOf(data, size);
  try {
    const json::Document document(text);
    probe(document.root());
    const auto record = json::decode<Outer>(document.root());
    const std::string written = json::encode(record);
    fuzz::require(json::decode<Outer>(written) == record, "what is written reads back the same");
    fuzz::require(json::encode(json::decode<Outer>(written)) == written, "a record has one form");
  } catch (const json::DecodingFailure&) {
    // Refused, as most inputs are.
  }
  return 0;
}
