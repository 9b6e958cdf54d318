#include "base/JsonDocument.hpp"

#include "base/Text.hpp"

#include <nlohmann/json.hpp>

#include <array>
#include <charconv>
#include <cmath>
#include <limits>

namespace tessarin::json {

namespace {

constexpr int maximumDepth = 512;

using Event = nlohmann::json::parse_event_t;

const nlohmann::json& node(const void* pointer) {
  return *static_cast<const nlohmann::json*>(pointer);
}

[[noreturn]] void wrongType(const char* expected) {
  throw DecodingFailure(std::string("expected ") + expected);
}

} // namespace

struct Document::Tree {
  nlohmann::json json;
};

Document::Document(std::string_view text) : tree_(std::make_unique<Tree>()) {
  // The parser takes a NUL for the end of the text, whatever stands behind it.
  if (text.find('\0') != std::string_view::npos)
    throw DecodingFailure("not a JSON document");
  // The depth of a start is the number of values that enclose it. Throwing ends the parsing at once, so
  // neither stack nor memory grow with hostile nesting.
  const auto limitDepth = [](int depth, Event event, nlohmann::json&) {
    if ((event == Event::array_start || event == Event::object_start) && depth >= maximumDepth)
      throw DecodingFailure("nested too deeply");
    return true;
  };
  try {
    tree_->json = nlohmann::json::parse(text.begin(), text.end(), limitDepth);
  } catch (const nlohmann::json::exception&) {
    throw DecodingFailure("not a JSON document");
  }
}

Document::~Document() = default;
Document::Document(Document&&) noexcept = default;
Document& Document::operator=(Document&&) noexcept = default;

Value Document::root() const {
  return Value(&tree_->json);
}

bool Value::isNull() const {
  return node(node_).is_null();
}

bool Value::isObject() const {
  return node(node_).is_object();
}

std::optional<Value> Value::member(std::string_view key) const {
  if (!isObject())
    wrongType("an object");
  const auto found = node(node_).find(key);
  if (found == node(node_).end())
    return std::nullopt;
  return Value(&*found);
}

std::vector<std::string> Value::keys() const {
  if (!isObject())
    wrongType("an object");
  std::vector<std::string> result;
  result.reserve(node(node_).size());
  for (const auto& member : node(node_).items())
    result.push_back(member.key());
  return result;
}

bool Value::boolean() const {
  if (!node(node_).is_boolean())
    wrongType("a Boolean");
  return node(node_).get<bool>();
}

double Value::number() const {
  if (!node(node_).is_number())
    wrongType("a number");
  return node(node_).get<double>();
}

std::string Value::string() const {
  if (!node(node_).is_string())
    wrongType("a string");
  return node(node_).get<std::string>();
}

std::int64_t Value::signedInteger(std::int64_t lowest, std::int64_t highest) const {
  const nlohmann::json& value = node(node_);
  std::int64_t result = 0;
  if (value.is_number_unsigned()) {
    const auto number = value.get<std::uint64_t>();
    if (number > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
      wrongType("an integer in range");
    result = static_cast<std::int64_t>(number);
  } else if (value.is_number_integer()) {
    result = value.get<std::int64_t>();
  } else if (value.is_number_float()) {
    const double number = value.get<double>();
    // Integers beyond 64 bits come as the nearest double too, so the bounds themselves are out.
    if (!(std::trunc(number) == number && number > -0x1p63 && number < 0x1p63))
      wrongType("an integer");
    result = static_cast<std::int64_t>(number);
  } else {
    wrongType("an integer");
  }
  if (result < lowest || result > highest)
    wrongType("an integer in range");
  return result;
}

std::uint64_t Value::unsignedInteger(std::uint64_t highest) const {
  const nlohmann::json& value = node(node_);
  std::uint64_t result = 0;
  if (value.is_number_unsigned()) {
    result = value.get<std::uint64_t>();
  } else if (value.is_number_integer()) {
    const auto number = value.get<std::int64_t>();
    if (number < 0)
      wrongType("an integer in range");
    result = static_cast<std::uint64_t>(number);
  } else if (value.is_number_float()) {
    const double number = value.get<double>();
    if (!(std::trunc(number) == number && number >= 0 && number < 0x1p64))
      wrongType("an integer");
    result = static_cast<std::uint64_t>(number);
  } else {
    wrongType("an integer");
  }
  if (result > highest)
    wrongType("an integer in range");
  return result;
}

std::size_t Value::arraySize() const {
  if (!node(node_).is_array())
    wrongType("an array");
  return node(node_).size();
}

Value Value::at(std::size_t index) const {
  if (index >= arraySize())
    wrongType("an element");
  return Value(&node(node_)[index]);
}

void appendString(std::string& out, std::string_view text, Slashes slashes) {
  if (!isValidUtf8(text))
    throw EncodingFailure("a string is not UTF-8");
  static constexpr char digits[] = "0123456789abcdef";
  out += '"';
  for (const char character : text) {
    switch (character) {
    case '"':
      out += "\\\"";
      break;
    case '\\':
      out += "\\\\";
      break;
    case '/':
      out += slashes == Slashes::escaped ? "\\/" : "/";
      break;
    case '\b':
      out += "\\b";
      break;
    case '\f':
      out += "\\f";
      break;
    case '\n':
      out += "\\n";
      break;
    case '\r':
      out += "\\r";
      break;
    case '\t':
      out += "\\t";
      break;
    default:
      if (static_cast<unsigned char>(character) < 0x20) {
        out += "\\u00";
        out += digits[(character >> 4) & 0xF];
        out += digits[character & 0xF];
      } else {
        out += character;
      }
    }
  }
  out += '"';
}

void appendNumber(std::string& out, double value) {
  if (!std::isfinite(value))
    throw EncodingFailure("a number is not finite");
  std::array<char, 64> text{};
  const double magnitude = std::fabs(value);
  const bool plain = magnitude == 0 || (magnitude >= 1e-5 && magnitude < 1e16);
  const auto format = plain ? std::chars_format::fixed : std::chars_format::scientific;
  const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), value, format);
  out.append(text.data(), error == std::errc{} ? end : text.data());
}

// The tree is at most as deep as a Document lets it be.
class ValueWriter {
 public:
  ValueWriter(std::string& out, Slashes slashes) : out_(out), slashes_(slashes) {}

  void write(const Value& value) { write(node(value.node_)); }

 private:
  void write(const nlohmann::json& value) {
    using Type = nlohmann::json::value_t;
    switch (value.type()) {
    case Type::object:
      return writeObject(value);
    case Type::array:
      return writeArray(value);
    case Type::string:
      return appendString(out_, value.get_ref<const std::string&>(), slashes_);
    case Type::boolean:
      out_ += value.get<bool>() ? "true" : "false";
      return;
    case Type::number_integer:
      out_ += std::to_string(value.get<std::int64_t>());
      return;
    case Type::number_unsigned:
      out_ += std::to_string(value.get<std::uint64_t>());
      return;
    case Type::number_float:
      return appendNumber(out_, value.get<double>());
    case Type::null:
      out_ += "null";
      return;
    case Type::binary:
    case Type::discarded:
      break; // no text is parsed into these
    }
    throw EncodingFailure("a value has no JSON form");
  }

  // Members are kept in the order of their keys.
  void writeObject(const nlohmann::json& value) {
    char before = '{';
    for (const auto& [key, member] : value.get_ref<const nlohmann::json::object_t&>()) {
      out_ += before;
      before = ',';
      appendString(out_, key, slashes_);
      out_ += ':';
      write(member);
    }
    out_ += value.empty() ? "{}" : "}";
  }

  void writeArray(const nlohmann::json& value) {
    char before = '[';
    for (const auto& element : value) {
      out_ += before;
      before = ',';
      write(element);
    }
    out_ += value.empty() ? "[]" : "]";
  }

  std::string& out_;
  const Slashes slashes_;
};

void appendValue(std::string& out, const Value& value, Slashes slashes) {
  ValueWriter(out, slashes).write(value);
}

} // namespace tessarin::json
