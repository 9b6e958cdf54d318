#include "Program.hpp"

#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <filesystem>

namespace tessarin {
namespace {

using Arguments = std::vector<std::string>;

const std::string badArguments = failureReply("invalidArguments", "Invalid native helper arguments.");
const std::string badEncoding =
    failureReply("invalidArguments", "The capture request is not valid base64 data.");
const std::string badPath = failureReply("invalidArguments", "Media paths must be absolute.");
const std::string undecodableCapture =
    failureReply("invalidRequest", "The capture request could not be decoded.");
const std::string undecodableRecording =
    failureReply("invalidRequest", "The recording request could not be decoded.");
const std::string unexpected =
    failureReply("internalError", "The native helper encountered an unexpected error.");
const std::string noAccess =
    failureReply("permissionDenied", "Screen Recording permission is required to capture the display.");

std::string shown(const Arguments& arguments) {
  std::string text;
  for (const auto& argument : arguments)
    text += "[" + argument.substr(0, 100) + "]";
  return text;
}

// Without a display, in a directory of its own in which nothing may appear.
class RefusalTest : public testing::Test {
 protected:
  void expectRefusal(const Arguments& arguments, const std::string& reply, int exitStatus) {
    const ProgramResult result = runProgram(arguments, {.workingDirectory = directory.path()});
    EXPECT_EQ(result.output, reply) << shown(arguments);
    EXPECT_EQ(result.exitStatus, exitStatus) << shown(arguments);
    EXPECT_EQ(result.diagnostics, "") << shown(arguments);
    EXPECT_TRUE(std::filesystem::is_empty(directory.path())) << shown(arguments);
  }

  TemporaryDirectory directory;
};

TEST_F(RefusalTest, WhatIsNoCommandIsRefused) {
  for (const Arguments& arguments : {Arguments{},
                                     {""},
                                     {"--help"},
                                     {"capture-worker", "extra"},
                                     {"record"},
                                     {"record", "--request-json"},
                                     {"record", "--request-json", "e30=", "extra"},
                                     {"translate-text", "extra"},
                                     {"list", "--exclude"},
                                     {"list", "--exclude-parent-application", "extra"},
                                     {"share", "relative/path"},
                                     {"capture", "--request-json=e30="},
                                     {"render-hdr", "--directory", "/tmp/x", "--format", "gif"},
                                     {"render-hdr", "--directory", "/tmp/a/../b", "--format", "png"},
                                     {"copy-hdr", "--directory", "relative"},
                                     {"render-hdr", "--directory", "/" + std::string(4096, 'd')}})
    expectRefusal(arguments, badArguments, 2);
}

TEST_F(RefusalTest, ABadRequestTextIsRefused) {
  for (const char* const command :
       {"sample-recording-system-audio", "prepare-capture", "capture", "record", "recover-recording",
        "inspect-edit-source", "audio-waveform", "export-edit", "export-gif", "thumbnail"})
    for (const char* const text : {"", "{}", "e30", "e30=\n", "-_-_"})
      expectRefusal({command, "--request-json", text}, badEncoding, 2);
  for (const char* const command : {"recognize-text", "recognize-qr"}) {
    expectRefusal({command, "--request-json", ""}, badEncoding, 2);
    expectRefusal({command, "--request-json", std::string(8196, 'A')}, badEncoding, 2);
  }
  expectRefusal({"prepare-capture", "--request-json", std::string(16388, 'A')}, badEncoding, 2);
  expectRefusal({"transcribe-captions", "--request-file", "/x", "--language", "fr-FR", "--audio", "mixed"},
                badEncoding, 2);
}

TEST_F(RefusalTest, ARelativePathIsRefused) {
  for (const char* const command : {"copy", "copy-file", "share"})
    for (const char* const path : {"relative/path", "~/x", ""})
      expectRefusal({command, "--path", path}, badPath, 2);
  expectRefusal({"export-edit", "--request-file", "relative"}, badPath, 2);
  expectRefusal({"prepare-narration", "--request-file", "relative"}, badPath, 2);
}

TEST_F(RefusalTest, ArgumentsThatAreNotUtf8AreRefused) {
  expectRefusal({"\xFF"}, badArguments, 2);
  expectRefusal({"list", "\xC3"}, badArguments, 2);
  expectRefusal({"copy", "--path", "/\xFF"}, badPath, 2);
  expectRefusal({"capture", "--request-json", "\xFF\xFF"}, badEncoding, 2);
  expectRefusal({"render-hdr", "--directory", "/\xED\xA0\x80"}, badArguments, 2);
}

TEST_F(RefusalTest, ARequestThatCannotBeDecodedIsRefused) {
  const std::string directoryPath = directory.path();
  for (const std::string& request :
       {std::string("{}"), std::string("[]"), std::string("{"), std::string("\xFF"),
        R"({"kind":"display","displayId":"1","rectPoints":{"x":0,"y":0,"width":1},"outputPath":")" +
            directoryPath + R"(/a.png"})",
        R"({"kind":"screen","displayId":"1","rectPoints":{"x":0,"y":0,"width":1,"height":1},"outputPath":")" +
            directoryPath + R"(/a.png"})"}) {
    expectRefusal(withRequest("capture", request), undecodableCapture, 2);
    expectRefusal(withRequest("record", request), undecodableRecording, 2);
    expectRefusal(withRequest("prepare-capture", request), badEncoding, 2);
  }
  expectRefusal(withRequest("sample-recording-system-audio", R"({"displayId":""})"), undecodableRecording, 2);
  expectRefusal(withRequest("recover-recording", "[]"),
                failureReply("invalidRequest", "The recording recovery request is invalid."), 1);
  expectRefusal(withRequest("inspect-edit-source", "[]"),
                failureReply("invalidRequest", "The video inspection request could not be decoded."), 2);
  expectRefusal(withRequest("audio-waveform", "[]"),
                failureReply("invalidRequest", "The audio waveform request could not be decoded."), 2);
  expectRefusal(withRequest("export-edit", "[]"),
                failureReply("invalidRequest", "The video edit export request is invalid."), 2);
  expectRefusal(withRequest("export-gif", "[]"),
                failureReply("invalidRequest", "The GIF export request exceeds its safe limits."), 2);
  expectRefusal(withRequest("thumbnail", "[]"),
                failureReply("invalidRequest", "The thumbnail request is not valid JSON."), 2);
}

TEST_F(RefusalTest, ARequestNestedWithoutEndIsRefused) {
  expectRefusal(withRequest("capture", std::string(60000, '[')), undecodableCapture, 2);
}

TEST_F(RefusalTest, CommandsWhoseServiceIsBuiltLaterFailAsUnexpected) {
  for (const Arguments& arguments : {Arguments{"translate-text"},
                                     {"warm-text-recognition"},
                                     {"copy", "--path", directory / "a.png"},
                                     {"render-hdr", "--directory", directory.path()}})
    expectRefusal(arguments, unexpected, 1);
}

TEST_F(RefusalTest, WithoutADisplayTheDesktopIsOutOfReach) {
  expectRefusal({"list"}, noAccess, 1);
  expectRefusal({"list", "--exclude-parent-application"}, noAccess, 1);
  expectRefusal(
      withRequest(
          "capture",
          R"({"kind":"display","displayId":"1","rectPoints":{"x":0,"y":0,"width":1,"height":1},"outputPath":")" +
              directory.path() + R"(/a.png"})"),
      noAccess, 1);
  expectRefusal({"status"}, "{\"data\":{\"permission\":\"notDetermined\"},\"ok\":true,\"schemaVersion\":1}\n",
                0);
}

} // namespace
} // namespace tessarin
