#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tessarin {

// What no host that keeps to the protocol sends.
enum class CaptureWorkerLineError : std::uint8_t { empty, tooLong };

// Makes lines of the bytes that a capture worker reads. Plain value, any thread, one at a time.
class CaptureWorkerLines {
 public:
  // Bytes before the line feed.
  static constexpr std::size_t longest = 24'576;

  // Takes bytes off the front until a line is whole, and yields it without its line feed; nothing when all
  // bytes have been taken before. What is left over is the caller's to hand in again, so that a line is dealt
  // with before anything behind it is looked at. Throws Failure<CaptureWorkerLineError> for a line without a
  // byte, and for a byte too many as soon as it comes; the lines end there.
  std::optional<std::string> take(std::string_view& bytes);

  // Whether some bytes of a line have come, but not its line feed.
  bool isInsideLine() const { return !line_.empty(); }

 private:
  std::string line_;
};

} // namespace tessarin
