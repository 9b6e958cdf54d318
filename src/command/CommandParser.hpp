#pragma once

#include "command/NativeCommand.hpp"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tessarin {

enum class CommandParserError : std::uint8_t { invalidArguments, invalidRequestEncoding, pathMustBeAbsolute };

// The sentence that a user reads; fixed texts.
std::string_view messageOf(CommandParserError error);

namespace CommandParser {

// The command of an argument vector without the program name. Pure: touches no file and no device. Throws
// Failure<CommandParserError>; a token that is not UTF-8 is a bad value of its form.
NativeCommand parse(const std::vector<std::string>& arguments);

} // namespace CommandParser

} // namespace tessarin
