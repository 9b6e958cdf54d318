#include "Fuzz.hpp"
#include "base/Text.hpp"

using namespace tessarin;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = fuzz::textOf(data, size);

  const std::string repaired = repairedUtf8(text);
  fuzz::require(isValidUtf8(repaired), "repaired text is valid");
  fuzz::require(isValidUtf8(text) == (repaired == text), "valid text, and only that, needs no repair");

  const std::string_view inner = trimmed(text);
  fuzz::require(text.find(inner) != std::string_view::npos, "trimming only cuts");
  fuzz::require(trimmed(inner) == inner, "trimming twice is trimming once");

  fuzz::require(decodedBase64(encodedBase64(text)) == text, "what is encoded decodes to the same");
  if (const auto bytes = decodedBase64(text))
    fuzz::require(encodedBase64(*bytes) == text, "only one text decodes to the same bytes");

  for (const std::string_view component : pathComponents(text))
    fuzz::require(!component.empty() && component.find('/') == std::string_view::npos,
                  "components are names");
  fuzz::require(lastPathComponent(text) == (pathComponents(text).empty() ? "" : pathComponents(text).back()),
                "the last component is the last of them");
  fuzz::require(!isCleanAbsoluteMediaPath(text) || isAbsolutePath(text), "a clean path is absolute");
  fuzz::require(lowercasePathExtension(text).size() <= text.size(), "an extension is a part of the path");
  fuzz::require(!isUuid(text) || text.size() == 36, "a UUID has 36 characters");
  return 0;
}
