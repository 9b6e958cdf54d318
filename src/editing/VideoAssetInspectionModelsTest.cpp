#include "editing/VideoAssetInspectionModels.hpp"

#include "model/MediaErrors.hpp"
#include "support/FailureOf.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

using enum VideoAssetInspectionRequestError;

const std::string session = "0A6B3C1E-58E4-4BC0-9C5B-3E0B40B51E2F";

std::optional<VideoAssetInspectionRequestError> failureOfRequest(const std::string& sessionID,
                                                                 const std::string& path) {
  return failureOf<VideoAssetInspectionRequestError>([&] {
    (void)VideoAssetInspectionRequestDTO{sessionID, path, true, true}.validated();
  });
}

TEST(VideoAssetInspectionRequest, isDecodedByItsKeys) {
  const auto decoded = json::decode<VideoAssetInspectionRequestDTO>(
      R"({"sessionId":"a","sourcePath":"/b","expectedSystemAudio":true,"expectedMicrophone":false})");
  EXPECT_EQ(decoded, (VideoAssetInspectionRequestDTO{"a", "/b", true, false}));
  EXPECT_THROW((void)json::decode<VideoAssetInspectionRequestDTO>(
                   R"({"sessionId":"a","sourcePath":"/b","expectedSystemAudio":true})"),
               json::DecodingFailure);
}

TEST(VideoAssetInspectionRequest, passesAnyMovieOfItsSession) {
  for (const std::string name : {"recording.mp4", "screen.MP4", "a b.Mp4"}) {
    const VideoAssetInspectionRequestDTO request{session, "/recordings/" + session + "/" + name, true, false};
    const auto validated = request.validated();
    EXPECT_EQ(validated.request, request);
    EXPECT_EQ(validated.sourceURL, request.sourcePath);
  }
}

TEST(VideoAssetInspectionRequest, refusesASessionThatIsNoUuid) {
  EXPECT_EQ(failureOfRequest("", "/recordings//recording.mp4"), invalidSessionID);
  EXPECT_EQ(failureOfRequest("abc", "/recordings/abc/recording.mp4"), invalidSessionID);
}

TEST(VideoAssetInspectionRequest, refusesAPathElsewhere) {
  const std::string paths[] = {"",
                               session + "/recording.mp4",
                               "/recordings/" + session + "/recording.mov",
                               "/recordings/" + session + "/recording",
                               "/recordings/" + session + "/.mp4",
                               "/recordings/recording.mp4",
                               "/recordings/" + session + "/segments/recording.mp4",
                               "/recordings/0a6b3c1e-58e4-4bc0-9c5b-3e0b40b51e2f/recording.mp4",
                               "/recordings/" + session + "/../" + session + "/recording.mp4",
                               "/recording.mp4"};
  for (const std::string& path : paths)
    EXPECT_EQ(failureOfRequest(session, path), invalidSourcePath) << path;
}

TEST(VideoAssetInspectionRequest, saysWhatWasWrong) {
  EXPECT_EQ(messageOf(invalidEncoding), "The video inspection request could not be decoded.");
  EXPECT_EQ(messageOf(invalidSessionID), "The video edit session identifier is invalid.");
  EXPECT_EQ(messageOf(invalidSourcePath), "The video edit source path is invalid.");
}

} // namespace
} // namespace tessarin
