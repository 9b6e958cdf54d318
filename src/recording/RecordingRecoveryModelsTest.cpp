#include "recording/RecordingRecoveryModels.hpp"

#include "model/MediaErrors.hpp"
#include "support/FailureOf.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

const std::string sessionID = "0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69";
const std::string session = "/rec/" + sessionID;

RecordingRecoveryRequestDTO validRequest() {
  RecordingRecoveryRequestDTO request;
  request.sessionID = sessionID;
  request.outputDirectory = session;
  request.segmentPaths = {session + "/segments/segment-0000.mp4", session + "/segments/segment-0001.mp4"};
  return request;
}

bool isValid(const RecordingRecoveryRequestDTO& request) {
  const auto failure = failureOf<RecordingRecoveryError>([&] { request.validated(); });
  EXPECT_TRUE(!failure || *failure == RecordingRecoveryError::invalidRequest);
  return !failure;
}

TEST(RecordingRecoveryRequest, NamesItsSessionInEitherSpelling) {
  const std::string rest = R"("outputDirectory":"/d","segmentPaths":["/s"])";
  const auto decoded = [&](const std::string& ids) {
    return json::decode<RecordingRecoveryRequestDTO>(std::string_view("{" + ids + rest + "}"));
  };
  const auto validatedID = [&](const std::string& ids) {
    RecordingRecoveryRequestDTO request = validRequest();
    const RecordingRecoveryRequestDTO parsed = decoded(ids);
    request.sessionID = parsed.sessionID;
    request.sessionIDInCapitals = parsed.sessionIDInCapitals;
    return isValid(request) ? request.validated().sessionID : "";
  };
  EXPECT_EQ(validatedID(R"("sessionId":")" + sessionID + R"(",)"), sessionID);
  EXPECT_EQ(validatedID(R"("sessionID":")" + sessionID + R"(",)"), sessionID);
  EXPECT_EQ(validatedID(R"("sessionId":")" + sessionID + R"(","sessionID":"other",)"), sessionID);
  EXPECT_EQ(validatedID(R"("sessionId":"other","sessionID":")" + sessionID + R"(",)"), "");
  EXPECT_EQ(validatedID(""), "");
}

TEST(RecordingRecoveryRequest, NeedsItsDirectoryAndItsSegmentsAndNothingElse) {
  const auto decodes = [](std::string_view text) {
    try {
      (void)json::decode<RecordingRecoveryRequestDTO>(text);
      return true;
    } catch (const json::DecodingFailure&) {
      return false;
    }
  };
  EXPECT_TRUE(decodes(R"({"sessionId":"s","outputDirectory":"/d","segmentPaths":[]})"));
  EXPECT_TRUE(
      decodes(R"({"sessionId":"s","outputDirectory":"/d","segmentPaths":[],"recoverCamera":null,"more":1})"));
  EXPECT_FALSE(decodes(R"({"sessionId":"s","segmentPaths":[]})"));
  EXPECT_FALSE(decodes(R"({"sessionId":"s","outputDirectory":"/d"})"));
  EXPECT_FALSE(decodes(R"({"sessionId":1,"outputDirectory":"/d","segmentPaths":[]})"));
  EXPECT_FALSE(decodes(R"({"sessionId":"s","outputDirectory":"/d","segmentPaths":"/s"})"));
  EXPECT_FALSE(decodes(R"({"sessionId":"s","outputDirectory":"/d","segmentPaths":[1]})"));
  EXPECT_FALSE(decodes(R"({"sessionId":"s","outputDirectory":"/d","segmentPaths":[],"recoverCamera":1})"));
}

TEST(RecordingRecoveryRequest, AsksForThePicturesAloneWhenNothingElseIsSaid) {
  const ValidatedRecordingRecoveryRequest validated = validRequest().validated();
  EXPECT_EQ(validated.sessionID, sessionID);
  EXPECT_EQ(validated.sessionPath, session);
  EXPECT_EQ(validated.segmentPaths, validRequest().segmentPaths);
  EXPECT_EQ(validated.outputPath, session + "/recording.mp4");
  EXPECT_EQ(validated.screenOutputPath, session + "/screen.mp4");
  EXPECT_EQ(validated.cameraOutputPath, std::nullopt);
  EXPECT_EQ(validated.systemAudioOutputPath, std::nullopt);
  EXPECT_EQ(validated.microphoneOutputPath, std::nullopt);
  EXPECT_EQ(validated.interactionEventsPath, std::nullopt);
}

TEST(RecordingRecoveryRequest, AsksForEachFurtherFileByAFlagOfItsOwn) {
  using Request = RecordingRecoveryRequestDTO;
  using Validated = ValidatedRecordingRecoveryRequest;
  const struct {
    std::optional<bool> Request::*flag;
    std::optional<std::string> Validated::*path;
    const char* name;
  } cases[] = {
      {&Request::recoverCamera, &Validated::cameraOutputPath, "/camera.mp4"},
      {&Request::recoverSystemAudio, &Validated::systemAudioOutputPath, "/system-audio.m4a"},
      {&Request::recoverMicrophone, &Validated::microphoneOutputPath, "/microphone.m4a"},
      {&Request::recoverInteractions, &Validated::interactionEventsPath, "/interaction-events.jsonl"},
  };
  for (const auto& each : cases) {
    Request request = validRequest();
    Validated expected = request.validated();
    request.*each.flag = false;
    EXPECT_EQ(request.validated(), expected) << each.name;
    request.*each.flag = true;
    expected.*each.path = session + each.name;
    EXPECT_EQ(request.validated(), expected) << each.name;
  }
}

TEST(RecordingRecoveryRequest, NeedsAUuid) {
  RecordingRecoveryRequestDTO request = validRequest();
  for (const char* const id :
       {"", "x", "0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A6", "{0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69}",
        "0B8C6A523C5A4F1B9E431F2D3C4B5A69"}) {
    request.sessionID = id;
    request.outputDirectory = "/rec/" + *request.sessionID;
    request.segmentPaths = {request.outputDirectory + "/segments/segment-0000.mp4"};
    EXPECT_FALSE(isValid(request)) << id;
  }
}

TEST(RecordingRecoveryRequest, NeedsADirectoryThatBearsTheSessionsName) {
  const struct {
    std::string directory;
    bool isValid;
  } cases[] = {
      {session, true},
      {session + "/", true},
      {"//rec//" + sessionID, true},
      {"/" + sessionID, true},
      {"", false},
      {"/", false},
      {"rec/" + sessionID, false},
      {"/rec/../rec/" + sessionID, false},
      {session + "/..", false},
      {session + "/x", false},
      {"/rec/0b8c6a52-3c5a-4f1b-9e43-1f2d3c4b5a69", false},
      {"/rec/x" + sessionID, false},
      {std::string("/rec\0/", 6) + sessionID, false},
  };
  for (const auto& each : cases) {
    RecordingRecoveryRequestDTO request = validRequest();
    request.outputDirectory = each.directory;
    request.segmentPaths = {each.directory + "/segments/segment-0000.mp4"};
    EXPECT_EQ(isValid(request), each.isValid) << each.directory;
  }
}

TEST(RecordingRecoveryRequest, NeedsSegments) {
  RecordingRecoveryRequestDTO request = validRequest();
  request.segmentPaths.resize(1);
  EXPECT_TRUE(isValid(request));
  request.segmentPaths.clear();
  EXPECT_FALSE(isValid(request));
}

TEST(RecordingRecoveryRequest, NamesEachSegmentOnce) {
  const std::string first = session + "/segments/segment-0000.mp4";
  for (const std::string& again : {first, session + "//segments/segment-0000.mp4", first + "/"}) {
    RecordingRecoveryRequestDTO request = validRequest();
    request.segmentPaths.push_back(again);
    EXPECT_FALSE(isValid(request)) << again;
  }
}

TEST(RecordingRecoveryRequest, NamesSegmentsOfItsOwnSessionOnly) {
  const struct {
    std::string path;
    bool isValid;
  } cases[] = {
      {session + "/segments/segment-0002.mp4", true},
      {session + "/segments/segment-10000.mp4", true},
      {session + "/segments/segment-.mp4", true},
      {session + "/segments/segment-0002.MP4", true},
      {session + "//segments//segment-0002.mp4", true},
      {session + "/segments/SEGMENT-0002.MP4", false},
      {session + "/segments/segment-0002.mov", false},
      {session + "/segments/segment-0002", false},
      {session + "/segments/segment-0002.mp4.tmp", false},
      {session + "/segments/xsegment-0002.mp4", false},
      {session + "/segments/segment.mp4", false},
      {session + "/segment-0002.mp4", false},
      {session + "/segments/deeper/segment-0002.mp4", false},
      {session + "/Segments/segment-0002.mp4", false},
      {session + "/segments/../segments/segment-0002.mp4", false},
      {session + "/segments/./segment-0002.mp4", false},
      {"/rec/other/segments/segment-0002.mp4", false},
      {"segments/segment-0002.mp4", false},
      {sessionID + "/segments/segment-0002.mp4", false},
      {session + std::string("/segments/segment-\0.mp4", 23), false},
      {"", false},
      {"/", false},
  };
  for (const auto& each : cases) {
    RecordingRecoveryRequestDTO request = validRequest();
    request.segmentPaths.push_back(each.path);
    EXPECT_EQ(isValid(request), each.isValid) << each.path;
  }
}

} // namespace
} // namespace tessarin
