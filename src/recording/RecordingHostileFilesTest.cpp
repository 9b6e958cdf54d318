// A session directory in which somebody has put other things than files where files belong: before a session,
// while it is paused, and before a recovery.

#include "support/HostileFiles.hpp"
#include "support/RecordingRecoveryRig.hpp"
#include "support/RecordingServiceTesting.hpp"

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using namespace tessarin::testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using Kind = HostileFiles::Kind;
using StoreError = RecordingSegmentStoreError;

// ---- The store of segments

class HostileStore : public ::testing::Test {
 protected:
  HostileStore() { std::filesystem::create_directory(session); }

  std::optional<StoreError> storeError() {
    return failureOf<StoreError>([&] { RecordingSegmentStore(files, sampleSessionID, session); });
  }
  // Of a finished segment with something hostile put at a name first.
  std::optional<StoreError> finishError(const HostileFiles::File& file, const std::string& name) {
    RecordingSegmentStore store(files, sampleSessionID, session);
    const PendingRecordingSegment pending = store.allocateNextSegment();
    directory.write(std::string(sampleSessionID) + "/segments/segment-0000.mp4", "bytes");
    file.put(session + "/" + name);
    return failureOf<StoreError>([&] { store.finalize(pending, 1, 5); });
  }
  void expectManifest() {
    const std::string path = session + "/native-manifest.json";
    ASSERT_EQ(PathState::of(path).type, std::filesystem::file_type::regular);
    const auto manifest = json::decode<NativeRecordingManifest>(readWholeFile(files, path, 10'000));
    EXPECT_EQ(manifest.segments.size(), 1u);
  }
  void startAnew() {
    std::filesystem::remove_all(session);
    std::filesystem::create_directory(session);
  }

  TemporaryDirectory directory;
  const std::string session = directory / sampleSessionID;
  FileSystem& files = machineFileSystem();
  HostileFiles hostile;
};

TEST_F(HostileStore, SegmentsLieInAFolderOfTheSession) {
  for (const HostileFiles::File& file : hostile.all()) {
    SCOPED_TRACE(file.name);
    file.put(session + "/segments");
    const PathState before = PathState::of(session + "/segments");
    const bool isFolder = file.kind == Kind::directory;
    EXPECT_EQ(storeError(), isFolder ? std::nullopt : std::optional(StoreError::filesystem));
    EXPECT_EQ(PathState::of(session + "/segments"), before);
    startAnew();
  }
  EXPECT_TRUE(hostile.isOutsideUntouched());
}

TEST_F(HostileStore, ATakenNameOfASegmentIsNotGivenOut) {
  for (const HostileFiles::File& file : hostile.all()) {
    SCOPED_TRACE(file.name);
    RecordingSegmentStore store(files, sampleSessionID, session);
    file.put(session + "/segments/segment-0000.mp4");
    EXPECT_EQ(failureOf<StoreError>([&] { store.allocateNextSegment(); }), StoreError::outputAlreadyExists);
    startAnew();
  }
  EXPECT_TRUE(hostile.isOutsideUntouched());
}

TEST_F(HostileStore, WhatIsInTheTemporaryManifestsPlaceIsReplacedAndNotWrittenInto) {
  for (const HostileFiles::File& file : hostile.all()) {
    SCOPED_TRACE(file.name);
    EXPECT_TRUE(endsInTime([&] {
      const std::optional<StoreError> error = finishError(file, "native-manifest.json.tmp");
      if (file.kind == Kind::directory) {
        EXPECT_EQ(error, StoreError::filesystem);
        EXPECT_TRUE(std::filesystem::exists(session + "/native-manifest.json.tmp/inside"));
        EXPECT_FALSE(std::filesystem::exists(session + "/native-manifest.json"));
      } else {
        EXPECT_EQ(error, std::nullopt);
        expectManifest();
      }
    }));
    startAnew();
  }
  EXPECT_TRUE(hostile.isOutsideUntouched());
}

TEST_F(HostileStore, ASecondNameOfAStrangersFileIsNotWrittenInto) {
  const HostileFiles::File secondName{"second name", Kind::regular, [&](const std::string& path) {
                                        std::filesystem::create_hard_link(hostile.victim(), path);
                                      }};
  EXPECT_EQ(finishError(secondName, "native-manifest.json.tmp"), std::nullopt);
  expectManifest();
  EXPECT_TRUE(hostile.isOutsideUntouched());
}

TEST_F(HostileStore, WhatIsInTheManifestsPlaceIsReplaced) {
  for (const HostileFiles::File& file : hostile.all()) {
    SCOPED_TRACE(file.name);
    const std::optional<StoreError> error = finishError(file, "native-manifest.json");
    if (file.kind == Kind::directory) {
      EXPECT_EQ(error, StoreError::filesystem);
      EXPECT_TRUE(std::filesystem::exists(session + "/native-manifest.json/inside"));
    } else {
      EXPECT_EQ(error, std::nullopt);
      expectManifest();
    }
    EXPECT_FALSE(std::filesystem::exists(session + "/native-manifest.json.tmp"));
    startAnew();
  }
  EXPECT_TRUE(hostile.isOutsideUntouched());
}

// ---- A session

TEST(HostileSession, NothingStartsOverWhatIsThere) {
  const HostileFiles hostile;
  for (const std::string name :
       {"recording.mp4", "screen.mp4", "camera.mp4", "system-audio.m4a", "microphone.m4a"})
    for (const HostileFiles::File& file : hostile.all()) {
      SCOPED_TRACE(name + ": " + file.name);
      RecordingRig rig;
      rig.files.spareSyncs();
      file.put(rig.path(name));
      const PathState before = PathState::of(rig.path(name));
      EXPECT_EQ(rig.run(), 1);
      EXPECT_THAT(rig.events(), ElementsAre(recordingFailed));
      EXPECT_EQ(rig.lastDiagnostics(), failedLine("prepare-output"));
      EXPECT_EQ(PathState::of(rig.path(name)), before);
    }
  EXPECT_TRUE(hostile.isOutsideUntouched());
}

TEST(HostileSession, NothingIsWrittenThroughALinkInTheDirectorysPlace) {
  const HostileFiles hostile;
  for (const char* const end : {"", "/"})
    for (const bool camera : {false, true}) {
      SCOPED_TRACE(camera);
      RecordingRig rig;
      rig.use(false, false, camera);
      std::filesystem::remove(rig.request.outputDirectory);
      std::filesystem::create_directory_symlink(hostile.folder(), rig.request.outputDirectory);
      rig.request.outputDirectory += end;
      EXPECT_EQ(rig.run(), 1);
      EXPECT_THAT(rig.events(), ElementsAre(recordingFailed));
      EXPECT_EQ(rig.lastDiagnostics(), failedLine("prepare-output"));
      EXPECT_TRUE(hostile.isOutsideUntouched());
    }
}

TEST(HostileSession, NoTraceIsWrittenIntoWhatIsThere) {
  const HostileFiles hostile;
  for (const HostileFiles::File& file : hostile.all()) {
    SCOPED_TRACE(file.name);
    RecordingRig rig;
    rig.useTrace();
    file.put(rig.path("interaction-events.jsonl"));
    const PathState before = PathState::of(rig.path("interaction-events.jsonl"));
    EXPECT_EQ(rig.run(), 1);
    EXPECT_THAT(
        rig.events(),
        ElementsAre(failed("outputFailed", "The screenshot could not be written to its temporary output.")));
    EXPECT_EQ(rig.lastDiagnostics(), failedLine("interaction-recorder", "outputFailed"));
    EXPECT_EQ(PathState::of(rig.path("interaction-events.jsonl")), before);
  }
  EXPECT_TRUE(hostile.isOutsideUntouched());
}

// A session is paused, one of its files is replaced, and it is stopped.
struct ReplacedFile {
  explicit ReplacedFile(const HostileFiles::File& file, const std::string& name) {
    rig.files.spareSyncs();
    rig.useTrace();
    rig.then([this] {
      rig.record(1s);
      rig.interactions.click();
      rig.send("pause");
    });
    rig.then([this, file, name] {
      std::filesystem::remove(rig.path(name));
      file.put(rig.path(name));
      rig.send("stop");
    });
    isInTime = endsInTime([&] { status = rig.run(); });
  }

  RecordingRig rig;
  std::int32_t status = -1;
  bool isInTime = false;
};

TEST(HostileSession, ASegmentThatWasReplacedFailsTheStopAndNothingElseIsLost) {
  const HostileFiles hostile;
  for (const HostileFiles::File& file : hostile.all()) {
    SCOPED_TRACE(file.name);
    ReplacedFile session(file, "segments/segment-0000.mp4");
    EXPECT_TRUE(session.isInTime);
    EXPECT_EQ(session.status, 1);
    EXPECT_EQ(session.rig.lastEvent(), recordingFailed);
    EXPECT_EQ(session.rig.lastDiagnostics(), failedLine("stop-parallel-merge"));
    EXPECT_EQ(manifestSegments(session.rig).size(), 1u);
    EXPECT_THAT(session.rig.read("interaction-events.jsonl"), HasSubstr(R"("kind":"click")"));
    for (const std::string& entry : session.rig.entries())
      EXPECT_THAT(entry, Not(HasSubstr(".tmp")));
  }
  EXPECT_TRUE(hostile.isOutsideUntouched());
}

TEST(HostileSession, AManifestThatWasReplacedIsNotNeededForAStop) {
  const HostileFiles hostile;
  for (const HostileFiles::File& file : hostile.all()) {
    SCOPED_TRACE(file.name);
    ReplacedFile session(file, "native-manifest.json");
    EXPECT_TRUE(session.isInTime);
    EXPECT_EQ(session.status, 0);
    EXPECT_THAT(session.rig.lastEvent(), HasSubstr(R"("event":"completed")"));
  }
  EXPECT_TRUE(hostile.isOutsideUntouched());
}

TEST(HostileSession, ATraceThatWasReplacedIsNoTrackUnlessItIsAFile) {
  const HostileFiles hostile;
  for (const HostileFiles::File& file : hostile.all()) {
    SCOPED_TRACE(file.name);
    ReplacedFile session(file, "interaction-events.jsonl");
    EXPECT_TRUE(session.isInTime);
    EXPECT_EQ(session.status, 0);
    EXPECT_THAT(session.rig.lastEvent(), HasSubstr(R"("event":"completed")"));
    EXPECT_EQ(session.rig.lastEvent().find("interactionEvents") != std::string::npos,
              file.kind == Kind::regular);
  }
  EXPECT_TRUE(hostile.isOutsideUntouched());
}

// ---- A recovery

class HostileRecovery : public RecordingRecoveryTest {
 protected:
  HostileRecovery() { files.spareSyncs(); }

  // Recovers with everything hostile at a name, one after another, and once more without.
  void expectErrors(const std::string& name, const std::function<std::optional<Error>(Kind)>& expected) {
    for (const HostileFiles::File& file : hostile.all()) {
      SCOPED_TRACE(name + ": " + file.name);
      startAnew();
      const auto before = segments();
      std::filesystem::remove_all(at(name));
      file.put(at(name));
      const PathState state = PathState::of(at(name));
      EXPECT_TRUE(endsInTime([&] { EXPECT_EQ(error(), expected(file.kind)); }));
      EXPECT_EQ(PathState::of(at(name)), state) << "it is left";
      for (const std::string& each : names())
        EXPECT_THAT(each, Not(::testing::StartsWith(".")));
      std::filesystem::remove_all(at(name));
      if (!name.starts_with("segments")) {
        EXPECT_EQ(segments(), before);
        EXPECT_EQ(error(), std::nullopt) << "without it nothing is in the way";
      }
    }
    EXPECT_TRUE(hostile.isOutsideUntouched());
  }

  void startAnew() {
    std::filesystem::remove_all(session());
    std::filesystem::create_directories(at("segments"));
    request.segmentPaths.clear();
    fullSegment(700);
    askForEverything();
  }

  HostileFiles hostile;
};

TEST_F(HostileRecovery, ASegmentThatIsNoMovieIsAFailedMerge) {
  expectErrors("segments/segment-0000.mp4", [](Kind) { return Error::mergeFailed; });
}

TEST_F(HostileRecovery, SegmentsThatAreInNoFolderAreMissing) {
  expectErrors("segments", [](Kind) { return Error::invalidRequest; });
}

TEST_F(HostileRecovery, AnOutputThatIsNoMovieIsBadMedia) {
  for (const std::string& name : everyOutput)
    expectErrors(name, [](Kind) { return Error::invalidMedia; });
}

TEST_F(HostileRecovery, WhatItDoesNotReadIsNoMatter) {
  for (const std::string name : {"native-manifest.json", "native-manifest.json.tmp", "camera-layout.json",
                                 "interaction-events.jsonl", "sensor-data.jsonl"})
    expectErrors(name, [](Kind) { return std::nullopt; });
}

TEST_F(HostileRecovery, OnlyAFileIsATrace) {
  for (const HostileFiles::File& file : hostile.all()) {
    startAnew();
    file.put(at("interaction-events.jsonl"));
    const Names found = ids(recover());
    EXPECT_EQ(std::count(found.begin(), found.end(), "interaction-events"), file.kind == Kind::regular)
        << file.name;
  }
}

// A stale temporary of ours is a file; nothing else under such a name is touched.
TEST_F(HostileRecovery, OnlyFilesAreStaleTemporaries) {
  for (const HostileFiles::File& file : hostile.all()) {
    SCOPED_TRACE(file.name);
    startAnew();
    const std::string path = at(".screen.mp4.0123456789abcdef.tmp");
    file.put(path);
    const PathState before = PathState::of(path);
    EXPECT_EQ(error(), std::nullopt);
    EXPECT_EQ(PathState::of(path) == before, file.kind != Kind::regular);
  }
  EXPECT_TRUE(hostile.isOutsideUntouched());
}

TEST_F(HostileRecovery, AHoleBehindAMovieIsNotCopied) {
  for (const bool isFinished : {true, false}) {
    SCOPED_TRACE(isFinished);
    std::filesystem::remove_all(session());
    std::filesystem::create_directories(at("segments"));
    request = RecordingRecoveryRequestDTO{};
    request.sessionID = sessionID;
    request.outputDirectory = session();
    std::filesystem::resize_file(segment({videoOf(700)}, isFinished), HostileFiles::hugeBytes);
    EXPECT_TRUE(endsInTime([&] { EXPECT_EQ(error(), std::nullopt); }));
    for (const std::string& name : names())
      EXPECT_LT(std::filesystem::file_size(at(name)), 1'000'000u) << name;
    // Nor from one output into another.
    std::filesystem::resize_file(at("screen.mp4"), HostileFiles::hugeBytes);
    std::filesystem::remove(at("recording.mp4"));
    EXPECT_TRUE(endsInTime([&] { EXPECT_EQ(error(), std::nullopt); }));
    EXPECT_LT(std::filesystem::file_size(at("recording.mp4")), 1'000'000u);
  }
}

// The longest name that is made is the hidden one of the video to share, 36 bytes with its slash, and a path
// may have 4095.
TEST_F(HostileRecovery, ASessionMayLieAsDeepAsItsFilesHavePaths) {
  const auto errorAt = [&](std::size_t bytes) {
    const std::string folder = deepDirectory(directory.path(), bytes - 37);
    request.outputDirectory = folder + "/" + sessionID;
    const std::string path = request.outputDirectory + "/segments/segment-0000.mp4";
    request.segmentPaths = {path};
    if (request.outputDirectory.size() <= 4095) {
      std::filesystem::create_directories(request.outputDirectory + "/segments");
      if (path.size() <= 4095)
        writeSyntheticMovie(path, {videoOf(700)});
    }
    return failureOf<Error>([&] {
      try {
        recover();
      } catch (const FileFailure& failure) {
        EXPECT_EQ(failure.errorNumber(), ENAMETOOLONG);
        fail(Error::invalidRequest);
      }
    });
  };
  EXPECT_EQ(errorAt(4059), std::nullopt);
  EXPECT_EQ(errorAt(4060), Error::mergeFailed);
  EXPECT_EQ(errorAt(4069), Error::mergeFailed);
  EXPECT_EQ(errorAt(4070), Error::invalidRequest) << "a segment that has no path is missing";
}

} // namespace
} // namespace tessarin
