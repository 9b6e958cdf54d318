// The control lines of a session as they come out of a pipe, in pieces of any length.

#include "Chunks.hpp"
#include "Fuzz.hpp"
#include "recording/ControlInput.hpp"
#include "recording/RecordingProtocol.hpp"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

using namespace tessarin;

namespace {

constexpr std::size_t limit = RecordingControlCommand::maximumLineBytes;

// Always readable, as a pipe is that still holds something or has ended; what is read from it is the input's.
int inputDescriptor() {
  static const int descriptor = ::eventfd(1, EFD_CLOEXEC);
  return descriptor;
}

fuzz::Chunks* current = nullptr;

// What the stream says whatever its pieces: lines up to their line feeds, a last fragment, and behind a line
// that is too long nothing any more.
std::vector<std::string> expectedLines(std::string_view stream) {
  std::vector<std::string> lines;
  while (!stream.empty()) {
    const std::size_t end = std::min(stream.find('\n'), stream.size());
    if (end > limit) {
      lines.emplace_back(stream.substr(0, limit + 1));
      break;
    }
    lines.emplace_back(stream.substr(0, end));
    stream.remove_prefix(std::min(end + 1, stream.size()));
  }
  return lines;
}

void decode(const std::string& line) {
  try {
    RecordingControlCommand::decodeLine(line, std::nullopt);
    fuzz::require(line.size() <= limit, "a line keeps its limit");
  } catch (const Failure<RecordingProtocolError>& failure) {
    fuzz::require((failure.value() == RecordingProtocolError::lineTooLarge) == (line.size() > limit),
                  "a line is too large beyond the limit, and only there");
  }
}

} // namespace

// The linker puts this in the place of the system's own.
extern "C" ssize_t __real_read(int descriptor, void* into, std::size_t size);
extern "C" ssize_t __wrap_read(int descriptor, void* into, std::size_t size) {
  if (current == nullptr || descriptor != inputDescriptor())
    return __real_read(descriptor, into, size);
  fuzz::require(size > 0, "there is room for what is read");
  const std::string_view piece = current->next(size);
  std::memcpy(into, piece.data(), piece.size());
  return static_cast<ssize_t>(piece.size());
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Chunks chunks(fuzz::textOf(data, size));
  current = &chunks;
  ControlInput input(inputDescriptor());
  for (const std::string& expected : expectedLines(chunks.stream())) {
    const std::optional<std::string> line = input.nextLine();
    fuzz::require(line == expected, "pieces change nothing of a line");
    decode(*line);
  }
  fuzz::require(!input.nextLine() && !input.nextLine(), "behind the last line there is none");
  current = nullptr;
  return 0;
}
