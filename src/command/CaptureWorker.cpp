#include "command/CaptureWorker.hpp"

#include "base/Failure.hpp"
#include "base/FileSystem.hpp"
#include "command/CaptureWorkerRequest.hpp"
#include "command/CommandParser.hpp"

#include <array>
#include <exception>

namespace tessarin {

namespace {

constexpr std::size_t readBytes = 4096;
constexpr std::string_view requestIDKey = "requestId";

std::optional<CaptureWorkerRequest> requestOf(const std::string& line) {
  try {
    auto request = json::decode<CaptureWorkerRequest>(std::string_view(line));
    request.validate();
    return request;
  } catch (const json::DecodingFailure&) {
    return std::nullopt;
  } catch (const Failure<CommandParserError>&) {
    return std::nullopt;
  }
}

// The envelope with the request's identifier among its members.
std::string withRequestID(const json::Value& envelope, const std::string& requestID) {
  std::string response;
  const auto append = [&](std::string_view key) -> std::string& {
    response += response.empty() ? '{' : ',';
    json::appendString(response, key, json::Slashes::escaped);
    return response += ':';
  };
  auto appendRequestID = [&, isThere = false]() mutable {
    if (!std::exchange(isThere, true))
      json::appendString(append(requestIDKey), requestID, json::Slashes::escaped);
  };
  for (const std::string& key : envelope.keys()) {
    if (key >= requestIDKey)
      appendRequestID();
    if (key != requestIDKey)
      json::appendValue(append(key), envelope.member(key).value(), json::Slashes::escaped);
  }
  appendRequestID();
  return response += '}';
}

} // namespace

bool CaptureWorker::isAskedFor(const std::vector<std::string>& arguments) {
  return arguments.size() == 1 && arguments.front() == "capture-worker";
}

std::int32_t CaptureWorker::run() const {
  if (!isWritten(readyLine))
    return exitStatus::refused;
  ends_.warmUp();
  CaptureWorkerLines lines;
  std::array<char, readBytes> buffer{};
  for (;;) {
    std::size_t count = 0;
    try {
      count = ends_.input(buffer);
    } catch (const FileFailure&) {
      return exitStatus::refused;
    }
    if (count == 0)
      return lines.isInsideLine() ? exitStatus::refused : exitStatus::success;
    if (const auto status = serve(lines, {buffer.data(), count}))
      return *status;
  }
}

std::optional<std::int32_t> CaptureWorker::serve(CaptureWorkerLines& lines, std::string_view bytes) const {
  try {
    while (const auto line = lines.take(bytes))
      if (const auto status = answer(*line))
        return status;
    return std::nullopt;
  } catch (const Failure<CaptureWorkerLineError>&) {
    return exitStatus::refused;
  }
}

// A host that sends what is no request is broken, and is not spoken to any more. What comes of a request that
// is one is for the host to read, success or not.
std::optional<std::int32_t> CaptureWorker::answer(const std::string& line) const {
  const auto request = requestOf(line);
  if (!request)
    return exitStatus::refused;
  std::string response;
  try {
    const json::Document envelope(ends_.run(request->arguments).output);
    if (!envelope.root().isObject())
      return exitStatus::failed;
    response = withRequestID(envelope.root(), request->requestID);
  } catch (const std::exception&) { // no JSON, or none that can be written again
    return exitStatus::refused;
  }
  if (response.size() >= tooLongResponse)
    return exitStatus::failed;
  return isWritten(response += '\n') ? std::nullopt : std::optional(exitStatus::refused);
}

bool CaptureWorker::isWritten(std::string_view bytes) const {
  try {
    ends_.output(bytes);
    return true;
  } catch (const FileFailure&) {
    return false;
  }
}

} // namespace tessarin
