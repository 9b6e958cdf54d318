#include "backends/x11/WindowsText.hpp"

#include "base/Text.hpp"

#include <iconv.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace tessarin::x11 {

namespace {

constexpr char escape = '\x1b';
constexpr std::string_view replacement = "\xEF\xBF\xBD";

struct CharacterSet {
  char final;           // the last byte of its escape sequence
  bool isMultiByte;     // two bytes a character
  const char* encoding; // one in which the set lies in the upper half
};

constexpr auto characterSets = std::to_array<CharacterSet>({
    {'A', false, "ISO-8859-1"},
    {'B', false, "ISO-8859-2"},
    {'C', false, "ISO-8859-3"},
    {'D', false, "ISO-8859-4"},
    {'F', false, "ISO-8859-7"},
    {'G', false, "ISO-8859-6"},
    {'H', false, "ISO-8859-8"},
    {'L', false, "ISO-8859-5"},
    {'M', false, "ISO-8859-9"},
    {'A', true, "EUC-CN"},
    {'B', true, "EUC-JP"},
    {'C', true, "EUC-KR"},
});

const char* encodingOf(char final, bool isMultiByte) {
  for (const auto& set : characterSets) {
    if (set.final == final && set.isMultiByte == isMultiByte) {
      return set.encoding;
    }
  }
  return nullptr;
}

// Ill-formed and unknown input becomes U+FFFD, one for a run.
std::string converted(std::string bytes, const char* encoding) {
  if (!encoding) {
    return std::string(replacement);
  }
  const auto converter = iconv_open("UTF-8", encoding);
  if (converter == reinterpret_cast<iconv_t>(-1)) { // NOLINT(performance-no-int-to-ptr): how iconv says it
    return std::string(replacement);
  }
  std::string result(bytes.size() * 4, '\0');
  char* in = bytes.data();
  std::size_t inLeft = bytes.size();
  char* out = result.data();
  std::size_t outLeft = result.size();
  const bool isWhole = iconv(converter, &in, &inLeft, &out, &outLeft) != static_cast<std::size_t>(-1);
  iconv_close(converter);
  result.resize(result.size() - outLeft);
  return isWhole ? result : result + std::string(replacement);
}

// The state of one decoding. Runs of bytes in one set are collected and converted together.
class CompoundText {
 public:
  explicit CompoundText(std::string_view text) : rest_(text) {}

  std::string decode() {
    while (!rest_.empty()) {
      if (rest_.front() != escape) {
        take(rest_.front());
        rest_.remove_prefix(1);
      } else if (!takeUtf8Stretch() && !takeDesignation()) {
        rest_.remove_prefix(1);
      }
    }
    finishRun();
    return repairedUtf8(result_);
  }

 private:
  enum class Half { control, left, right };

  struct Set {
    bool isAscii = false;
    const char* encoding = nullptr;
  };

  void take(char character) {
    const auto byte = static_cast<unsigned char>(character);
    const auto low = byte & 0x7FU;
    const Half half = low <= 0x20 || low == 0x7F ? Half::control : byte < 0x80 ? Half::left : Half::right;
    if (half != runHalf_) {
      finishRun();
      runHalf_ = half;
    }
    run_.push_back(character);
  }

  void finishRun() {
    if (run_.empty()) {
      return;
    }
    const Set& set = runHalf_ == Half::right ? right_ : left_;
    if (runHalf_ == Half::control) {
      for (const char character : run_) {
        if (static_cast<unsigned char>(character) < 0x80) {
          result_.push_back(character);
        }
      }
    } else if (set.isAscii) {
      result_ += run_;
    } else {
      for (char& character : run_) {
        character = static_cast<char>(static_cast<unsigned char>(character) | 0x80U);
      }
      result_ += converted(std::move(run_), set.encoding);
    }
    run_.clear();
  }

  // ESC % G, UTF-8, ESC % @.
  bool takeUtf8Stretch() {
    if (!rest_.starts_with("\x1b%G")) {
      return false;
    }
    finishRun();
    rest_.remove_prefix(3);
    const auto end = rest_.find("\x1b%@");
    result_ += rest_.substr(0, end);
    rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 3);
    return true;
  }

  // ESC ( F, ESC ) F and ESC - F designate a set of single bytes, ESC $ ( F and ESC $ ) F one of two.
  bool takeDesignation() {
    auto sequence = rest_.substr(1);
    const bool isMultiByte = sequence.starts_with('$');
    if (isMultiByte) {
      sequence.remove_prefix(1);
    }
    if (sequence.size() < 2 || std::string_view("()-").find(sequence[0]) == std::string_view::npos) {
      return false;
    }
    finishRun();
    Set& half = sequence[0] == '(' ? left_ : right_;
    const char final = sequence[1];
    half.isAscii = !isMultiByte && sequence[0] == '(' && (final == 'B' || final == 'J');
    half.encoding = half.isAscii ? nullptr : encodingOf(final, isMultiByte);
    rest_ = sequence.substr(2);
    return true;
  }

  std::string_view rest_;
  std::string result_;
  std::string run_;
  Half runHalf_ = Half::control;
  Set left_{true, nullptr};
  Set right_{false, "ISO-8859-1"};
};

} // namespace

std::string utf8FromLatin1(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x80) {
      result.push_back(character);
    } else {
      result.push_back(static_cast<char>(0xC0U | (byte >> 6U)));
      result.push_back(static_cast<char>(0x80U | (byte & 0x3FU)));
    }
  }
  return result;
}

std::string utf8FromCompoundText(std::string_view text) {
  return CompoundText(text).decode();
}

} // namespace tessarin::x11
