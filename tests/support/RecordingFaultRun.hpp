#pragma once

#include "base/Failure.hpp"
#include "container/Movie.hpp"
#include "model/MediaErrors.hpp"
#include "recording/RecordedCameraLayout.hpp"
#include "recording/RecordingRecoveryService.hpp"
#include "support/RecordingServiceTesting.hpp"
#include "trace/InteractionEventFile.hpp"

#include <map>
#include <set>
#include <thread>

// A whole session on a file layer that is told to fail, and what has to hold of it whatever failed.
namespace tessarin::testing {

// Of devices and traces only what a scenario asks for.
struct FaultRig : RecordingRig {
  FaultRig() { files.spareSyncs(); }

  void useEverything() {
    use(true, true, true);
    useTrace();
  }
  // Half a second in which the user does something of each kind.
  void act() {
    record(Milliseconds(500));
    interactions.click();
    pressShortcut();
    if (request.settings.camera) {
      ScriptedPanel& panel = *panels.panels.at(0);
      panel.mouseDown(1700, 900);
      panel.mouseDragged(1604, 900);
      panel.mouseUp();
    }
  }
  void thenPauseAndResume() {
    then([this] {
      act();
      send("pause");
    });
    thenSend("resume");
  }
  // A second in which the watch looks at the disk, and then the end. The watch tells of what it sees, which
  // it cannot from within an event, so time passes on a thread of its own while the session waits.
  void thenEnd(const std::function<void()>& end) {
    then([this, end] {
      act();
      time_ = std::jthread([this, end] {
        scheduler.advance(std::chrono::seconds(1));
        end();
      });
    });
  }
  // Until that thread has done its part.
  void waitForTime() {
    if (time_.joinable())
      time_.join();
  }

 private:
  std::jthread time_;
};

inline const std::string noOutput = R"("code":"outputFailed","message":)"
                                    R"("The screenshot could not be written to its temporary output.")";
inline const std::string noRecording =
    R"("code":"recordingFailed","message":"The screen recording could not be completed.")";
inline const std::string noCamera =
    R"("code":"cameraUnavailable","message":)"
    R"("The selected camera is unavailable. Finalized screen recording segments were preserved.")";

// What may be told of each stage in which a disk can fail. A writer blames the camera where there is one.
inline const std::map<std::string, std::set<std::string>>& errorsOfStages() {
  static const std::map<std::string, std::set<std::string>> errors{
      {"camera-overlay", {noOutput}},
      {"prepare-output", {noRecording}},
      {"interaction-recorder", {noOutput}},
      {"prepare-writer", {noRecording}},
      {"start-capture", {noCamera, noRecording}},
      {"pause-finalize", {noCamera, noRecording, noOutput}},
      {"resume-start", {noCamera, noRecording}},
      {"stop-finalize", {noCamera, noRecording, noOutput}},
      {"stop-parallel-merge", {noRecording}},
      {"stop-parallel-validate", {noRecording}},
      {"stop-interactions", {noOutput}},
      {"unexpected-stream-stop", {noRecording}}};
  return errors;
}

inline bool isLast(const std::string& event) {
  return event.find(R"("event":"completed")") != std::string::npos ||
         event.find(R"("event":"cancelled")") != std::string::npos ||
         event.find(R"("event":"failed")") != std::string::npos;
}

// One run of a scenario, and the checks of what it left.
class FaultRun {
 public:
  explicit FaultRun(const std::function<void(FaultRig&)>& prepare) {
    prepare(rig);
    rig.onEvent = [this](const std::string& event) {
      if (event.find("segmentFinalized") != std::string::npos)
        noteFinished(json::decode<NativeRecordingSegment>(event).path);
    };
  }

  void run() {
    status = rig.run();
    rig.waitForTime();
  }

  void check(const std::vector<std::string>& entriesOfGoodRun) {
    checkEnd();
    checkFinished();
    checkEntries(entriesOfGoodRun);
    checkMovies();
    checkTrace();
  }

  // With a disk that is well again, everything comes of the segments that were kept.
  void recover() {
    rig.files.clearFaults();
    const RecordingSettingsDTO& settings = rig.request.settings;
    RecordingRecoveryRequestDTO request;
    request.sessionID = rig.request.sessionID;
    request.outputDirectory = rig.request.outputDirectory;
    for (const auto& [path, bytes] : finished_)
      request.segmentPaths.push_back(path);
    request.recoverCamera = settings.camera;
    request.recoverSystemAudio = settings.systemAudio;
    request.recoverMicrophone = settings.microphone;
    request.recoverInteractions = settings.recordsInteractionEvents() && hasTrace();
    try {
      const auto payload = RecordingRecoveryService(rig.files, rig.reencoder).recovery(request);
      EXPECT_EQ(payload.deliverables.size(), 1u);
      EXPECT_EQ(payload.tracks.size(), 1u + settings.camera + settings.systemAudio + settings.microphone +
                                           *request.recoverInteractions);
      EXPECT_THAT(rig.entries(), ::testing::Contains("recording.mp4"));
    } catch (const Failure<RecordingRecoveryError>& failure) {
      ADD_FAILURE() << "cannot be recovered: " << static_cast<int>(failure.value());
    }
    checkFinished();
    checkMovies();
  }

  bool canBeRecovered() const { return status == 1 && !finished_.empty(); }

  // The n-th removal failed, or all from then on.
  void noteUnremovable(std::size_t n, bool lasts) {
    std::size_t count = 0;
    for (const FaultyFileSystem::Event& event : rig.files.log())
      if (event.operation == FileOperation::remove && (++count == n || (lasts && count > n)))
        unremovable_.insert(event.path);
  }

  FaultRig rig;
  std::int32_t status = -1;

 private:
  bool hasTrace() { return regularFileSize(rig.files, tracePath()).value_or(0) > 0; }
  std::string tracePath() const { return rig.path(std::string(InteractionEventFile::name)); }

  void noteFinished(const std::string& path) { finished_[path] = bytesOf(path); }
  static std::string bytesOf(const std::string& path) {
    constexpr std::size_t limit = 16 << 20;
    return readWholeFile(machineFileSystem(), path, limit);
  }

  void checkEnd() {
    const std::vector<std::string> events = rig.events();
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(std::count_if(events.begin(), events.end(), isLast), 1);
    EXPECT_TRUE(isLast(events.back())) << events.back();
    const bool hasFailed = events.back().find(R"("event":"failed")") != std::string::npos;
    EXPECT_EQ(status, hasFailed ? 1 : 0);
    if (hasFailed)
      checkError(events.back());
    expectDevicesStopped(rig);
    EXPECT_EQ(rig.panels.openCount(), 0u);
    EXPECT_EQ(rig.scheduler.timerCount(), 0u);
  }

  void checkError(const std::string& event) {
    EXPECT_THAT(event, ::testing::HasSubstr(R"("recoverable":true)"));
    const std::string line = rig.lastDiagnostics();
    const std::string head = "tessarin-native recording-failed stage=";
    ASSERT_EQ(line.substr(0, head.size()), head);
    const std::string stage = line.substr(head.size(), line.find(' ', head.size()) - head.size());
    const auto errors = errorsOfStages().find(stage);
    ASSERT_NE(errors, errorsOfStages().end()) << stage;
    EXPECT_TRUE(std::any_of(errors->second.begin(), errors->second.end(),
                            [&](const std::string& error) { return event.find(error) != std::string::npos; }))
        << event << " at " << stage;
  }

  // The manifest is whole, lists what the host was told to be finished, and that is as it was then.
  void checkFinished() {
    if (rig.lastEvent() == cancelled)
      return;
    if (finished_.empty()) {
      EXPECT_FALSE(exists(machineFileSystem(), rig.path("native-manifest.json")));
      return;
    }
    const auto manifest = json::decode<NativeRecordingManifest>(rig.read("native-manifest.json"));
    EXPECT_EQ(manifest.sessionID, rig.request.sessionID);
    ASSERT_THAT(manifest.segments, ::testing::SizeIs(finished_.size()));
    for (const NativeRecordingSegment& segment : manifest.segments) {
      ASSERT_TRUE(finished_.contains(segment.path)) << segment.path;
      EXPECT_EQ(bytesOf(segment.path), finished_[segment.path]) << segment.path;
      EXPECT_EQ(segment.sizeBytes, static_cast<std::int64_t>(finished_[segment.path].size()));
      const container::Movie movie = movieAt(segment.path);
      EXPECT_FALSE(movie.isFragmented);
      EXPECT_EQ(movie.duration.wholeMilliseconds(), segment.durationMs);
    }
  }

  void checkEntries(const std::vector<std::string>& entriesOfGoodRun) {
    for (const std::string& entry : rig.entries()) {
      if (unremovable_.contains(rig.path(entry)))
        continue;
      EXPECT_THAT(entry, ::testing::Not(::testing::EndsWith(".tmp")));
      // A segment that was not finished stays for what can be read of it, and a failed cancel for all.
      if (status == 0) {
        EXPECT_THAT(entriesOfGoodRun, ::testing::Contains(entry));
      }
    }
  }

  // What has its final name is whole.
  void checkMovies() {
    for (const char* const name :
         {"recording.mp4", "screen.mp4", "camera.mp4", "system-audio.m4a", "microphone.m4a"}) {
      const std::string path = rig.path(name);
      if (!exists(machineFileSystem(), path) || unremovable_.contains(path))
        continue;
      const container::Movie movie = movieAt(path);
      EXPECT_FALSE(movie.isFragmented) << name;
      std::int64_t durationMs = 0;
      for (const auto& [segment, bytes] : finished_)
        durationMs += movieAt(segment).duration.wholeMilliseconds();
      EXPECT_NEAR(static_cast<double>(movie.duration.wholeMilliseconds()), static_cast<double>(durationMs), 2)
          << name;
    }
  }

  static container::Movie movieAt(const std::string& path) {
    return container::readMovie(*machineFileSystem().open(path, OpenMode::read));
  }

  void checkTrace() {
    if (exists(machineFileSystem(), tracePath())) {
      EXPECT_NO_THROW(InteractionEventFile::load(machineFileSystem(), tracePath()));
    }
    const std::string layout = rig.path(RecordedCameraLayout::fileName);
    if (exists(machineFileSystem(), layout)) {
      EXPECT_NO_THROW(json::decode<RecordedCameraLayout>(bytesOf(layout)));
    }
  }

  std::set<std::string> unremovable_;           // paths that could not be removed
  std::map<std::string, std::string> finished_; // the bytes of segments that the host was told of
};

} // namespace tessarin::testing
