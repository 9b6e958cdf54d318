#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// A parsed JSON document, and the scalar pieces of writing one. Records are in base/Json.hpp.
namespace tessarin::json {

// The text is not JSON, or does not have the shape that was asked for. The text of the failure is for
// developers; it names keys but never holds values.
class DecodingFailure : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A value has no JSON form: a non-finite double, or a string that is not UTF-8.
class EncodingFailure : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// One value of a Document, which must outlive it. Cheap to copy. Every accessor throws DecodingFailure
// when the value is of another type.
class Value {
 public:
  bool isNull() const;
  bool isObject() const;

  // The member of an object, or nothing when the key is absent. A key that stands twice yields the last.
  std::optional<Value> member(std::string_view key) const;
  // The keys of an object, each once, in the order of their bytes.
  std::vector<std::string> keys() const;

  bool boolean() const;
  double number() const;
  std::string string() const;
  // A number of integral value within the bounds, both inclusive; 3.0 and 3e0 are 3.
  std::int64_t signedInteger(std::int64_t lowest, std::int64_t highest) const;
  std::uint64_t unsignedInteger(std::uint64_t highest) const;

  std::size_t arraySize() const;
  Value at(std::size_t index) const;

 private:
  friend class Document;
  friend class ValueWriter;
  explicit Value(const void* node) : node_(node) {}
  const void* node_;
};

// Owns the parsed tree of one text. Immutable after construction, so readable from any thread.
class Document {
 public:
  // Parses UTF-8 text that holds exactly one JSON value, nested at most 512 deep. Throws DecodingFailure.
  explicit Document(std::string_view text);
  ~Document();
  Document(Document&&) noexcept;
  Document& operator=(Document&&) noexcept;

  Value root() const;

 private:
  struct Tree;
  std::unique_ptr<Tree> tree_;
};

// How a slash within a string is written; readers take both for the same text.
enum class Slashes : std::uint8_t {
  plain,
  escaped // as "\/"
};

// Appends a quoted string; non-ASCII characters stay as they are. Throws EncodingFailure.
void appendString(std::string& out, std::string_view text, Slashes slashes = Slashes::plain);

// Appends a double in the shortest form that reads back the same; integral values have no fraction.
// Throws EncodingFailure when it is not finite.
void appendNumber(std::string& out, double value);

// Appends a value that was parsed, with sorted keys and without blanks. Integers of 64 bits keep all their
// digits. Throws EncodingFailure.
void appendValue(std::string& out, const Value& value, Slashes slashes = Slashes::plain);

} // namespace tessarin::json
