// What a host writes to a capture worker, in pieces of any length.

#include "Chunks.hpp"
#include "Fuzz.hpp"
#include "base/Failure.hpp"
#include "base/Text.hpp"
#include "command/CaptureWorker.hpp"
#include "command/CaptureWorkerRequest.hpp"
#include "command/CommandParser.hpp"

#include <cstring>
#include <optional>
#include <string>
#include <vector>

using namespace tessarin;

namespace {

constexpr std::string_view envelope = R"({"data":{"path":"/tmp/a"},"ok":true,"schemaVersion":1})";

std::optional<CaptureWorkerRequest> requestOf(std::string_view line) {
  try {
    auto request = json::decode<CaptureWorkerRequest>(line);
    request.validate();
    fuzz::require(request.schemaVersion == 1 && isUuid(request.requestID), "a request that is served is one");
    return request;
  } catch (const json::DecodingFailure&) {
    return std::nullopt;
  } catch (const Failure<CommandParserError>&) {
    return std::nullopt;
  }
}

// What has to come of a stream whatever its pieces.
struct Outcome {
  std::int32_t status = exitStatus::refused;
  std::vector<std::string> requestIDs; // of all that were served

  static Outcome of(std::string_view stream) {
    Outcome outcome;
    while (!stream.empty()) {
      const std::size_t end = stream.find('\n');
      const std::string_view line = stream.substr(0, end);
      if (end == std::string_view::npos || line.empty() || line.size() > CaptureWorkerLines::longest)
        return outcome;
      const std::optional<CaptureWorkerRequest> request = requestOf(line);
      if (!request)
        return outcome;
      outcome.requestIDs.push_back(request->requestID);
      stream.remove_prefix(end + 1);
    }
    outcome.status = exitStatus::success;
    return outcome;
  }
};

std::string responseTo(const std::string& requestID) {
  return R"({"data":{"path":"\/tmp\/a"},"ok":true,"requestId":")" + requestID + R"(","schemaVersion":1})" +
         '\n';
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Chunks chunks(fuzz::textOf(data, size));
  std::string written;
  std::size_t runs = 0;
  const CaptureWorker worker({.input =
                                  [&](std::span<char> into) {
                                    const std::string_view piece = chunks.next(into.size());
                                    std::memcpy(into.data(), piece.data(), piece.size());
                                    return piece.size();
                                  },
                              .output = [&](std::string_view bytes) { written += bytes; },
                              .run =
                                  [&](const std::vector<std::string>& arguments) {
                                    ++runs;
                                    CommandParser::parse(arguments); // throws for what no worker may run
                                    return NativeExecution{.output = std::string(envelope), .exitCode = 0};
                                  }});
  const std::int32_t status = worker.run();
  const Outcome expected = Outcome::of(chunks.stream());
  fuzz::require(status == expected.status, "pieces change nothing of how a worker ends");
  fuzz::require(runs == expected.requestIDs.size(), "each request is run once");
  std::string responses(CaptureWorker::readyLine);
  for (const std::string& requestID : expected.requestIDs)
    responses += responseTo(requestID);
  fuzz::require(written == responses, "each request has its response, in order");
  return 0;
}
