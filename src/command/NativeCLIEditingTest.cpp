#include "support/CommandLineRig.hpp"
#include "support/EditProjects.hpp"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

namespace tessarin {
namespace {

using testing::ElementsAre;
namespace fs = std::filesystem;

const std::string fileName = ".tessarin-edit-request-7F0A2C1B-91D3-4A55-8E62-0B1C2D3E4F50.json";

class NativeCLIEditingTest : public CommandLineRig {
 protected:
  // A recording of ten seconds in a session's directory, and what an export of it is found to be.
  void SetUp() override {
    request = editRequest(directory.path());
    fs::create_directories(fs::path(request.outputPath).parent_path());
    std::ofstream(request.project.source.path) << "recording";
    MediaAsset& asset = assets.files[request.project.source.path].asset;
    asset.isComposable = true;
    asset.duration = MediaTime(10, 1);
    asset.videoTracks.emplace_back();
    asset.videoTracks[0].naturalWidth = 640;
    asset.videoTracks[0].naturalHeight = 360;
    asset.videoTracks[0].subtypes = {"avc1"};
    asset.audioTracks.resize(2, {{}, {"aac "}});
    assets.files[request.project.source.path].sounds = {{{{0.5F}, MediaTime::zero()}},
                                                        {{{-0.25F}, MediaTime(9, 1)}}};
    movies.work = [this](const MovieExport& movie, const std::function<void(int)>& progress) {
      std::ofstream(movie.outputPath) << "movie";
      assets.files[movie.outputPath] = assets.files[movie.composition.sourcePath];
      clock.advance(std::chrono::seconds(2));
      progress(500);
    };
  }

  std::string inFile() const {
    const fs::path path = fs::path(request.outputPath).parent_path() / fileName;
    std::ofstream(path) << json::encode(request);
    return path;
  }

  VideoEditExportRequestDTO request;
};

TEST_F(NativeCLIEditingTest, InspectEditSourceTellsWhatTheRecordingHolds) {
  const std::string& path = request.project.source.path;
  EXPECT_EQ(runWith("inspect-edit-source", R"({"sessionId":")" + editSession + R"(","sourcePath":")" + path +
                                               R"(","expectedSystemAudio":true,"expectedMicrophone":true})"),
            success(R"({"audioTracks":[{"role":"system","sourceTrackIndex":0},)"
                    R"({"role":"microphone","sourceTrackIndex":1}],"durationMs":10000,"heightPixels":360,)"
                    R"("sourcePath":")" +
                    path + R"(","widthPixels":640})"));
}

TEST_F(NativeCLIEditingTest, InspectEditSourceTellsRequestsFromRecordings) {
  const auto ask = [&](const std::string& session, const std::string& path, bool microphone) {
    return runWith("inspect-edit-source", R"({"sessionId":")" + session + R"(","sourcePath":")" + path +
                                              R"(","expectedSystemAudio":true,"expectedMicrophone":)" +
                                              (microphone ? "true" : "false") + "}");
  };
  EXPECT_EQ(runWith("inspect-edit-source", "{}"),
            failure("invalidRequest", "The video inspection request could not be decoded.", 2));
  EXPECT_EQ(ask("x", request.project.source.path, true),
            failure("invalidRequest", "The video edit session identifier is invalid.", 2));
  EXPECT_EQ(ask(editSession, "/recording.mp4", true),
            failure("invalidRequest", "The video edit source path is invalid.", 2));
  EXPECT_EQ(ask(editSession, "/" + editSession + "/none.mp4", true),
            failure("outputFailed", "The recording cannot be opened for video editing.", 1));
  EXPECT_EQ(ask(editSession, request.project.source.path, false),
            failure("outputFailed", "The recording audio tracks do not match its saved settings.", 1));
}

TEST_F(NativeCLIEditingTest, AudioWaveformTellsTheLoudnessOfEachSlice) {
  const std::string& path = request.project.source.path;
  const auto ask = [&](int count) {
    return runWith("audio-waveform", R"({"sessionId":")" + editSession + R"(","sourcePath":")" + path +
                                         R"(","sampleCount":)" + std::to_string(count) + "}");
  };
  std::string amplitudes = "0.5";
  for (int slice = 1; slice < 64; ++slice)
    amplitudes += slice == 57 ? ",0.25" : ",0";
  EXPECT_EQ(ask(64), success(R"({"amplitudes":[)" + amplitudes + R"(],"sampleCount":64,"sourcePath":")" +
                             path + R"("})"));
  EXPECT_EQ(ask(63), failure("invalidRequest", "The requested audio waveform resolution is invalid.", 2));
  EXPECT_EQ(runWith("audio-waveform", "1"),
            failure("invalidRequest", "The audio waveform request could not be decoded.", 2));
  assets.files[path].asset.duration = {};
  EXPECT_EQ(ask(64), failure("outputFailed", "The recording audio waveform could not be read.", 1));
}

TEST_F(NativeCLIEditingTest, ExportEditAnswersTheSameForARequestInAFile) {
  const NativeExecution done = success(R"({"durationMs":10000,"heightPixels":360,"outputPath":")" +
                                       request.outputPath + R"(","sizeBytes":5,"widthPixels":640})");
  EXPECT_EQ(runWith("export-edit", json::encode(request)), done);
  fs::remove(request.outputPath);
  EXPECT_EQ(run({"export-edit", "--request-file", inFile()}), done);
  EXPECT_THAT(diagnostics, ElementsAre("tessarin-native export-progress permille=500 elapsedMs=2000",
                                       "tessarin-native export-progress permille=500 elapsedMs=2000"));
  ASSERT_EQ(movies.movies.size(), 2U);
  EXPECT_EQ(movies.movies[0].composition.sourcePath, movies.movies[1].composition.sourcePath);
}

TEST_F(NativeCLIEditingTest, ExportEditTellsRequestsFromFailedWork) {
  const NativeExecution invalid = failure("invalidRequest", "The video edit export request is invalid.", 2);
  const NativeExecution failed = failure("editExportFailed", "The edited video could not be exported.", 1);
  EXPECT_EQ(runWith("export-edit", "{}"), invalid);
  EXPECT_EQ(run({"export-edit", "--request-file", "/elsewhere/request.json"}), invalid);
  auto broken = request;
  broken.project.crop.width = 2;
  EXPECT_EQ(runWith("export-edit", json::encode(broken)), invalid);
  movies.work = [](const MovieExport&, const std::function<void(int)>&) {
    throw MovieEditingFailure(MovieEditingError::notWritten);
  };
  EXPECT_EQ(runWith("export-edit", json::encode(request)), failed);
  assets.files.clear();
  EXPECT_EQ(runWith("export-edit", json::encode(request)), failed);
}

TEST_F(NativeCLIEditingTest, ExportEditFailsAsUnexpectedWhereFramesWouldBePainted) {
  request.project.crop = {0, 0, 0.5, 0.5};
  EXPECT_EQ(runWith("export-edit", json::encode(request)),
            failure("internalError", "The native helper encountered an unexpected error.", 1));
}

TEST_F(NativeCLIEditingTest, ExportEditHandsOnThatItIsToEnd) {
  stop.request_stop();
  movies.work = [](const MovieExport&, const std::function<void(int)>&) {
    throw MovieEditingFailure(MovieEditingError::cancelled);
  };
  EXPECT_EQ(runWith("export-edit", json::encode(request)),
            failure("editExportFailed", "The edited video could not be exported.", 1));
  EXPECT_TRUE(movies.wasToldToStop);
}

TEST_F(NativeCLIEditingTest, CommandsWithARequestFileReadItFirst) {
  const NativeExecution invalid = failure("invalidRequest", "The video edit export request is invalid.", 2);
  const NativeExecution unexpected =
      failure("internalError", "The native helper encountered an unexpected error.", 1);
  const auto narration = [this](const std::string& path) {
    return run({"prepare-narration", "--request-file", path});
  };
  const auto captions = [this](const std::string& path) {
    return run({"transcribe-captions", "--request-file", path, "--language", "en-US", "--audio", "mixed"});
  };
  EXPECT_EQ(narration("/request.json"), invalid);
  EXPECT_EQ(captions("/request.json"), invalid);
  // Their services are built later.
  EXPECT_EQ(narration(inFile()), unexpected);
  EXPECT_EQ(captions(inFile()), unexpected);
}

} // namespace
} // namespace tessarin
