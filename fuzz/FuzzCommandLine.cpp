#include "Fuzz.hpp"
#include "base/Failure.hpp"
#include "command/CommandParser.hpp"

#include <algorithm>

using namespace tessarin;

// The input is an argument vector, one argument a line.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> arguments;
  std::string_view text = fuzz::textOf(data, size);
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    arguments.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  try {
    const NativeCommand command = CommandParser::parse(arguments);
    fuzz::require(!arguments.empty(), "no arguments are no command");
    fuzz::require(command == CommandParser::parse(arguments), "parsing is pure");
    arguments.emplace_back("extra");
    bool refused = false;
    try {
      CommandParser::parse(arguments);
    } catch (const Failure<CommandParserError>&) {
      refused = true;
    }
    fuzz::require(refused, "no command takes one more argument that is not an option of it");
  } catch (const Failure<CommandParserError>& failure) {
    fuzz::require(!messageOf(failure.value()).empty(), "a failure has its sentence");
  }
  return 0;
}
