#pragma once

#include "base/JsonDocument.hpp"

#include <algorithm>
#include <array>
#include <concepts>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

// Strict records.
//
// A record is a plain struct that declares its fields once, in order, with their JSON keys:
//
//   struct SizeDTO {
//     std::int64_t width = 0;
//     std::int64_t height = 0;
//     static constexpr auto fields() {
//       return json::table(json::field("width", &SizeDTO::width), json::field("height", &SizeDTO::height));
//     }
//   };
//
// An enumeration on the wire declares its strings once, found by argument-dependent look-up:
//
//   enum class CaptureKind { region, window, display };
//   constexpr auto jsonNames(CaptureKind) {
//     return json::names<CaptureKind>({{CaptureKind::region, "region"}, ...});
//   }
//
// Decoding is strict: a wrong type, a missing required key and an unknown string all throw
// DecodingFailure; the first field in declared order that fails decides; unknown keys are ignored. A
// field of type std::optional may be absent or null. Integers take JSON numbers of integral value within
// the range of their type. Encoding writes sorted keys, no spaces and plain slashes, leaves absent
// optionals out, and throws EncodingFailure for a non-finite double or a string that is not UTF-8.
//
// A type may take both directions into its own hands with `static T fromJson(const json::Value&)` and
// `void toJson(std::string& out) const`.
namespace tessarin::json {

template<class Record, class Type> struct Field {
  using Value = Type;
  std::string_view key;
  Type Record::*member;
};

template<class Record, class Type>
constexpr Field<Record, Type> field(std::string_view key, Type Record::*member) {
  return {key, member};
}

template<class... Fields> constexpr std::tuple<Fields...> table(Fields... fields) {
  return {fields...};
}

template<class Enumeration> using Name = std::pair<Enumeration, std::string_view>;

template<class Enumeration, std::size_t Count>
constexpr std::array<Name<Enumeration>, Count> names(const Name<Enumeration> (&list)[Count]) {
  return std::to_array(list);
}

template<class T>
concept IsRecord = requires {
  T::fields();
};
template<class T>
concept IsNamed = std::is_enum_v<T> && requires(T value) {
  jsonNames(value);
};
template<class T>
concept IsCustom = requires(const T& value, const Value& json, std::string& out) {
  { T::fromJson(json) } -> std::same_as<T>;
  value.toJson(out);
};
template<class T>
concept IsCustomEncoded = requires(const T& value, std::string& out) {
  value.toJson(out);
};

template<class T> struct OptionalOf : std::false_type {};
template<class T> struct OptionalOf<std::optional<T>> : std::true_type {};
template<class T> struct ArrayOf : std::false_type {};
template<class T> struct ArrayOf<std::vector<T>> : std::true_type {};

// The string of an enumeration's case; every case has one.
template<IsNamed E> constexpr std::string_view nameOf(E value) {
  for (const auto& [candidate, text] : jsonNames(E{}))
    if (candidate == value)
      return text;
  return {};
}

// The case of a string, or nothing.
template<IsNamed E> constexpr std::optional<E> fromName(std::string_view text) {
  for (const auto& [candidate, candidateText] : jsonNames(E{}))
    if (candidateText == text)
      return candidate;
  return std::nullopt;
}

template<class T> T decode(const Value& json);

namespace detail {

template<class T, class Type> void decodeField(T& record, const Value& object, const Field<T, Type>& field) {
  const std::optional<Value> member = object.member(field.key);
  if constexpr (OptionalOf<Type>::value) {
    if (!member || member->isNull())
      return;
  } else if (!member) {
    throw DecodingFailure("missing key: " + std::string(field.key));
  }
  try {
    if constexpr (OptionalOf<Type>::value)
      record.*field.member = json::decode<typename Type::value_type>(*member);
    else
      record.*field.member = json::decode<Type>(*member);
  } catch (const DecodingFailure& failure) {
    throw DecodingFailure(std::string(field.key) + ": " + failure.what());
  }
}

template<IsRecord T> constexpr auto sortedFieldOrder() {
  constexpr auto fields = T::fields();
  constexpr std::size_t count = std::tuple_size_v<decltype(fields)>;
  std::array<std::string_view, count> keys{};
  std::apply([&](const auto&... each) { keys = {each.key...}; }, fields);
  std::array<std::size_t, count> order{};
  for (std::size_t i = 0; i < count; ++i)
    order[i] = i;
  std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return keys[a] < keys[b]; });
  return order;
}

} // namespace detail

// Appends the JSON of a value. Throws EncodingFailure; `out` is then unspecified.
template<class T> void append(std::string& out, const T& value) {
  if constexpr (IsCustomEncoded<T>) {
    value.toJson(out);
  } else if constexpr (IsRecord<T>) {
    constexpr auto fields = T::fields();
    constexpr auto order = detail::sortedFieldOrder<T>();
    bool first = true;
    const auto one = [&](const auto& each) {
      const auto& member = value.*each.member;
      const auto key = [&] {
        if (!first)
          out += ',';
        first = false;
        appendString(out, each.key);
        out += ':';
      };
      if constexpr (OptionalOf<std::remove_cvref_t<decltype(member)>>::value) {
        if (member) {
          key();
          append(out, *member);
        }
      } else {
        key();
        append(out, member);
      }
    };
    out += '{';
    [&]<std::size_t... I>(std::index_sequence<I...>) {
      (one(std::get<order[I]>(fields)), ...);
    }
    (std::make_index_sequence<order.size()>{});
    out += '}';
  } else if constexpr (IsNamed<T>) {
    appendString(out, nameOf(value));
  } else if constexpr (std::same_as<T, bool>) {
    out += value ? "true" : "false";
  } else if constexpr (std::integral<T>) {
    out += std::to_string(value);
  } else if constexpr (std::floating_point<T>) {
    appendNumber(out, value);
  } else if constexpr (ArrayOf<T>::value) {
    out += '[';
    for (std::size_t i = 0; i < value.size(); ++i) {
      if (i > 0)
        out += ',';
      append(out, value[i]);
    }
    out += ']';
  } else {
    static_assert(std::convertible_to<T, std::string_view>, "no JSON form for this type");
    appendString(out, value);
  }
}

template<class T> std::string encode(const T& value) {
  std::string out;
  append(out, value);
  return out;
}

// Decodes a value that was parsed already.
template<class T> T decode(const Value& json) {
  if constexpr (IsCustom<T>) {
    return T::fromJson(json);
  } else if constexpr (IsRecord<T>) {
    if (!json.isObject())
      throw DecodingFailure("expected an object");
    T record{};
    std::apply([&](const auto&... each) { (detail::decodeField(record, json, each), ...); }, T::fields());
    return record;
  } else if constexpr (IsNamed<T>) {
    const std::optional<T> value = fromName<T>(json.string());
    if (!value)
      throw DecodingFailure("unknown string");
    return *value;
  } else if constexpr (std::same_as<T, bool>) {
    return json.boolean();
  } else if constexpr (std::signed_integral<T>) {
    return static_cast<T>(json.signedInteger(std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
  } else if constexpr (std::unsigned_integral<T>) {
    return static_cast<T>(json.unsignedInteger(std::numeric_limits<T>::max()));
  } else if constexpr (std::floating_point<T>) {
    return static_cast<T>(json.number());
  } else if constexpr (ArrayOf<T>::value) {
    T array;
    const std::size_t size = json.arraySize();
    array.reserve(size);
    for (std::size_t i = 0; i < size; ++i)
      array.push_back(json::decode<typename T::value_type>(json.at(i)));
    return array;
  } else {
    static_assert(std::same_as<T, std::string>, "no JSON form for this type");
    return json.string();
  }
}

// Parses and decodes one document. Throws DecodingFailure.
template<class T> T decode(std::string_view text) {
  const Document document(text);
  return json::decode<T>(document.root());
}

} // namespace tessarin::json
