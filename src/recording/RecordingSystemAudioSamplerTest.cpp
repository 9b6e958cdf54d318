#include "recording/RecordingSystemAudioSampler.hpp"

#include "model/Errors.hpp"

#include "support/ManualQueue.hpp"
#include "support/ScriptedDevices.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <stdexcept>

namespace tessarin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ScriptedDesktop final : public DesktopContent {
 public:
  bool hasAccess = true;
  bool isReadable = true;

  bool hasScreenCaptureAccess() override { return hasAccess; }
  ShareableContent content() override {
    if (!isReadable)
      throw DesktopFailure();
    return {.displays = {{.displayID = 71, .frame = {0, 0, 640, 480}, .pointPixelScale = 1, .isMain = true}},
            .windows = {},
            .applications = {},
            .windowList = std::nullopt};
  }
};

const NativeServiceError unavailable{NativeErrorCode::contentUnavailable,
                                     "Shareable screen content is temporarily unavailable.", true};

class RecordingSystemAudioSamplerTest : public testing::Test {
 protected:
  RecordingAudioLevelPayload sample(std::string_view displayID = "71") {
    const ContentService content(desktop);
    return RecordingSystemAudioSampler(content, devices, scheduler.queueFactory(),
                                       [this](std::chrono::milliseconds time) {
                                         slept.push_back(time.count());
                                         whileListening();
                                       })
        .sample(displayID);
  }
  NativeServiceError failure(std::string_view displayID = "71") {
    try {
      sample(displayID);
    } catch (const NativeServiceError& error) {
      return error;
    }
    return {NativeErrorCode::internalError, "nothing failed", false};
  }
  ScriptedDevice& sound() { return *devices.systemAudios.at(0); }

  ScriptedDesktop desktop;
  ScriptedDevices devices;
  ManualClock clock;
  ManualScheduler scheduler{clock};
  std::vector<std::int64_t> slept;
  std::function<void()> whileListening = [] {};
};

TEST_F(RecordingSystemAudioSamplerTest, HearsWhatIsPlayedFor400Milliseconds) {
  whileListening = [this] {
    EXPECT_TRUE(sound().isRunning());
    sound().deliver(steadySample(0.5F, 100, {}));
    sound().deliver(steadySample(-0.25F, 100, {}));
  };
  const RecordingAudioLevelPayload level = sample();
  EXPECT_EQ(level.sampleCount, 400);
  EXPECT_EQ(level.peak, 0.5);
  EXPECT_DOUBLE_EQ(level.rms, std::sqrt((0.25 + 0.0625) / 2));
  EXPECT_THAT(slept, ElementsAre(400));
  EXPECT_THAT(devices.calls(), ElementsAre("open systemAudio", "start systemAudio", "stop systemAudio"));
  EXPECT_THAT(scheduler.labels(), ElementsAre("com.tessarin.recording.preflight-audio"));
}

TEST_F(RecordingSystemAudioSamplerTest, SilenceIsHeard) {
  whileListening = [this] { sound().deliver(steadySample(0, 100, {})); };
  EXPECT_EQ(sample(), (RecordingAudioLevelPayload{0, 0, 200}));
}

TEST_F(RecordingSystemAudioSamplerTest, WithoutSoundDeliveredTheLevelIsZero) {
  EXPECT_EQ(sample(), (RecordingAudioLevelPayload{0, 0, 0}));
}

TEST_F(RecordingSystemAudioSamplerTest, AnUnknownDisplayFailsBeforeAnythingIsCaptured) {
  for (const char* const displayID : {"72", "071", "", " 71", "71 "}) {
    EXPECT_EQ(failure(displayID), unavailable);
    EXPECT_THAT(devices.calls(), IsEmpty());
  }
}

TEST_F(RecordingSystemAudioSamplerTest, WithoutTheDesktopNothingIsCaptured) {
  desktop.isReadable = false;
  EXPECT_EQ(failure(), unavailable);
  desktop.hasAccess = false;
  EXPECT_EQ(failure(),
            (NativeServiceError{NativeErrorCode::permissionDenied,
                                "Screen Recording permission is required to capture the display.", true}));
  EXPECT_THAT(devices.calls(), IsEmpty());
}

TEST_F(RecordingSystemAudioSamplerTest, WithoutASoundServerItFailsAtOnce) {
  devices.reachable = false;
  EXPECT_EQ(failure(), unavailable);
  EXPECT_THAT(slept, IsEmpty());
}

TEST_F(RecordingSystemAudioSamplerTest, SoundThatDoesNotStartFailsWithoutListening) {
  for (const CaptureDeviceError reason : {CaptureDeviceError::unavailable, CaptureDeviceError::denied}) {
    devices.systemAudios.clear();
    devices.prepare = [reason](ScriptedDevice& device, ScriptedDevices::Source) {
      device.refusesToStart = reason;
    };
    EXPECT_EQ(failure(), unavailable);
    EXPECT_TRUE(sound().isDestroyed());
  }
  EXPECT_THAT(slept, IsEmpty());
}

TEST_F(RecordingSystemAudioSamplerTest, WhateverFailsWhileListeningStopsTheStreamAndGoesOn) {
  whileListening = [] { throw std::runtime_error("woken"); };
  EXPECT_THROW(sample(), std::runtime_error);
  EXPECT_THAT(devices.calls(), ElementsAre("open systemAudio", "start systemAudio", "stop systemAudio"));
  EXPECT_FALSE(sound().isRunning());
}

TEST_F(RecordingSystemAudioSamplerTest, SoundThatEndsMeanwhileFails) {
  whileListening = [this] {
    sound().deliver(steadySample(0.5F, 100, {}));
    sound().end();
  };
  EXPECT_EQ(failure(), unavailable);
}

} // namespace
} // namespace tessarin
