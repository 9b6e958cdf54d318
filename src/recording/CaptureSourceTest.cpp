// The life that microphones and cameras have in common, told for both.

#include "recording/CameraOverlaySource.hpp"
#include "recording/MicrophoneCaptureSource.hpp"
#include "support/ManualClock.hpp"
#include "support/ManualQueue.hpp"
#include "support/ScriptedDevices.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// What a test needs of the world around a source.
struct World {
  ManualClock clock{10s};
  ManualScheduler scheduler{clock};
  ScriptedDevices devices;
  ScriptedCaptureAuthorization authorization;
  std::vector<std::chrono::milliseconds> slept;
  std::function<void(std::size_t)> onSleep; // called with how often it has slept before
  int failures = 0;

  Sleeper sleeper() {
    return [this](std::chrono::milliseconds time) {
      slept.push_back(time);
      if (onSleep)
        onSleep(slept.size() - 1);
      scheduler.runPending();
    };
  }
  std::function<void()> failureHandler() {
    return [this] { ++failures; };
  }
};

struct MicrophoneKind {
  using Source = MicrophoneCaptureSource;
  static std::unique_ptr<Source> make(World& world, std::optional<std::string> deviceID = std::nullopt) {
    return std::make_unique<Source>(world.devices, world.authorization, std::move(deviceID),
                                    world.scheduler.queueFactory(), world.sleeper(), world.failureHandler());
  }
  static constexpr const char* name = "microphone";
  static constexpr const char* media = "audio";
  static constexpr const char* label = "com.tessarin.microphone.samples";
  static constexpr const char* someID = "microphone-1";
  static NativeServiceError unavailable() {
    return {NativeErrorCode::microphoneUnavailable,
            "The selected microphone is unavailable. Finalized screen recording segments were preserved.",
            true};
  }
  static NativeServiceError denied() {
    return {NativeErrorCode::microphoneDenied,
            "Microphone access is required when microphone recording is enabled.", true};
  }
  static std::vector<CaptureDevice>& list(World& world) { return world.devices.microphoneList; }
  static auto& refusal(World& world) { return world.devices.refusesMicrophone; }
  static auto& status(World& world) { return world.authorization.audio; }
  static ScriptedDevice& device(World& world) { return *world.devices.microphones.at(0); }
  static void deliver(World& world) { device(world).deliver(steadySample(0, 256, world.clock.now())); }
  static void await(Source& source) { source.waitForFirstSample(); }
};

struct CameraKind {
  using Source = CameraOverlaySource;
  static std::unique_ptr<Source> make(World& world, std::optional<std::string> deviceID = std::nullopt) {
    return std::make_unique<Source>(world.devices, world.authorization, std::move(deviceID), world.clock,
                                    world.scheduler.queueFactory(), world.sleeper(), world.failureHandler());
  }
  static constexpr const char* name = "camera";
  static constexpr const char* media = "video";
  static constexpr const char* label = "com.tessarin.camera.frames";
  static constexpr const char* someID = "camera-1";
  static NativeServiceError unavailable() {
    return {NativeErrorCode::cameraUnavailable,
            "The selected camera is unavailable. Finalized screen recording segments were preserved.", true};
  }
  static NativeServiceError denied() {
    return {NativeErrorCode::cameraDenied,
            "Camera access is required when camera picture-in-picture is enabled.", true};
  }
  static std::vector<CaptureDevice>& list(World& world) { return world.devices.cameraList; }
  static auto& refusal(World& world) { return world.devices.refusesCamera; }
  static auto& status(World& world) { return world.authorization.video; }
  static ScriptedDevice& device(World& world) { return *world.devices.cameras.at(0); }
  static void deliver(World& world) {
    device(world).deliver(numberedCameraFrame(1, 64, 48, world.clock.now()));
  }
  static void await(Source& source) { source.waitForFirstFrame(); }
};

template<class Kind> class CaptureSourceTest : public ::testing::Test {
 protected:
  template<class Action> static std::optional<NativeServiceError> errorOf(Action action) {
    try {
      action();
    } catch (const NativeServiceError& error) {
      return error;
    }
    return std::nullopt;
  }
  std::string call(const std::string& what) const { return what + " " + Kind::name; }

  World world;
};

struct KindNames {
  template<class Kind> static std::string GetName(int /*index*/) { return Kind::name; }
};

using Kinds = ::testing::Types<MicrophoneKind, CameraKind>;
TYPED_TEST_SUITE(CaptureSourceTest, Kinds, KindNames);

// ---- Starting

TYPED_TEST(CaptureSourceTest, TakesTheDefaultDeviceWithoutAnID) {
  const auto source = TypeParam::make(this->world);
  EXPECT_THAT(this->world.scheduler.labels(), ElementsAre(TypeParam::label));
  EXPECT_THAT(this->world.devices.calls(), IsEmpty()) << "idle until it is started";
  source->start();
  EXPECT_THAT(this->world.devices.calls(), ElementsAre(this->call("open"), this->call("start")));
  EXPECT_EQ(TypeParam::device(this->world).deviceID, std::nullopt);
  EXPECT_THAT(this->world.authorization.calls, ElementsAre("status " + std::string(TypeParam::media)));
  EXPECT_EQ(source->terminalState(), (CaptureSourceTerminalState{false, false}));
}

TYPED_TEST(CaptureSourceTest, TakesTheDeviceOfTheID) {
  const auto source = TypeParam::make(this->world, TypeParam::someID);
  source->start();
  EXPECT_EQ(TypeParam::device(this->world).deviceID, TypeParam::someID);
}

TYPED_TEST(CaptureSourceTest, IsUnavailableWithoutItsDevice) {
  const auto other = TypeParam::make(this->world, "other");
  EXPECT_EQ(this->errorOf([&] { other->start(); }), TypeParam::unavailable());
  TypeParam::list(this->world).front().isDefault = false;
  const auto byDefault = TypeParam::make(this->world);
  EXPECT_EQ(this->errorOf([&] { byDefault->start(); }), TypeParam::unavailable());
  this->world.devices.reachable = false;
  const auto byID = TypeParam::make(this->world, TypeParam::someID);
  EXPECT_EQ(this->errorOf([&] { byID->start(); }), TypeParam::unavailable());
  EXPECT_EQ(this->world.failures, 0) << "the caller knows already";
}

TYPED_TEST(CaptureSourceTest, TellsWhyADeviceRefuses) {
  for (const auto& [refusal, error] : {std::pair(CaptureDeviceError::unavailable, TypeParam::unavailable()),
                                       std::pair(CaptureDeviceError::denied, TypeParam::denied())}) {
    World opening;
    TypeParam::refusal(opening) = refusal;
    const auto unopened = TypeParam::make(opening);
    EXPECT_EQ(this->errorOf([&] { unopened->start(); }), error);

    World starting;
    starting.devices.prepare = [refusal = refusal](ScriptedDevice& device, auto) {
      device.refusesToStart = refusal;
    };
    const auto unstarted = TypeParam::make(starting);
    EXPECT_EQ(this->errorOf([&] { unstarted->start(); }), error);
    EXPECT_EQ(unstarted->terminalState(), (CaptureSourceTerminalState{true, false}));
  }
}

TYPED_TEST(CaptureSourceTest, OpensNothingThatIsDeniedAlready) {
  TypeParam::status(this->world) = CaptureAuthorizationStatus::denied;
  this->world.devices.reachable = false; // comes only later
  const auto source = TypeParam::make(this->world);
  EXPECT_EQ(this->errorOf([&] { source->start(); }), TypeParam::denied());
  EXPECT_THAT(this->world.devices.calls(), IsEmpty());
}

TYPED_TEST(CaptureSourceTest, LetsTheDeviceDecideWhereNothingIsDenied) {
  using enum CaptureAuthorizationStatus;
  for (const CaptureAuthorizationStatus status : {notDetermined, restricted, authorized}) {
    World fresh;
    TypeParam::status(fresh) = status;
    const auto source = TypeParam::make(fresh);
    source->start();
    EXPECT_TRUE(TypeParam::device(fresh).isRunning());
  }
}

// ---- Waiting

TYPED_TEST(CaptureSourceTest, DoesNotWaitForWhatHasCome) {
  const auto source = TypeParam::make(this->world);
  source->start();
  TypeParam::deliver(this->world);
  this->world.scheduler.runPending();
  TypeParam::await(*source);
  EXPECT_THAT(this->world.slept, IsEmpty());
}

TYPED_TEST(CaptureSourceTest, WaitsFortyRoundsFiftyMillisecondsApart) {
  for (const bool comesInTime : {true, false}) {
    World fresh;
    const auto source = TypeParam::make(fresh);
    source->start();
    // Before the last look, which is the fortieth, it has slept 39 times.
    fresh.onSleep = [&](std::size_t before) {
      if (comesInTime && before == 38)
        TypeParam::deliver(fresh);
    };
    EXPECT_EQ(this->errorOf([&] { TypeParam::await(*source); }),
              comesInTime ? std::nullopt : std::optional(TypeParam::unavailable()));
    EXPECT_EQ(fresh.slept, std::vector(39, 50ms));
  }
}

TYPED_TEST(CaptureSourceTest, AStopEndsTheWaitInTheNextRound) {
  const auto source = TypeParam::make(this->world);
  source->start();
  this->world.onSleep = [&](std::size_t before) {
    if (before == 2)
      source->stop();
  };
  EXPECT_EQ(this->errorOf([&] { TypeParam::await(*source); }), TypeParam::unavailable());
  EXPECT_EQ(this->world.slept.size(), 3U);
}

TYPED_TEST(CaptureSourceTest, AnEndOfTheDeviceEndsTheWaitEvenBehindADelivery) {
  const auto source = TypeParam::make(this->world);
  source->start();
  TypeParam::deliver(this->world);
  this->world.scheduler.runPending();
  TypeParam::device(this->world).end();
  EXPECT_EQ(this->errorOf([&] { TypeParam::await(*source); }), TypeParam::unavailable());
}

// ---- Ending

TYPED_TEST(CaptureSourceTest, ADeviceThatIsUnpluggedFailsTheSourceOnce) {
  const auto source = TypeParam::make(this->world);
  source->start();
  TypeParam::device(this->world).end();
  EXPECT_EQ(this->world.failures, 1);
  EXPECT_EQ(source->terminalState(), (CaptureSourceTerminalState{true, true}));
  TypeParam::device(this->world).end();
  EXPECT_EQ(this->world.failures, 1);
  source->stop();
  EXPECT_EQ(source->terminalState(), (CaptureSourceTerminalState{true, true})) << "the first end stays";
  EXPECT_EQ(TypeParam::device(this->world).stopCount(), 1U);
}

TYPED_TEST(CaptureSourceTest, AStopIsNoFailureAndFinal) {
  const auto source = TypeParam::make(this->world);
  source->start();
  source->stop();
  source->stop();
  EXPECT_EQ(source->terminalState(), (CaptureSourceTerminalState{true, false}));
  EXPECT_THAT(this->world.devices.calls(),
              ElementsAre(this->call("open"), this->call("start"), this->call("stop")));
  TypeParam::device(this->world).end();
  EXPECT_EQ(this->world.failures, 0);
}

TYPED_TEST(CaptureSourceTest, AnEndInTheMiddleOfAStopIsNoFailure) {
  const auto source = TypeParam::make(this->world);
  source->start();
  TypeParam::device(this->world).onStop = [&] { TypeParam::device(this->world).end(); };
  source->stop();
  EXPECT_EQ(this->world.failures, 0);
}

TYPED_TEST(CaptureSourceTest, MayBeStoppedWithoutHavingStarted) {
  const auto source = TypeParam::make(this->world);
  source->stop();
  EXPECT_EQ(source->terminalState(), (CaptureSourceTerminalState{true, false}));
}

TYPED_TEST(CaptureSourceTest, StopsItsDeviceWhenItGoes) {
  auto source = TypeParam::make(this->world);
  source->start();
  TypeParam::deliver(this->world);
  source.reset();
  EXPECT_EQ(TypeParam::device(this->world).stopCount(), 1U);
  EXPECT_TRUE(TypeParam::device(this->world).isDestroyed());
  EXPECT_EQ(this->world.scheduler.pendingCount(), 0U);
}

} // namespace
} // namespace tessarin
