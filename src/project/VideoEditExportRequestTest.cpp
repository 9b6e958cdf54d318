#include "project/VideoEditExportRequest.hpp"

#include "model/MediaErrors.hpp"
#include "project/EditPaths.hpp"
#include "project/EditProjectTesting.hpp"
#include "support/FailureOf.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

using namespace editTesting;
using Outcome = std::optional<VideoEditExportError>;

constexpr Outcome passes = std::nullopt;
constexpr Outcome fails = VideoEditExportError::invalidRequest;

Outcome outcomeOf(const VideoEditExportRequestDTO& request) {
  return failureOf<VideoEditExportError>([&] { (void)request.validated(); });
}

TEST(VideoEditExportRequest, DecodesWhatItEncodes) {
  const std::string json = json::encode(request());
  EXPECT_EQ(json, R"({"outputPath":")" + outputPath + R"(","project":)" + json::encode(plainProject()) +
                      R"(,"sessionId":")" + sessionID + R"("})");
  EXPECT_EQ(json::decode<VideoEditExportRequestDTO>(std::string_view(json)), request());
}

TEST(VideoEditExportRequest, NeedsAllItsKeys) {
  const std::pair<std::string, const char*> refusals[] = {
      {"{}", "missing key: sessionId"},
      {R"({"sessionID":"s"})", "missing key: sessionId"},
      {R"({"sessionId":"s"})", "missing key: project"},
      {R"({"sessionId":"s","project":{}})", "project: missing key: schemaVersion"},
      {R"({"sessionId":"s","project":)" + json::encode(plainProject()) + "}", "missing key: outputPath"}};
  for (const auto& [json, reason] : refusals) {
    try {
      (void)json::decode<VideoEditExportRequestDTO>(std::string_view(json));
      ADD_FAILURE() << json;
    } catch (const json::DecodingFailure& failure) {
      EXPECT_STREQ(failure.what(), reason);
    }
  }
}

TEST(VideoEditExportRequest, EncodesWhatAnExportAnswers) {
  EXPECT_EQ(
      json::encode(VideoEditExportPayload{"/a/b.mp4", 1500, 1920, 1080, 123'456}),
      R"({"durationMs":1500,"heightPixels":1080,"outputPath":"/a/b.mp4","sizeBytes":123456,"widthPixels":1920})");
}

TEST(VideoEditExportRequest, YieldsItsFiles) {
  const VideoEditExportRequestDTO plain = request();
  EXPECT_EQ(plain.validated(),
            (ValidatedVideoEditExportRequest{plain, sourcePath, std::nullopt, outputPath}));
  const VideoEditExportRequestDTO camera = request(cameraProject());
  EXPECT_EQ(camera.validated(),
            (ValidatedVideoEditExportRequest{camera, sourcePath, cameraPath, outputPath}));
}

// As a session of this name would be.
VideoEditExportRequestDTO requestOf(const std::string& id) {
  VideoEditExportRequestDTO changed = request();
  changed.sessionID = id;
  changed.project.source.sessionID = id;
  changed.project.source.path = "/rec/" + id + "/recording.mp4";
  changed.outputPath = "/rec/" + id + "/exports/edit.mp4";
  return changed;
}

TEST(VideoEditExportRequest, NeedsAUuid) {
  const std::pair<std::string, Outcome> cases[] = {{"0b8c6a52-3c5a-4f1b-9e43-1f2d3c4b5a69", passes},
                                                   {"0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69", passes},
                                                   {"", fails},
                                                   {"session", fails},
                                                   {"0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A6", fails},
                                                   {"0B8C6A523C5A4F1B9E431F2D3C4B5A69", fails},
                                                   {"{0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69}", fails}};
  for (const auto& [id, outcome] : cases)
    EXPECT_EQ(outcomeOf(requestOf(id)), outcome) << id;
}

TEST(VideoEditExportRequest, NeedsARecordingInItsSession) {
  const std::pair<std::string, Outcome> cases[] = {
      {sourcePath, passes},
      {session + "/screen.mp4", passes},
      {session + "/screen.MP4", passes},
      {"/" + sessionID + "/recording.mp4", passes},
      {"//rec//" + sessionID + "//recording.mp4", passes},
      {"/elsewhere/" + sessionID + "/recording.mp4", passes},
      {"", fails},
      {"/", fails},
      {sourcePath.substr(1), fails},
      {session + "/recording.mov", fails},
      {session + "/recording", fails},
      {session + "/.mp4", fails},
      {session + "/recording.mp4.part", fails},
      {session + "/segments/recording.mp4", fails},
      {"/rec/recording.mp4", fails},
      {"/rec/x" + sessionID + "/recording.mp4", fails},
      {"/rec/0b8c6a52-3c5a-4f1b-9e43-1f2d3c4b5a69/recording.mp4", fails},
      {"/rec/../rec/" + sessionID + "/recording.mp4", fails},
      {session + "/x/../recording.mp4", fails},
      {session + "/..", fails},
      {session + std::string("/record\0ing.mp4", 15), fails},
  };
  for (const auto& [path, outcome] : cases) {
    VideoEditExportRequestDTO changed = request();
    changed.project.source.path = path;
    EXPECT_EQ(outcomeOf(changed), outcome) << path;
  }
}

TEST(VideoEditExportRequest, NeedsAnOutputAmongTheExports) {
  const std::pair<std::string, Outcome> cases[] = {
      {outputPath, passes},
      {session + "/exports/EDIT.Mp4", passes},
      {session + "//exports/edit.mp4", passes},
      {"/elsewhere/" + sessionID + "/exports/edit.mp4", passes},
      {"", fails},
      {outputPath.substr(1), fails},
      {session + "/exports/edit.gif", fails},
      {session + "/exports/mp4", fails},
      {session + "/edit.mp4", fails},
      {sourcePath, fails},
      {session + "/Exports/edit.mp4", fails},
      {session + "/exports/exports/edit.mp4", fails},
      {session + "/exports/more/edit.mp4", fails},
      {"/rec/exports/edit.mp4", fails},
      {"/exports/edit.mp4", fails},
      {"/rec/0b8c6a52-3c5a-4f1b-9e43-1f2d3c4b5a69/exports/edit.mp4", fails},
      {session + "/exports/../exports/edit.mp4", fails},
      {session + std::string("/exports/ed\0it.mp4", 18), fails},
  };
  for (const auto& [path, outcome] : cases) {
    VideoEditExportRequestDTO changed = request();
    changed.outputPath = path;
    EXPECT_EQ(outcomeOf(changed), outcome) << path;
  }
}

TEST(VideoEditExportRequest, NeedsTheCameraBesideTheRecording) {
  const std::pair<std::string, Outcome> cases[] = {
      {cameraPath, passes},
      {session + "//camera.mp4", passes},
      {"", fails},
      {cameraPath.substr(1), fails},
      {session + "/camera.MP4", fails},
      {session + "/camera2.mp4", fails},
      {session + "/exports/camera.mp4", fails},
      {"/elsewhere/" + sessionID + "/camera.mp4", fails},
      {"/rec/../rec/" + sessionID + "/camera.mp4", fails},
  };
  for (const auto& [path, outcome] : cases) {
    VideoEditExportRequestDTO changed = request(cameraProject());
    changed.project.source.camera->path = path;
    EXPECT_EQ(outcomeOf(changed), outcome) << path;
  }
}

TEST(VideoEditExportRequest, ChecksPathsBeforeTheProject) {
  VideoEditExportRequestDTO changed = request();
  changed.project.schemaVersion = 1;
  EXPECT_EQ(outcomeOf(changed), VideoEditExportError::invalidProject);
  changed.outputPath = "edit.mp4";
  EXPECT_EQ(outcomeOf(changed), VideoEditExportError::invalidRequest);
  changed = request();
  changed.project.crop.width = 2;
  EXPECT_EQ(outcomeOf(changed), VideoEditExportError::invalidCrop);
  changed.sessionID = "session";
  EXPECT_EQ(outcomeOf(changed), VideoEditExportError::invalidRequest);
}

TEST(VideoEditExportRequest, HoldsTheProjectToItsSession) {
  VideoEditExportRequestDTO changed = request();
  changed.project.source.sessionID = "0B8C6A52-3C5A-4F1B-9E43-000000000000";
  EXPECT_EQ(outcomeOf(changed), VideoEditExportError::invalidProject);
}

TEST(EditPaths, CompareDirectoriesByTheirComponents) {
  const struct {
    const char* a;
    const char* b;
    bool haveSameParent;
    bool areSame;
  } cases[] = {
      {"/a/b", "/a/b", true, true},  {"/a/b", "/a/c", true, false},    {"/a/b", "//a///c", true, false},
      {"/a/b/", "/a/b", true, true}, {"/a", "/b", true, false},        {"/a/b", "/b/b", false, false},
      {"a/b", "/a/b", false, false}, {"/a/b", "a/b", false, false},    {"a/b", "a/b", false, false},
      {"/", "/", false, true},       {"/a/./b", "/a/b", false, false}, {"", "", false, false},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(haveSameParent(each.a, each.b), each.haveSameParent) << each.a << " " << each.b;
    EXPECT_EQ(areSamePath(each.a, each.b), each.areSame) << each.a << " " << each.b;
  }
}

TEST(EditPaths, NameTheDirectoriesAbove) {
  EXPECT_EQ(nameAbove("/a/b/c", 1), "b");
  EXPECT_EQ(nameAbove("/a/b/c", 2), "a");
  EXPECT_EQ(nameAbove("/a/b/c", 3), "");
  EXPECT_EQ(nameAbove("//a//b/", 1), "a");
  EXPECT_EQ(nameAbove("", 1), "");
}

} // namespace
} // namespace tessarin
