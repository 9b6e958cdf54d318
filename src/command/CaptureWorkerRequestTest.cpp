#include "command/CaptureWorkerRequest.hpp"

#include "base/Text.hpp"
#include "command/CommandParser.hpp"
#include "support/FailureOf.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

using Arguments = std::vector<std::string>;

const std::string identifier = "0b8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69";
const Arguments listing = {"list", "--exclude-parent-application"};

std::optional<CommandParserError> failure(const CaptureWorkerRequest& request) {
  return failureOf<CommandParserError>([&] { request.validate(); });
}

TEST(CaptureWorkerRequest, IsDecodedStrictly) {
  EXPECT_EQ(json::decode<CaptureWorkerRequest>(
                R"({"schemaVersion":1,"requestId":"x","arguments":["a","\u00e4"],"more":null})"),
            (CaptureWorkerRequest{1, "x", {"a", "\xC3\xA4"}}));
  for (const char* const text :
       {"", "{}", "[]", "null", R"({"schemaVersion":1,"requestId":"x"})",
        R"({"schemaVersion":1,"arguments":[]})", R"({"requestId":"x","arguments":[]})",
        R"({"schemaVersion":"1","requestId":"x","arguments":[]})",
        R"({"schemaVersion":1.5,"requestId":"x","arguments":[]})",
        R"({"schemaVersion":1,"requestId":1,"arguments":[]})",
        R"({"schemaVersion":1,"requestId":"x","arguments":"list"})",
        R"({"schemaVersion":1,"requestId":"x","arguments":[1]})",
        R"({"schemaVersion":1,"requestId":"x","arguments":null})",
        R"({"schemaVersion":1,"requestID":"x","arguments":[]})"})
    EXPECT_THROW((void)json::decode<CaptureWorkerRequest>(text), json::DecodingFailure) << text;
}

TEST(CaptureWorkerRequest, AsksForOneOfTwoCommands) {
  const Arguments preparing = {"prepare-capture", "--request-json", "e30="};
  for (const Arguments& arguments : {listing, preparing})
    for (const char* const id :
         {identifier.c_str(), "0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69", "0b8c6a52-3c5a-4f1b-9e43-1f2d3c4b5a69"})
      EXPECT_EQ(failure({1, id, arguments}), std::nullopt) << id;
}

TEST(CaptureWorkerRequest, OfAnotherVersionOrWithoutAUuidIsRefused) {
  using enum CommandParserError;
  for (const std::int64_t version : {0, 2, -1})
    EXPECT_EQ(failure({version, identifier, listing}), invalidRequestEncoding) << version;
  for (const char* const id : {"", "1", "0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A6",
                               "{0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69}", "0B8C6A523C5A4F1B9E431F2D3C4B5A69"})
    EXPECT_EQ(failure({1, id, listing}), invalidRequestEncoding) << id;
  // Before the arguments are looked at.
  EXPECT_EQ(failure({1, "1", {"unknown"}}), invalidRequestEncoding);
}

TEST(CaptureWorkerRequest, ForAnotherGoodCommandIsRefused) {
  for (const Arguments& arguments : {Arguments{"list"},
                                     {"status"},
                                     {"capture", "--request-json", "e30="},
                                     {"record", "--request-json", "e30="},
                                     {"recording-available-bytes"},
                                     {"translate-text"},
                                     {"copy", "--path", "/x"}})
    EXPECT_EQ(failure({1, identifier, arguments}), CommandParserError::invalidRequestEncoding)
        << arguments[0];
}

TEST(CaptureWorkerRequest, PassesOnWhatTheGrammarSays) {
  using enum CommandParserError;
  for (const Arguments& arguments : {Arguments{},
                                     {"capture-worker"},
                                     {"list", "--exclude-parent-application", "more"},
                                     {"prepare-capture"}})
    EXPECT_EQ(failure({1, identifier, arguments}), invalidArguments);
  EXPECT_EQ(failure({1, identifier, {"copy", "--path", "relative"}}), pathMustBeAbsolute);
  EXPECT_EQ(failure({1, identifier, {"prepare-capture", "--request-json", ""}}), invalidRequestEncoding);
  EXPECT_EQ(failure({1, identifier, {"prepare-capture", "--request-json", std::string(16384, 'A')}}),
            std::nullopt);
  EXPECT_EQ(failure({1, identifier, {"prepare-capture", "--request-json", std::string(16388, 'A')}}),
            invalidRequestEncoding);
}

} // namespace
} // namespace tessarin
