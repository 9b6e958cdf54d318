#include "desktop/CapturePreparationRequest.hpp"

#include "base/FileSystem.hpp"
#include "model/Errors.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

namespace tessarin {
namespace {

namespace fs = std::filesystem;

const std::string sessionID = "0b8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69";

// How the rules end: with the directory, a broken one, or a system that does not tell.
constexpr auto outputFailed = "outputFailed: The screenshot could not be written to its temporary output.";
const std::string unreadable = "the system's error ";

class CapturePreparationRequestTest : public testing::Test {
 protected:
  CapturePreparationRequestTest() { fs::create_directory(session); }

  std::string outcome(const CapturePreparationRequest& request) {
    try {
      return request.validatedDirectory(files);
    } catch (const NativeServiceError& error) {
      EXPECT_TRUE(error.recoverable);
      return std::string(json::nameOf(error.code)).append(": ").append(error.message);
    } catch (const FileFailure& failure) {
      return unreadable + std::to_string(failure.errorNumber());
    }
  }
  std::string outcome(const std::string& path, const std::string& id = sessionID) {
    return outcome(CapturePreparationRequest{1, id, path});
  }

  TemporaryDirectory directory;
  FaultyFileSystem files{machineFileSystem()};
  const std::string session = directory / sessionID;
};

TEST_F(CapturePreparationRequestTest, IsDecodedStrictly) {
  EXPECT_EQ(
      json::decode<CapturePreparationRequest>(R"({"schemaVersion":1,"sessionId":"a","directory":"/b"})"),
      (CapturePreparationRequest{1, "a", "/b"}));
  for (const char* const text :
       {"{}", "[]", R"({"sessionId":"a","directory":"/b"})", R"({"schemaVersion":1,"directory":"/b"})",
        R"({"schemaVersion":1,"sessionId":"a"})", R"({"schemaVersion":"1","sessionId":"a","directory":"/b"})",
        R"({"schemaVersion":1,"sessionId":null,"directory":"/b"})",
        R"({"schemaVersion":1,"sessionId":"a","directory":["/b"]})"})
    EXPECT_THROW((void)json::decode<CapturePreparationRequest>(text), json::DecodingFailure) << text;
}

TEST_F(CapturePreparationRequestTest, AnEmptyDirectoryOfTheSessionIsTaken) {
  EXPECT_EQ(outcome(session), session);
  EXPECT_EQ(outcome(session + "/"), session);
  EXPECT_EQ(outcome(session + "///"), session);
  EXPECT_EQ(outcome(directory / "./" + sessionID), directory / "./" + sessionID);
  for (const char* const id :
       {"0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69", "0b8c6a52-3c5a-4f1b-9e43-1f2d3c4b5a69"}) {
    fs::create_directory(directory / id);
    EXPECT_EQ(outcome(directory / id, id), directory / id);
  }
}

TEST_F(CapturePreparationRequestTest, EveryRuleIsChecked) {
  for (const std::int64_t version : {0, 2, -1})
    EXPECT_EQ(outcome(CapturePreparationRequest{version, sessionID, session}), outputFailed) << version;
  for (const char* const id : {"", "session", "0b8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A6"}) {
    fs::create_directories(directory / id);
    EXPECT_EQ(outcome(directory / id, id), outputFailed) << id;
  }
  EXPECT_EQ(outcome(sessionID), outputFailed) << "relative";
  EXPECT_EQ(outcome("~/" + sessionID), outputFailed);
  EXPECT_EQ(outcome(""), outputFailed);
  EXPECT_EQ(outcome("/"), outputFailed);
  EXPECT_EQ(outcome(directory / "x/../" + sessionID), outputFailed);
  EXPECT_EQ(outcome(directory.path()), outputFailed) << "another name";
  EXPECT_EQ(outcome(session + "/."), outputFailed);
  EXPECT_EQ(outcome(session + "/other"), outputFailed);
  EXPECT_TRUE(files.log().empty()) << "nothing was looked at so far";
}

TEST_F(CapturePreparationRequestTest, TheNameHasTheLettersOfTheIdentifier) {
  const std::string upper = "0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69";
  EXPECT_EQ(outcome(session, upper), outputFailed);
  EXPECT_EQ(outcome(session, sessionID), session);
}

TEST_F(CapturePreparationRequestTest, APathMayHave4096Bytes) {
  const auto ofLength = [&](std::size_t length) {
    const std::string end = "/" + sessionID;
    return "/" + std::string(length - 1 - end.size(), 'd') + end;
  };
  EXPECT_EQ(outcome(ofLength(4096)), unreadable + std::to_string(ENAMETOOLONG));
  EXPECT_EQ(outcome(ofLength(4097)), outputFailed);
  // In bytes, not in characters.
  std::string path = "/";
  for (int i = 0; i < 2040; ++i)
    path += "\xC3\xA4";
  EXPECT_EQ(outcome(path + "/" + sessionID), outputFailed);
}

TEST_F(CapturePreparationRequestTest, OnlyADirectoryWillDo) {
  fs::remove(session);
  EXPECT_EQ(outcome(session), unreadable + std::to_string(ENOENT));
  EXPECT_EQ(outcome(session + "/"), unreadable + std::to_string(ENOENT));
  directory.write(sessionID, "a file");
  EXPECT_EQ(outcome(session), outputFailed);
  fs::remove(session);
  fs::create_directory(directory / "elsewhere");
  fs::create_directory_symlink(directory / "elsewhere", session);
  EXPECT_EQ(outcome(session), outputFailed);
  EXPECT_EQ(outcome(session + "/"), outputFailed) << "the slash does not lead through the link";
  fs::remove(session);
  fs::create_symlink("nowhere", session);
  EXPECT_EQ(outcome(session), outputFailed);
}

TEST_F(CapturePreparationRequestTest, TheWayThereMayLeadThroughALink) {
  fs::create_directory_symlink(directory.path(), directory / "link");
  EXPECT_EQ(outcome(directory / "link/" + sessionID), directory / "link/" + sessionID);
}

TEST_F(CapturePreparationRequestTest, AnythingInTheDirectoryIsTooMuch) {
  for (const char* const name : {"0.png", ".DS_Store", ".hidden", "..."}) {
    directory.write(sessionID + "/" + name, "");
    EXPECT_EQ(outcome(session), outputFailed) << name;
    fs::remove(directory / sessionID + "/" + name);
  }
  fs::create_directory(session + "/folder");
  EXPECT_EQ(outcome(session), outputFailed);
  fs::remove(session + "/folder");
  fs::create_symlink("nowhere", session + "/link");
  EXPECT_EQ(outcome(session), outputFailed);
}

TEST_F(CapturePreparationRequestTest, WhatTheSystemDoesNotTellIsItsOwnError) {
  files.failNth(FileOperation::info, 1, EACCES);
  EXPECT_EQ(outcome(session), unreadable + std::to_string(EACCES));
  files.failNth(FileOperation::list, 1, EIO);
  EXPECT_EQ(outcome(session), unreadable + std::to_string(EIO));
  const std::string nul = std::string("/tmp/a\0b/", 9) + sessionID;
  EXPECT_EQ(outcome(nul), unreadable + std::to_string(EINVAL));
}

} // namespace
} // namespace tessarin
