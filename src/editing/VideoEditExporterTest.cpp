#include "editing/VideoEditExporter.hpp"

#include "base/SafeFile.hpp"
#include "base/Text.hpp"
#include "model/MediaErrors.hpp"
#include "support/EditProjects.hpp"
#include "support/FailureOf.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/ScriptedMovieEditing.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace tessarin {
namespace {

using enum VideoEditExportError;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

MediaAsset asset(double width, double height, std::size_t audioTrackCount) {
  MediaAsset result;
  result.isComposable = true;
  result.duration = MediaTime(10, 1);
  result.videoTracks.emplace_back();
  result.videoTracks[0].naturalWidth = width;
  result.videoTracks[0].naturalHeight = height;
  result.videoTracks[0].nominalFrameRate = 30;
  result.videoTracks[0].subtypes = {"avc1"};
  result.audioTracks.resize(audioTrackCount);
  for (AssetAudioTrack& track : result.audioTracks)
    track.subtypes = {"aac "};
  return result;
}

// A real directory with a recording of some bytes; what the media are is scripted.
class VideoEditExporterTest : public testing::Test {
 protected:
  TemporaryDirectory root;
  VideoEditExportRequestDTO request = editRequest(root.path());
  ScriptedMediaAssets assets;
  ScriptedMovieExporter movies;
  FaultyFileSystem files{machineFileSystem()};
  MediaAsset made = asset(640, 360, 1); // what is found in the finished file
  std::string bytes = "movie";
  std::function<ValidatedVideoEditExportRequest(const ValidatedVideoEditExportRequest&)> prepareNarration;
  std::string temporary; // the path that was written last

  void SetUp() override {
    fs::create_directories(fs::path(request.outputPath).parent_path());
    std::ofstream(request.project.source.path) << "recording";
    assets.files[request.project.source.path].asset = asset(640, 360, 2);
    movies.work = [this](const MovieExport& movie, const std::function<void(int)>&) {
      temporary = movie.outputPath;
      std::ofstream(movie.outputPath) << bytes;
      assets.files[movie.outputPath].asset = made;
    };
  }

  VideoEditExportPayload exported() {
    return VideoEditExporter({files, assets, movies, prepareNarration, [](int) {}, {}})
        .exportVideo(request.validated());
  }
  std::optional<VideoEditExportError> failure() {
    return failureOf<VideoEditExportError>([this] { (void)exported(); });
  }
  std::vector<std::string> outputs() const {
    std::vector<std::string> names;
    for (const auto& each : fs::directory_iterator(fs::path(request.outputPath).parent_path()))
      names.push_back(each.path().filename());
    return names;
  }
  void addClip(std::int64_t startMs, std::int64_t endMs, double rate, double volume,
               std::vector<VideoEditAudioRole> mutedRoles) {
    auto& clips = request.project.clips;
    clips.push_back({"clip-" + std::to_string(clips.size() + 1), startMs, endMs, rate, volume, mutedRoles});
  }
};

TEST_F(VideoEditExporterTest, writesBesideTheOutputAndGivesItItsNameAtTheEnd) {
  bytes = "123456789";
  made.duration = MediaTime(10'000'499, 1'000'000);
  EXPECT_EQ(exported(), (VideoEditExportPayload{request.outputPath, 10'000, 640, 360, 9}));
  EXPECT_THAT(outputs(), ElementsAre("edited.mp4"));
  EXPECT_EQ(readWholeFile(machineFileSystem(), request.outputPath, 100), "123456789");
  EXPECT_EQ(directoryOf(temporary), directoryOf(request.outputPath));
}

TEST_F(VideoEditExporterTest, namesTheTemporaryFileAfterTheOutput) {
  const std::string first = VideoEditExporter::temporaryOutputURL("/a/exports/my.film.mp4");
  const std::string head = "/a/exports/.tessarin-export-my.film-";
  ASSERT_TRUE(first.starts_with(head)) << first;
  ASSERT_TRUE(first.ends_with(".mp4")) << first;
  EXPECT_TRUE(isUuid(first.substr(head.size(), first.size() - head.size() - 4))) << first;
  EXPECT_NE(first, VideoEditExporter::temporaryOutputURL("/a/exports/my.film.mp4"));
}

TEST_F(VideoEditExporterTest, leavesAPureCutAsItIsCoded) {
  request.project.clips.clear();
  addClip(0, 1000, 1, 1, {});
  addClip(2000, 3500, 1, 1, {});
  (void)exported();
  ASSERT_EQ(movies.movies.size(), 1U);
  const MovieExport& movie = movies.movies[0];
  EXPECT_TRUE(movie.isPassthrough);
  EXPECT_FALSE(movie.composited);
  EXPECT_EQ(movie.composition.sourcePath, request.project.source.path);
  ASSERT_EQ(movie.composition.segments.size(), 2U);
  const auto ms = MediaTime::milliseconds;
  EXPECT_EQ(movie.composition.segments[0].source, (MediaTimeRange{ms(0), ms(1000)}));
  EXPECT_EQ(movie.composition.segments[0].output, (MediaTimeRange{ms(0), ms(1000)}));
  EXPECT_EQ(movie.composition.segments[1].source, (MediaTimeRange{ms(2000), ms(1500)}));
  EXPECT_EQ(movie.composition.segments[1].output, (MediaTimeRange{ms(1000), ms(1500)}));
}

TEST_F(VideoEditExporterTest, laysClipsAtTheirSpeedsAndVolumes) {
  request.project.clips.clear();
  addClip(0, 1000, 2, 1, {});
  addClip(2000, 3001, 1.5, 0.5, {VideoEditAudioRole::microphone});
  (void)exported();
  const MovieExport& movie = movies.movies.at(0);
  EXPECT_FALSE(movie.isPassthrough);
  const auto ms = MediaTime::milliseconds;
  EXPECT_EQ(movie.composition.segments.at(0).output, (MediaTimeRange{ms(0), ms(500)}));
  EXPECT_EQ(movie.composition.segments.at(1).output, (MediaTimeRange{ms(500), ms(667)}));
  ASSERT_EQ(movie.composition.audioLanes.size(), 2U);
  EXPECT_EQ(movie.composition.audioLanes[0].sourceTrackIndex, 0U);
  EXPECT_THAT(movie.composition.audioLanes[0].volumes, ElementsAre(1.0F, 0.5F));
  EXPECT_EQ(movie.composition.audioLanes[1].sourceTrackIndex, 1U);
  EXPECT_THAT(movie.composition.audioLanes[1].volumes, ElementsAre(1.0F, 0.0F));
}

TEST_F(VideoEditExporterTest, codesAnewForAMutedRoleAlone) {
  request.project.clips[0].mutedRoles = {VideoEditAudioRole::system};
  (void)exported();
  EXPECT_FALSE(movies.movies.at(0).isPassthrough);
}

TEST_F(VideoEditExporterTest, codesInTheRecordingsCodecAndAtSixtyFramesForAFastOne) {
  const struct {
    double rate;
    int framesPerSecond;
  } cases[] = {{30, 30}, {48, 30}, {49.99, 30}, {50, 60}, {59.94, 60}, {60, 60}, {120, 60}};
  for (const auto& it : cases) {
    assets.files[request.project.source.path].asset.videoTracks[0].nominalFrameRate = it.rate;
    (void)exported();
    EXPECT_EQ(movies.movies.back().frameDuration, MediaTime(1, it.framesPerSecond)) << it.rate;
    EXPECT_EQ(movies.movies.back().codec, RecordingCodec::h264);
    fs::remove(request.outputPath);
  }
  request.project.source.codec = RecordingCodec::hevc;
  made.videoTracks[0].subtypes = {"hvc1"};
  (void)exported();
  EXPECT_EQ(movies.movies.back().codec, RecordingCodec::hevc);
}

TEST_F(VideoEditExporterTest, expectsTheSizeAsItIsShown) {
  auto& video = assets.files[request.project.source.path].asset.videoTracks[0];
  video.preferredTransform = {0, 1, -1, 0, 360, 0};
  request.project.source.widthPixels = 360;
  request.project.source.heightPixels = 640;
  EXPECT_EQ(failure(), exportFailed);
  made = asset(360, 640, 0);
  const auto upright = exported();
  EXPECT_EQ(upright.widthPixels, 360);
  EXPECT_EQ(upright.heightPixels, 640);
  fs::remove(request.outputPath);
  made = asset(640, 360, 0);
  made.videoTracks[0].preferredTransform = video.preferredTransform;
  EXPECT_EQ(exported().heightPixels, 640);
}

TEST_F(VideoEditExporterTest, beginsNothingWithoutASourceOrWhereTheOutputIs) {
  std::ofstream(request.outputPath) << "mine";
  EXPECT_EQ(failure(), invalidRequest);
  EXPECT_EQ(readWholeFile(machineFileSystem(), request.outputPath, 100), "mine");
  fs::remove(request.outputPath);

  const std::string& source = request.project.source.path;
  fs::resize_file(source, 0);
  EXPECT_EQ(failure(), invalidRequest);
  fs::remove(source);
  EXPECT_EQ(failure(), invalidRequest);
  fs::create_directory(source);
  EXPECT_EQ(failure(), invalidRequest);
  fs::remove(source);
  std::ofstream(source + ".there") << "recording";
  fs::create_symlink(source + ".there", source);
  EXPECT_EQ(failure(), invalidRequest);
  fs::remove(source);
  std::ofstream(source) << "recording";

  const fs::path exports = fs::path(request.outputPath).parent_path();
  fs::remove(exports);
  EXPECT_EQ(failure(), invalidRequest);
  std::ofstream(exports) << "a file";
  EXPECT_EQ(failure(), invalidRequest);
  fs::remove(exports);
  fs::create_directories(root.path() + "/elsewhere");
  fs::create_directory_symlink(root.path() + "/elsewhere", exports);
  EXPECT_EQ(exported().outputPath, request.outputPath);
  EXPECT_EQ(movies.movies.size(), 1U);
}

TEST_F(VideoEditExporterTest, refusesANameThatIsTooLong) {
  request.outputPath = directoryOf(request.outputPath) + "/" + std::string(251, 'n') + ".mp4";
  EXPECT_EQ(failure(), invalidRequest);
  EXPECT_THAT(movies.movies, IsEmpty());
}

TEST_F(VideoEditExporterTest, refusesMediaThatCannotBeEdited) {
  MediaAsset& source = assets.files[request.project.source.path].asset;
  const MediaAsset good = source;
  source.isComposable = false;
  EXPECT_EQ(failure(), invalidMedia);
  for (const MediaTime duration : {MediaTime(), MediaTime::zero()}) {
    source = good;
    source.duration = duration;
    EXPECT_EQ(failure(), invalidMedia);
  }
  source = good;
  source.videoTracks.clear();
  EXPECT_EQ(failure(), invalidMedia);
  source = good;
  source.audioTracks.resize(1);
  EXPECT_EQ(failure(), invalidMedia);
  source = good;
  request.project.source.audioTracks[0].sourceTrackIndex = -1;
  EXPECT_EQ(failure(), invalidMedia);
  request.project.source.audioTracks[0].sourceTrackIndex = 0;
  source.videoTracks[0].naturalWidth = 0;
  EXPECT_EQ(failure(), invalidCrop);
  assets.files.erase(request.project.source.path);
  EXPECT_EQ(failure(), invalidMedia);
  EXPECT_THAT(outputs(), IsEmpty());
  EXPECT_THAT(movies.movies, IsEmpty());
}

TEST_F(VideoEditExporterTest, opensACameraThatShows) {
  request = editRequestWithCamera(root.path());
  EXPECT_EQ(failure(), invalidMedia); // there is no such file
  request.project.camera->visible = false;
  EXPECT_EQ(exported().durationMs, 10'000);
  EXPECT_TRUE(movies.movies.at(0).isPassthrough);
}

TEST_F(VideoEditExporterTest, refusesFramesThatNothingPaints) {
  request = editRequestWithCamera(root.path());
  assets.files[request.project.source.camera->path].asset = asset(320, 240, 0);
  try {
    (void)exported();
    FAIL();
  } catch (const Failure<VideoEditExportError>&) {
    FAIL() << "blames the request";
  } catch (const std::exception& error) {
    EXPECT_STREQ(error.what(), "nothing paints the frames of this project");
  }
  EXPECT_THAT(outputs(), IsEmpty());
  EXPECT_THAT(movies.movies, IsEmpty());
}

TEST_F(VideoEditExporterTest, exportsFromThePreparedRecording) {
  request.project.narrationAudio = {0.5};
  const std::string prepared = root.path() + "/prepared.mp4";
  assets.files[prepared].asset = asset(640, 360, 2);
  prepareNarration = [&](const ValidatedVideoEditExportRequest& it) {
    ValidatedVideoEditExportRequest result = it;
    result.sourceURL = prepared;
    return result;
  };
  EXPECT_EQ(exported().outputPath, request.outputPath);
  EXPECT_EQ(movies.movies.at(0).composition.sourcePath, prepared);

  fs::remove(request.outputPath);
  prepareNarration = [](const auto&) -> ValidatedVideoEditExportRequest {
    fail(NarrationAudioError::voiceProcessing);
  };
  EXPECT_EQ(failureOf<NarrationAudioError>([this] { (void)exported(); }),
            NarrationAudioError::voiceProcessing);
  EXPECT_THAT(outputs(), IsEmpty());
}

TEST_F(VideoEditExporterTest, tellsLayingFromWriting) {
  const struct {
    MovieEditingError error;
    VideoEditExportError told;
  } cases[] = {{MovieEditingError::unavailable, exportFailed},
               {MovieEditingError::unreadable, exportFailed},
               {MovieEditingError::notComposable, compositionFailed},
               {MovieEditingError::notWritten, exportFailed},
               {MovieEditingError::cancelled, exportFailed}};
  for (const auto& it : cases) {
    movies.work = [&](const MovieExport& movie, const std::function<void(int)>&) {
      std::ofstream(movie.outputPath) << "half";
      throw MovieEditingFailure(it.error);
    };
    EXPECT_EQ(failure(), it.told);
    EXPECT_THAT(outputs(), IsEmpty());
  }
}

TEST_F(VideoEditExporterTest, looksAtTheFinishedFileAsAStrangerWould) {
  const MediaAsset good = made;
  const std::vector<std::function<void(MediaAsset&)>> flaws = {
      [](MediaAsset& it) { it.duration = {}; },
      [](MediaAsset& it) { it.duration = MediaTime::zero(); },
      [](MediaAsset& it) { it.videoTracks.clear(); },
      [](MediaAsset& it) { it.videoTracks[0].naturalWidth = 638; },
      [](MediaAsset& it) { it.videoTracks[0].naturalHeight = 361; },
      [](MediaAsset& it) { it.videoTracks[0].preferredTransform = {0, 1, -1, 0, 0, 0}; },
      [](MediaAsset& it) { it.videoTracks[0].subtypes = {"hvc1"}; },
      [](MediaAsset& it) {
        it.videoTracks[0].subtypes = {"avc1", "avc3"};
      },
      [](MediaAsset& it) { it.audioTracks[0].subtypes = {"mp3 "}; },
      [](MediaAsset& it) {
        it.audioTracks[0].subtypes = {"aac ", "ac-3"};
      },
  };
  request.project.source.codec = RecordingCodec::h264;
  for (const auto& flaw : flaws) {
    made = good;
    flaw(made);
    EXPECT_EQ(failure(), exportFailed);
    EXPECT_THAT(outputs(), IsEmpty());
  }
  made = good;
  bytes = "";
  EXPECT_EQ(failure(), exportFailed);
  movies.work = [](const MovieExport&, const std::function<void(int)>&) {};
  EXPECT_EQ(failure(), exportFailed);
  EXPECT_THAT(outputs(), IsEmpty());
}

TEST_F(VideoEditExporterTest, takesAnyAacAndNoSoundAtAll) {
  for (const char* subtype : {"aac ", "aach", "aacp"}) {
    made.audioTracks[0].subtypes = {subtype};
    EXPECT_EQ(exported().sizeBytes, 5) << subtype;
    fs::remove(request.outputPath);
  }
  made.audioTracks.clear();
  EXPECT_EQ(exported().sizeBytes, 5);
}

TEST_F(VideoEditExporterTest, expectsNoCodecThatTheProjectDoesNotName) {
  made.videoTracks[0].subtypes = {"hvc1"};
  EXPECT_EQ(exported().sizeBytes, 5);
}

TEST_F(VideoEditExporterTest, neverReplacesWhatAppearedMeanwhile) {
  movies.work = [this](const MovieExport& movie, const std::function<void(int)>&) {
    std::ofstream(movie.outputPath) << bytes;
    assets.files[movie.outputPath].asset = made;
    std::ofstream(request.outputPath) << "mine";
  };
  EXPECT_THROW((void)exported(), FileFailure);
  EXPECT_THAT(outputs(), ElementsAre("edited.mp4"));
  EXPECT_EQ(readWholeFile(machineFileSystem(), request.outputPath, 100), "mine");
}

} // namespace
} // namespace tessarin
