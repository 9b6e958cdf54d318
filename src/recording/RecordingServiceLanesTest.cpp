// Recordings of sound and camera beside the screen: which tracks there are, in which order and from where,
// and what the checks of a stop let pass.

#include "support/RecordingServiceTesting.hpp"

#include <tuple>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using namespace tessarin::testing;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using Rig = RecordingRig;

// Of a track, its coded samples tell where in its segment it comes from.
std::string segmentTrack(std::size_t index) {
  const std::vector<std::byte> sample = littleSample(index);
  return {reinterpret_cast<const char*>(sample.data()), sample.size()};
}

// The place in the segments that each track of a finished file comes from.
std::vector<std::size_t> originsOf(Rig& rig, const std::string& name) {
  std::vector<std::size_t> origins;
  const std::size_t count = movieAt(rig.path(name)).tracks.size();
  for (std::size_t track = 0; track < count; ++track) {
    const std::string first = sampleBytesOf(rig.path(name), track).at(0);
    for (std::size_t origin = 0; origin < 4; ++origin)
      if (first == segmentTrack(origin))
        origins.push_back(origin);
  }
  return origins;
}

void recordAndStop(Rig& rig) {
  rig.then([&rig] {
    rig.record(1s);
    rig.send("stop");
  });
}

// ---- Which tracks there are

// System audio, microphone, camera.
class RecordingServiceLanesTest : public ::testing::TestWithParam<std::tuple<bool, bool, bool>> {};

TEST_P(RecordingServiceLanesTest, EveryLaneIsATrackOfItsOwn) {
  const auto [systemAudio, microphone, camera] = GetParam();
  Rig rig;
  rig.use(systemAudio, microphone, camera);
  recordAndStop(rig);
  ASSERT_EQ(rig.run(), 0);

  std::vector<std::string> tracks;
  std::vector<std::string> files = {"native-manifest.json", "recording.mp4", "screen.mp4", "segments/",
                                    "segments/segment-0000.mp4"};
  std::vector<std::size_t> shared = {0};
  std::size_t next = 1;
  const auto expectLane = [&](const std::string& file, const std::string& track, bool isShared) {
    tracks.push_back(track);
    files.push_back(file);
    EXPECT_EQ(originsOf(rig, file), std::vector{next});
    if (isShared)
      shared.push_back(next);
    ++next;
  };
  if (camera) {
    expectLane("camera.mp4", cameraTrack(1033), false);
    files.push_back("camera-layout.json");
  }
  if (systemAudio)
    expectLane("system-audio.m4a", systemAudioTrack(1033), true);
  if (microphone)
    expectLane("microphone.m4a", microphoneTrack(1033), true);
  std::sort(files.begin(), files.end());

  EXPECT_THAT(rig.events(), ElementsAre(state("recording", 0), state("stopping", 1000),
                                        segmentFinalized(0, 1033, 1033), completed(1033, 1033, tracks)));
  EXPECT_THAT(rig.entries(), ElementsAreArray(files));
  EXPECT_EQ(originsOf(rig, "screen.mp4"), std::vector<std::size_t>{0});
  EXPECT_EQ(originsOf(rig, "recording.mp4"), shared);
  EXPECT_EQ(rig.segment(0).trackCount, next);
  EXPECT_EQ(rig.stream().configuration.capturesAudio, systemAudio);
  EXPECT_EQ(rig.devices.systemAudios.size(), systemAudio ? 1U : 0U);
  EXPECT_EQ(rig.devices.microphones.size(), microphone ? 1U : 0U);
  EXPECT_EQ(rig.devices.cameras.size(), camera ? 1U : 0U);
  expectQuiet(rig);
}

std::string laneNames(const ::testing::TestParamInfo<std::tuple<bool, bool, bool>>& row) {
  const auto [systemAudio, microphone, camera] = row.param;
  return std::string("screen") + (systemAudio ? "_systemAudio" : "") + (microphone ? "_microphone" : "") +
         (camera ? "_camera" : "");
}

INSTANTIATE_TEST_SUITE_P(Lanes, RecordingServiceLanesTest,
                         ::testing::Combine(::testing::Bool(), ::testing::Bool(), ::testing::Bool()),
                         laneNames);

TEST(RecordingServiceLanes, EverySampleOfARunningSourceIsWritten) {
  Rig rig;
  rig.use(true, true, true);
  recordAndStop(rig);
  ASSERT_EQ(rig.run(), 0);
  EXPECT_EQ(rig.segment(0).appended.size(), 31U);
  EXPECT_EQ(rig.segment(0).track(1).appended.size(), 31U) << "a camera's picture beside each of the screen's";
  EXPECT_EQ(rig.segment(0).track(2).appended.size(), 30U);
  EXPECT_EQ(rig.segment(0).track(3).appended.size(), 30U);
  EXPECT_EQ(rig.segment(0).track(2).appended.at(1).time, MediaTime::nanoseconds(33'333'333));
}

TEST(RecordingServiceLanes, TheDevicesAreThoseOfTheSettings) {
  Rig rig;
  rig.use(false, true, true);
  rig.devices.microphoneList.push_back({"microphone-2", "Other microphone", false});
  rig.devices.cameraList.push_back({"camera-2", "Other camera", false});
  rig.request.settings.microphoneDeviceID = "microphone-2";
  rig.request.settings.cameraDeviceID = "camera-2";
  rig.thenSend("cancel");
  ASSERT_EQ(rig.run(), 0);
  EXPECT_EQ(rig.microphone().deviceID, "microphone-2");
  EXPECT_EQ(rig.camera().deviceID, "camera-2");
}

TEST(RecordingServiceLanes, ACameraIsRecordedAtItsSizeInEvenPixels) {
  Rig rig;
  rig.use(false, false, true);
  rig.cameraSize = {1281, 721};
  recordAndStop(rig);
  ASSERT_EQ(rig.run(), 0);
  EXPECT_EQ(rig.lastEvent(), completed(1033, 1033, {cameraTrack(1033, 1280, 720)}));
  EXPECT_EQ(rig.segment(0).track(1).video->width, 1280);
  EXPECT_EQ(rig.segment(0).track(1).video->height, 720);
}

TEST(RecordingServiceLanes, TheSessionRunsOnRealThreadsToo) {
  Rig rig;
  rig.useThreads();
  rig.use(true, true, true);
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.thenSend("resume");
  rig.then([&] {
    rig.record(500ms);
    rig.send("stop");
  });
  ASSERT_EQ(rig.run(), 0) << ::testing::PrintToString(rig.diagnostics());
  EXPECT_THAT(rig.lastEvent(), HasSubstr("\"completed\""));
  EXPECT_EQ(originsOf(rig, "recording.mp4"), (std::vector<std::size_t>{0, 2, 3}));
  expectDevicesStopped(rig);
}

// ---- Pause and resume

TEST(RecordingServiceLanes, EverySegmentHasAllLanesAndTheProgramIsTheirSum) {
  Rig rig;
  rig.use(true, true, true);
  rig.then([&] {
    rig.record(1s);
    rig.send("pause");
  });
  rig.then([&] {
    rig.record(2s); // what comes during a pause is lost
    rig.send("resume");
  });
  rig.then([&] {
    rig.record(500ms);
    rig.send("stop");
  });
  ASSERT_EQ(rig.run(), 0);
  EXPECT_THAT(
      rig.events(),
      ElementsAre(state("recording", 0), state("pausing", 0), segmentFinalized(0, 1033, 1033),
                  state("paused", 1033), state("resuming", 1033), state("recording", 1033),
                  state("stopping", 1533), segmentFinalized(1, 533, 1566),
                  completed(3500, 1567, {cameraTrack(1567), systemAudioTrack(1567), microphoneTrack(1567)})));
  for (const std::size_t index : {0U, 1U})
    EXPECT_EQ(rig.segment(index).trackCount, 4U);
  EXPECT_EQ(rig.segment(0).track(3).appended.size(), 30U);
  EXPECT_EQ(rig.segment(1).track(3).appended.size(), 15U);
  EXPECT_EQ(rig.segment(1).track(2).appended.size(), 15U);
  EXPECT_EQ(rig.segment(1).track(3).appended.at(0).time, MediaTime::zero());
  EXPECT_EQ(rig.devices.microphones.size(), 1U) << "sources outlive segments";
  EXPECT_EQ(rig.microphone().startCount(), 1U);
  EXPECT_THAT(rig.devices.calls(), ElementsAre("open microphone", "start microphone", "open camera",
                                               "start camera", "open systemAudio", "start systemAudio",
                                               "stop systemAudio", "stop camera", "stop microphone"));
  expectQuiet(rig);
}

TEST(RecordingServiceLanes, ACancelLeavesNothingRecordedAndStopsEverything) {
  Rig rig;
  rig.use(true, true, true);
  rig.then([&] {
    rig.record(1s);
    rig.send("cancel");
  });
  EXPECT_EQ(rig.run(), 0);
  EXPECT_EQ(rig.lastEvent(), cancelled);
  EXPECT_THAT(rig.entries(), ElementsAre("camera-layout.json", "segments/"));
  expectQuiet(rig);
}

// ---- Diagnostics

TEST(RecordingServiceLanes, TheSummaryTellsOfEveryLane) {
  Rig rig;
  rig.use(true, true, true);
  recordAndStop(rig);
  ASSERT_EQ(rig.run(), 0);
  EXPECT_EQ(rig.diagnostics().at(0),
            "tessarin-native recording-summary startupMs=0 videoDeliveryPermille=1000 maxAudioQueueMs=0 "
            "systemAudioDriftMs=0/33 microphoneDriftMs=0/33 cameraDriftMs=0/0 screenFrames=31 "
            "cameraFrames=31");
}

TEST(RecordingServiceLanes, AStopTellsHowLongEachPartTook) {
  Rig rig;
  rig.use(true, true, true);
  rig.then([&] {
    rig.record(1s);
    rig.stream().onRemoveOutput = [&] { rig.clock.advance(3ms); };
    const auto finish = rig.segment(0).onFinish;
    rig.segment(0).onFinish = [&, finish](ScriptedMediaFile& file) {
      finish(file);
      rig.clock.advance(20ms);
    };
    rig.files.setObserver([&](const FaultyFileSystem::Event& event) {
      if (event.operation == FileOperation::sync && event.path.find("manifest") != std::string::npos)
        rig.clock.advance(5ms);
      if (event.operation == FileOperation::open && event.path.find("/.microphone.m4a") != std::string::npos)
        rig.clock.advance(100ms);
      if (event.operation == FileOperation::open && event.path.ends_with("/microphone.m4a"))
        rig.clock.advance(1000ms);
    });
    rig.stream().onStop = [&] { rig.clock.advance(7ms); };
    rig.send("stop");
  });
  ASSERT_EQ(rig.run(), 0);
  EXPECT_EQ(rig.lastDiagnostics(),
            "tessarin-native recording-stop-summary writerFinishMs=20 segmentValidationMs=5 streamStopMs=7 "
            "streamStopDeferred=0 microphoneStopMs=0 outputRemovalMs=3 audioDrainMs=0 writerQueueDrainMs=0 "
            "finalizeMs=28 trackMergeMs=100 validationMs=1000 stopMergeMs=1135");
}

// ---- What a stop lets pass

TEST(RecordingServiceLanes, AMergeThatMeetsAFileFailsAndKeepsTheSegments) {
  for (const std::string name :
       {"screen.mp4", "camera.mp4", "system-audio.m4a", "microphone.m4a", "recording.mp4"}) {
    Rig rig;
    rig.use(true, true, true);
    rig.then([&] {
      rig.record(1s);
      rig.write(name, "in the way");
      rig.send("stop");
    });
    EXPECT_EQ(rig.run(), 1);
    EXPECT_EQ(rig.lastEvent(), recordingFailed);
    EXPECT_EQ(rig.lastDiagnostics(), failedLine("stop-parallel-merge"));
    EXPECT_EQ(rig.read(name), "in the way");
    EXPECT_EQ(manifestSegments(rig).size(), 1U);
    expectQuiet(rig);
  }
}

// A merged file comes out by so much longer than the screen's 10 seconds.
struct MergedLength {
  const char* name;
  const char* file;
  std::int64_t milliseconds;
  bool passes;
};

class RecordingServiceMergedLengthTest : public ::testing::TestWithParam<MergedLength> {};

TEST_P(RecordingServiceMergedLengthTest, MergedFilesAgreeWithTheScreen) {
  const MergedLength& row = GetParam();
  Rig rig;
  rig.use(true, true, true);
  rig.then([&] {
    rig.record(9967ms); // and the last picture's thirtieth of a second
    rig.files.setObserver([&](const FaultyFileSystem::Event& event) {
      if (event.operation != FileOperation::open || event.path != rig.path(row.file))
        return;
      const MediaTime end = MediaTime::milliseconds(10'000 + row.milliseconds);
      LittleTrack track{container::TrackKind::video, {MediaTime::zero()}, end};
      if (event.path.ends_with(".m4a"))
        track = littleSound(end);
      writeLittleMovie(machineFileSystem(), event.path, {track}, OpenMode::createTruncated);
    });
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), row.passes ? 0 : 1);
  if (row.passes) {
    EXPECT_THAT(rig.lastEvent(), HasSubstr("\"completed\""));
  } else {
    EXPECT_EQ(rig.lastEvent(), recordingFailed);
    EXPECT_EQ(rig.lastDiagnostics(), failedLine("stop-parallel-validate"));
    EXPECT_TRUE(exists(rig.files, rig.path(row.file))) << "no merged file is removed";
  }
}

INSTANTIATE_TEST_SUITE_P(Lengths, RecordingServiceMergedLengthTest,
                         ::testing::Values(MergedLength{"camera99", "camera.mp4", 99, true},
                                           MergedLength{"camera100", "camera.mp4", 100, true},
                                           MergedLength{"camera101", "camera.mp4", 101, false},
                                           MergedLength{"cameraShort100", "camera.mp4", -100, true},
                                           MergedLength{"cameraShort101", "camera.mp4", -101, false},
                                           MergedLength{"sound250", "system-audio.m4a", 250, true},
                                           MergedLength{"sound251", "system-audio.m4a", 251, false},
                                           MergedLength{"soundShort250", "system-audio.m4a", -250, true},
                                           MergedLength{"soundShort251", "system-audio.m4a", -251, false},
                                           MergedLength{"microphone250", "microphone.m4a", 250, true},
                                           MergedLength{"microphone251", "microphone.m4a", 251, false}),
                         [](const auto& row) { return row.param.name; });

// A track of a segment comes out by so much longer than the others.
struct SegmentLength {
  const char* name;
  std::size_t track;
  std::int64_t milliseconds;
  bool passes;
};

class RecordingServiceSegmentLengthTest : public ::testing::TestWithParam<SegmentLength> {};

TEST_P(RecordingServiceSegmentLengthTest, TracksOfASegmentAgreeWithItsScreen) {
  const SegmentLength& row = GetParam();
  Rig rig;
  rig.use(true, true, true);
  rig.trackLengthenings.resize(4, MediaTime::zero());
  // The file's length is that of its longest track; a track may end 250 ms beside the screen's.
  rig.trackLengthenings.at(row.track) = MediaTime::milliseconds(row.milliseconds);
  rig.then([&] {
    rig.record(9967ms);
    rig.send("pause");
  });
  rig.thenSend("cancel");
  EXPECT_EQ(rig.run(), row.passes ? 0 : 1);
  if (!row.passes) {
    EXPECT_EQ(rig.lastEvent(), recordingFailed);
    EXPECT_EQ(rig.lastDiagnostics(), failedLine("pause-finalize"));
  }
}

INSTANTIATE_TEST_SUITE_P(Lengths, RecordingServiceSegmentLengthTest,
                         ::testing::Values(SegmentLength{"camera99", 1, 99, true},
                                           SegmentLength{"camera101", 1, 101, false},
                                           SegmentLength{"soundShort250", 2, -250, true},
                                           SegmentLength{"soundShort251", 2, -251, false},
                                           SegmentLength{"microphoneShort250", 3, -250, true},
                                           SegmentLength{"microphoneShort251", 3, -251, false}),
                         [](const auto& row) { return row.param.name; });

TEST(RecordingServiceLanes, ASegmentThatMissesATrackFailsItsCheck) {
  Rig rig;
  rig.use(false, true, false);
  rig.media.prepare = [&](ScriptedMediaFile& file, std::size_t) {
    rig.produceMovie(file);
    file.onFinish = [&](ScriptedMediaFile& it) {
      std::vector<MediaTime> times;
      for (const auto& append : it.appended)
        times.push_back(append.time);
      writeLittleMovie(rig.files, it.options.path, times, times.back() + MediaTime(1, 30));
    };
  };
  recordAndStop(rig);
  EXPECT_EQ(rig.run(), 1);
  EXPECT_EQ(rig.lastEvent(), recordingFailed);
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("stop-finalize"));
  EXPECT_FALSE(exists(rig.files, rig.path("native-manifest.json")));
}

} // namespace
} // namespace tessarin
