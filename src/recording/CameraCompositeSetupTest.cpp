#include "support/CameraCompositeRig.hpp"

namespace tessarin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class CameraCompositeSetupTest : public CameraCompositeTest {};

TEST_F(CameraCompositeSetupTest, AsksForAFragmentedFileOfOneScreenTrack) {
  make();
  EXPECT_EQ(file().options.path, "/session/segments/segment-0000.mp4");
  EXPECT_EQ(file().options.initialFragmentInterval.value(), 600);
  EXPECT_EQ(file().options.initialFragmentInterval.timescale(), 600);
  EXPECT_EQ(file().options.fragmentInterval.value(), 6000);
  EXPECT_EQ(file().options.fragmentInterval.timescale(), 600);
  EXPECT_EQ(file().video, (VideoSettings{.codec = RecordingCodec::h264,
                                         .width = 640,
                                         .height = 480,
                                         .averageBitRate = 2'000'000,
                                         .expectedFrameRate = 10,
                                         .maximumKeyFrameInterval = 10,
                                         .allowFrameReordering = false,
                                         .expectsMediaDataInRealTime = true}));
  EXPECT_EQ(file().trackCount, 1u);
  EXPECT_THAT(scheduler.labels(), ElementsAre("com.tessarin.recording.camera-compositor",
                                              "com.tessarin.recording.system-audio-capture"));
  EXPECT_THAT(file().calls, IsEmpty()) << "the file is not begun before the first picture";
}

TEST_F(CameraCompositeSetupTest, WritesHevcWhenAskedTo) {
  settings.codec = RecordingCodec::hevc;
  make();
  EXPECT_EQ(file().video->codec, RecordingCodec::hevc);
}

TEST_F(CameraCompositeSetupTest, RefusesACodecThatCannotBeApplied) {
  media.prepare = [](ScriptedMediaFile& script, std::size_t) { script.appliesSettings = false; };
  EXPECT_EQ(errorOf([&] { make(); }),
            (NativeServiceError{NativeErrorCode::codecUnavailable,
                                "The selected recording codec is unavailable on this Mac."}));
}

TEST_F(CameraCompositeSetupTest, FailsWhenTheTrackCannotBeAdded) {
  media.prepare = [](ScriptedMediaFile& script, std::size_t) { script.addsInput = false; };
  EXPECT_EQ(errorOf([&] { make(); }), recordingFailed);
}

TEST_F(CameraCompositeSetupTest, PassesOnThatThereAreNoCodecsAtAll) {
  media.isUnavailable = true;
  EXPECT_THROW(make(), MediaUnavailable);
}

// ---- All tracks

TEST_F(CameraCompositeSetupTest, AddsTheTracksInTheOrderOfTheFile) {
  useCamera(1281, 721);
  useSystemAudio();
  useMicrophone();
  settings.codec = RecordingCodec::hevc;
  make();
  EXPECT_EQ(file().trackCount, 4u);
  EXPECT_EQ(file().video->width, 640);
  EXPECT_EQ(file().track(1).video, (VideoSettings{.codec = RecordingCodec::hevc,
                                                  .width = 1280,
                                                  .height = 720,
                                                  .averageBitRate = 1'500'000,
                                                  .expectedFrameRate = 10,
                                                  .maximumKeyFrameInterval = 10,
                                                  .allowFrameReordering = false,
                                                  .expectsMediaDataInRealTime = true}));
  const AudioSettings aac{
      .sampleRate = 48000, .channelCount = 2, .bitRate = 192000, .expectsMediaDataInRealTime = true};
  EXPECT_EQ(file().track(2).audio, aac);
  EXPECT_EQ(file().track(3).audio, aac);
  EXPECT_THAT(file().calls, IsEmpty());
}

TEST_F(CameraCompositeSetupTest, MirrorsTheCamerasTrackAloneWhenAsked) {
  useCamera(640, 480);
  for (const auto& [wish, isMirrored] : {std::pair{std::optional<bool>(), false},
                                         {std::optional(false), false},
                                         {std::optional(true), true}}) {
    settings.cameraOutputMirrored = wish;
    make();
    ScriptedMediaFile& made = *media.files.back();
    EXPECT_EQ(made.track(1).video->isMirrored, isMirrored);
    EXPECT_FALSE(made.video->isMirrored);
  }
}

TEST_F(CameraCompositeSetupTest, AMicrophoneAloneComesBehindTheScreen) {
  useMicrophone();
  make();
  EXPECT_EQ(file().trackCount, 2u);
  EXPECT_TRUE(file().track(1).audio);
}

struct CameraRate {
  RecordingCodec codec;
  RecordingQuality quality;
  std::int32_t width, height;
  std::int64_t frameRate;
  std::int64_t bitRate;
};

class CameraCompositeSetupRateTest : public CameraCompositeTest,
                                     public testing::WithParamInterface<CameraRate> {};

TEST_P(CameraCompositeSetupRateTest, TheCamerasBitRateFollowsItsPixelsAndFramesWithinBounds) {
  useCamera(GetParam().width, GetParam().height);
  settings.codec = GetParam().codec;
  settings.quality = GetParam().quality;
  settings.frameRate = GetParam().frameRate;
  make();
  EXPECT_EQ(file().track(1).video->averageBitRate, GetParam().bitRate);
}

constexpr auto h264 = RecordingCodec::h264;
constexpr auto hevc = RecordingCodec::hevc;
constexpr auto standard = RecordingQuality::standard;
constexpr auto high = RecordingQuality::high;

INSTANTIATE_TEST_SUITE_P(Rates, CameraCompositeSetupRateTest,
                         testing::Values(CameraRate{h264, standard, 1280, 720, 30, 2'764'800},
                                         CameraRate{h264, standard, 640, 480, 30, 2'000'000},
                                         CameraRate{h264, standard, 3840, 2160, 60, 35'000'000},
                                         CameraRate{h264, high, 1280, 720, 30, 4'423'680},
                                         CameraRate{h264, high, 640, 480, 30, 4'000'000},
                                         CameraRate{h264, high, 3840, 2160, 60, 60'000'000},
                                         CameraRate{hevc, standard, 1280, 720, 30, 1'797'120},
                                         CameraRate{hevc, standard, 640, 480, 30, 1'500'000},
                                         CameraRate{hevc, standard, 3840, 2160, 60, 24'000'000},
                                         CameraRate{hevc, high, 1920, 1080, 30, 6'220'800},
                                         CameraRate{hevc, high, 640, 480, 30, 3'000'000},
                                         CameraRate{hevc, high, 3840, 2160, 60, 40'000'000}));

// ---- Tracks that cannot be added

struct RefusedTrack {
  bool hasCamera;
  std::size_t track;
};

class CameraCompositeSetupRefusalTest : public CameraCompositeTest,
                                        public testing::WithParamInterface<RefusedTrack> {};

TEST_P(CameraCompositeSetupRefusalTest, ARefusedTrackIsTheFailureOfTheWriter) {
  media.prepare = [](ScriptedMediaFile& script, std::size_t) {
    script.track(GetParam().track).addsInput = false;
  };
  if (GetParam().hasCamera)
    useCamera();
  useSystemAudio();
  useMicrophone();
  EXPECT_EQ(errorOf([&] { make(); }), GetParam().hasCamera ? cameraUnavailable : recordingFailed);
  EXPECT_EQ(file().trackCount, GetParam().track);
  EXPECT_TRUE(file().isDestroyed);
}

INSTANTIATE_TEST_SUITE_P(Tracks, CameraCompositeSetupRefusalTest,
                         testing::Values(RefusedTrack{false, 0}, RefusedTrack{false, 1},
                                         RefusedTrack{false, 2}, RefusedTrack{true, 0}, RefusedTrack{true, 1},
                                         RefusedTrack{true, 2}, RefusedTrack{true, 3}));

} // namespace
} // namespace tessarin
