#include "narration/AudioWaveformModels.hpp"

#include "model/MediaErrors.hpp"
#include "support/FailureOf.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

using enum AudioWaveformRequestError;

const std::string session = "0A6B3C1E-58E4-4BC0-9C5B-3E0B40B51E2F";

AudioWaveformRequestDTO request() {
  return {session, "/recordings/" + session + "/recording.mp4", 64};
}

std::optional<AudioWaveformRequestError> failureOfRequest(const AudioWaveformRequestDTO& it) {
  return failureOf<AudioWaveformRequestError>([&] { (void)it.validated(); });
}

TEST(AudioWaveformRequest, isDecodedByItsKeys) {
  const auto decoded = json::decode<AudioWaveformRequestDTO>(
      R"({"sessionId":"a","sourcePath":"/b","sampleCount":7,"more":1})");
  EXPECT_EQ(decoded, (AudioWaveformRequestDTO{"a", "/b", 7}));
  EXPECT_THROW((void)json::decode<AudioWaveformRequestDTO>(R"({"sessionId":"a","sourcePath":"/b"})"),
               json::DecodingFailure);
}

TEST(AudioWaveformRequest, passesWithinItsBounds) {
  for (const std::int64_t count : {64, 65, 2047, 2048}) {
    auto it = request();
    it.sampleCount = count;
    const auto validated = it.validated();
    EXPECT_EQ(validated.sourcePath, it.sourcePath);
    EXPECT_EQ(validated.sampleCount, static_cast<std::size_t>(count));
  }
}

TEST(AudioWaveformRequest, refusesAnotherNumberOfSlices) {
  for (const std::int64_t count : {63L, 2049L, 0L, -64L, INT64_MAX, INT64_MIN}) {
    auto it = request();
    it.sampleCount = count;
    EXPECT_EQ(failureOfRequest(it), invalidSampleCount) << count;
  }
}

TEST(AudioWaveformRequest, refusesAPathThatIsNotTheSessionsRecording) {
  const std::string paths[] = {
      "",
      "recording.mp4",
      session + "/recording.mp4",
      "/recordings/" + session + "/recording.mov",
      "/recordings/" + session + "/Recording.mp4",
      "/recordings/" + session + "/screen.mp4",
      "/recordings/other/recording.mp4",
      "/recordings/0a6b3c1e-58e4-4bc0-9c5b-3e0b40b51e2f/recording.mp4",
      "/recordings/" + session + "/../" + session + "/recording.mp4",
      "/recordings/" + session,
      "/recording.mp4",
  };
  for (const std::string& path : paths) {
    auto it = request();
    it.sourcePath = path;
    EXPECT_EQ(failureOfRequest(it), invalidSourcePath) << path;
  }
}

TEST(AudioWaveformRequest, looksAtTheSessionFirstAndAtThePathLast) {
  EXPECT_EQ(failureOfRequest({"x", "", 0}), invalidSessionID);
  EXPECT_EQ(failureOfRequest({session, "", 0}), invalidSampleCount);
  EXPECT_EQ(failureOfRequest({session, "", 64}), invalidSourcePath);
}

TEST(AudioWaveformRequest, saysWhatWasWrong) {
  EXPECT_EQ(messageOf(invalidEncoding), "The audio waveform request could not be decoded.");
  EXPECT_EQ(messageOf(invalidSessionID), "The video edit session identifier is invalid.");
  EXPECT_EQ(messageOf(invalidSourcePath), "The audio waveform source path is invalid.");
  EXPECT_EQ(messageOf(invalidSampleCount), "The requested audio waveform resolution is invalid.");
}

} // namespace
} // namespace tessarin
