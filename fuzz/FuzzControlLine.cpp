#include "Fuzz.hpp"
#include "base/Failure.hpp"
#include "base/Text.hpp"
#include "recording/RecordingProtocol.hpp"

using namespace tessarin;

namespace {

constexpr std::string_view session = "123e4567-e89b-12d3-a456-426614174000";

std::optional<RecordingControlCommand> decodedLine(std::string_view line,
                                                   std::optional<std::string_view> expected) {
  try {
    return RecordingControlCommand::decodeLine(line, expected);
  } catch (const Failure<RecordingProtocolError>&) {
    return std::nullopt;
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view line = fuzz::textOf(data, size);
  const auto any = decodedLine(line, std::nullopt);
  const auto expected = decodedLine(line, session);
  if (any) {
    fuzz::require(size <= RecordingControlCommand::maximumLineBytes, "a line keeps its limit");
    fuzz::require(isUuid(any->sessionID), "a session is a UUID");
    fuzz::require(decodedLine(json::encode(*any), any->sessionID) == any, "a command reads back the same");
  }
  fuzz::require(expected.has_value() == (any && any->sessionID == session), "only the one session is obeyed");
  return 0;
}
