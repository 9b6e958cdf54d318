#include "trace/InteractionEventFile.hpp"

#include "base/Failure.hpp"
#include "base/SafeFile.hpp"
#include "model/MediaErrors.hpp"
#include "trace/InteractionShortcutPrivacy.hpp"

#include <cmath>
#include <cstdint>

namespace tessarin::InteractionEventFile {

namespace {

bool isFraction(double value) {
  return std::isfinite(value) && value >= 0 && value <= 1;
}

bool hasValidPayload(const InteractionCursorEvent& event) {
  return isFraction(event.x) && isFraction(event.y);
}
bool hasValidPayload(const InteractionClickEvent& event) {
  return isFraction(event.x) && isFraction(event.y);
}
bool hasValidPayload(const InteractionShortcutEvent& event) {
  return InteractionShortcutPrivacy::isValid(event.keys);
}

[[noreturn]] void refuse() {
  fail(VideoEditExportError::invalidProject);
}

InteractionEventDTO decodedLine(std::string_view line) {
  try {
    return json::decode<InteractionEventDTO>(line);
  } catch (const json::DecodingFailure&) {
    refuse();
  }
}

} // namespace

bool isValid(const InteractionEventDTO& event) {
  return event.timestampMs() >= 0 &&
         std::visit([](const auto& one) { return hasValidPayload(one); }, event.event);
}

std::vector<InteractionEventDTO> parse(std::string_view bytes) {
  if (bytes.size() > maximumBytes)
    refuse();
  std::vector<InteractionEventDTO> events;
  std::int64_t previousMs = 0;
  for (std::size_t end = bytes.find('\n'); end != std::string_view::npos; end = bytes.find('\n')) {
    const std::string_view line = bytes.substr(0, end);
    bytes.remove_prefix(end + 1);
    if (line.empty())
      continue;
    if (line.size() > maximumLineBytes || events.size() >= maximumEvents)
      refuse();
    InteractionEventDTO event = decodedLine(line);
    if (event.timestampMs() < previousMs || !isValid(event))
      refuse();
    previousMs = event.timestampMs();
    events.push_back(std::move(event));
  }
  return events;
}

std::vector<InteractionEventDTO> load(FileSystem& files, const std::string& path) {
  std::string bytes;
  try {
    bytes = readWholeFile(files, path, maximumBytes);
  } catch (const FileFailure&) {
    refuse();
  }
  return parse(bytes);
}

} // namespace tessarin::InteractionEventFile
