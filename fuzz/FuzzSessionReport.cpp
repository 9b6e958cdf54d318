// A report on a session whose files say anything. The first byte tells which of them the rest is.

#include "Fuzz.hpp"
#include "MemoryFileSystem.hpp"
#include "base/Text.hpp"
#include "report/SessionReport.hpp"

#include <array>

using namespace tessarin;

namespace {

const std::string session = "/s/123e4567-e89b-12d3-a456-426614174000";
constexpr std::array names = {"native-manifest.json", "interaction-events.jsonl",  "camera-layout.json",
                              "screen.mp4",           "segments/segment-0000.mp4", "recording.mp4"};

bool isForATerminal(std::string_view text) {
  for (const char character : text)
    if (static_cast<unsigned char>(character) < 0x20 && character != '\n')
      return false;
  return isValidUtf8(text) && text.find('\x7f') == std::string_view::npos;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0)
    return 0;
  const std::string_view bytes = fuzz::textOf(data + 1, size - 1);
  const std::string path = std::string(session).append("/").append(names[data[0] % names.size()]);
  fuzz::MemoryFileSystem files;
  files.makeDirectory(session);
  files.makeDirectory(session + "/segments");
  files.put(path, bytes);
  const SessionReport report = reportOnSession(files, session);
  fuzz::require(report.text.ends_with('\n'), "a report is made of lines");
  fuzz::require(isForATerminal(report.text), "a report does nothing to a terminal");
  fuzz::require(report.text.size() <= 4096 + 8 * size, "a report is in proportion to the files");
  fuzz::require(*files.entries.at(path) == bytes && files.entries.size() == 3, "a report only reads");
  return 0;
}
