#include "command/CaptureWorkerRequest.hpp"

#include "base/Failure.hpp"
#include "base/Text.hpp"
#include "command/CommandParser.hpp"

#include <variant>

namespace tessarin {

namespace {

bool isServed(const NativeCommand& command) {
  const auto* const list = std::get_if<commands::List>(&command);
  return list ? list->excludeParentApplication : std::holds_alternative<commands::PrepareCapture>(command);
}

} // namespace

void CaptureWorkerRequest::validate() const {
  if (schemaVersion != 1 || !isUuid(requestID) || !isServed(CommandParser::parse(arguments)))
    fail(CommandParserError::invalidRequestEncoding);
}

} // namespace tessarin
