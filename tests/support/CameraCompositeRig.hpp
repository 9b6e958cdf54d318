#pragma once

#include "recording/CameraCompositeRecorder.hpp"
#include "support/ManualQueue.hpp"
#include "support/ScriptedDevices.hpp"
#include "support/ScriptedMediaWriter.hpp"
#include "support/ScriptedScreenStream.hpp"

#include <gmock/gmock.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tessarin {

// A recorder at 10 frames a second (so that an interval is 100 ms), attached to a stream, all of its queues
// and its clock turned by hand. Times of a test count from the epoch.
class CameraCompositeTest : public ::testing::Test {
 protected:
  using Time = ManualClock::Duration;

  // Host time at which the first picture of a test comes.
  static constexpr std::chrono::seconds epoch{10};

  CameraCompositeTest() {
    settings.frameRate = 10;
    plan.outputWidth = 640;
    plan.outputHeight = 480;
    plan.averageBitRate = 2'000'000;
  }
  ~CameraCompositeTest() override { destroy(); }

  // A running camera whose newest picture is numbered 100. Its track comes behind the screen's.
  void useCamera(std::int32_t width = 320, std::int32_t height = 240) {
    camera = std::make_unique<CameraOverlaySource>(
        devices, authorization, std::nullopt, clock, makeSourceQueue, [](SerialQueue::Duration) {}, [] {});
    camera->start();
    show(100, width, height);
  }
  // A running microphone. Its track is the last.
  void useMicrophone() {
    settings.microphone = true;
    microphone = std::make_unique<MicrophoneCaptureSource>(
        devices, authorization, std::nullopt, makeSourceQueue, [](SerialQueue::Duration) {}, [] {});
    microphone->start();
  }
  void useSystemAudio() { settings.systemAudio = true; }

  void make() {
    makeStream();
    recorder = std::make_unique<CameraCompositeRecorder>(
        CameraCompositeSetup{
            .outputPath = outputPath,
            .plan = plan,
            .settings = settings,
            .camera = camera.get(),
            .cameraPixelSize = camera ? camera->currentFrameSize() : std::nullopt,
            .microphone = microphone.get(),
            .media = *mediaFactory,
            .clock = clock,
            .diagnostics = [this](const std::string& line) { lines.push_back(line); },
            .wroteScreenFrame =
                [this] {
                  ++framesTold;
                  if (whenFrameIsTold)
                    whenFrameIsTold();
                },
            .receivedAudio = [this](RecordingHealthMonitor::Lane lane,
                                    const PcmView& audio) { soundTold.emplace_back(lane, audio.frameCount); },
            .failureHandler = [this] { ++failuresTold; }},
        makeQueue);
  }
  void makeStream() {
    if (stream)
      return;
    StreamConfiguration configuration;
    configuration.capturesAudio = settings.systemAudio;
    stream = std::make_unique<RecordingStream>(streams, devices, ContentFilter(), configuration,
                                               std::weak_ptr<ScreenStreamDelegate>(), [] {});
  }
  void makeAttached() {
    make();
    recorder->attach(*stream);
    if (settings.systemAudio && devices.systemAudios.empty())
      stream->startCapture();
  }
  void destroy() {
    if (recorder)
      recorder->detach(*stream);
    recorder.reset();
  }

  static std::optional<NativeServiceError> errorOf(const std::function<void()>& work) {
    try {
      work();
      return std::nullopt;
    } catch (const NativeServiceError& error) {
      return error;
    }
  }

  static MediaTime hostTime(Time time) { return MediaTime::nanoseconds((epoch + time).count()); }

  // The stream delivers a picture at that time, and the clock stands there.
  void deliver(std::uint8_t picture, Time time) {
    clock.set(epoch + time);
    streams.streams[0]->deliver(picture, clock.now());
  }
  // The camera has a new picture.
  void show(std::uint8_t number, std::int32_t width = 320, std::int32_t height = 240) {
    devices.cameras.at(0)->deliver(numberedCameraFrame(number, width, height, clock.now()));
    scheduler.runPending();
  }
  // So many frames of sound that began at that time reach the writer.
  void play(std::size_t frames, Time time) {
    devices.systemAudios.at(0)->deliver(steadySample(0.5F, frames, hostTime(time)));
    scheduler.runPending();
  }
  void speak(std::size_t frames, Time time) {
    devices.microphones.at(0)->deliver(steadySample(0.5F, frames, hostTime(time)));
    scheduler.runPending();
  }
  // Turns the clock to a time, timers included.
  void advanceTo(Time time) { scheduler.advance(epoch + time - clock.elapsed()); }

  ScriptedMediaFile& file() { return *media.files.at(0); }

  const NativeServiceError recordingFailed{NativeErrorCode::recordingFailed,
                                           "The screen recording could not be completed.", true};
  const NativeServiceError cameraUnavailable{
      NativeErrorCode::cameraUnavailable,
      "The selected camera is unavailable. Finalized screen recording segments were preserved.", true};
  const NativeServiceError microphoneUnavailable{
      NativeErrorCode::microphoneUnavailable,
      "The selected microphone is unavailable. Finalized screen recording segments were preserved.", true};

  ManualClock clock{epoch};
  ManualScheduler scheduler{clock};
  QueueFactory makeQueue = scheduler.queueFactory();       // for the recorder
  QueueFactory makeSourceQueue = scheduler.queueFactory(); // for camera and microphone
  ScriptedMediaFileWriterFactory media;
  MediaFileWriterFactory* mediaFactory = &media;
  std::string outputPath = "/session/segments/segment-0000.mp4";
  ScriptedScreenStreamFactory streams{clock};
  ScriptedDevices devices;
  ScriptedCaptureAuthorization authorization;
  std::unique_ptr<CameraOverlaySource> camera;
  std::unique_ptr<MicrophoneCaptureSource> microphone;
  std::unique_ptr<RecordingStream> stream;
  RecordingConfigurationPlan plan;
  RecordingSettingsDTO settings;
  std::vector<std::string> lines;
  int framesTold = 0;
  std::function<void()> whenFrameIsTold;
  std::vector<std::pair<RecordingHealthMonitor::Lane, std::size_t>> soundTold; // frames of each sample
  int failuresTold = 0;
  std::unique_ptr<CameraCompositeRecorder> recorder;
};

// The line of a failure without an error of the file's own.
inline std::string writerFailedLine(const std::string& stage, int status) {
  return "tessarin-native recording-writer-failed stage=" + stage + " status=" + std::to_string(status) +
         " domain=none code=0 underlyingDomain=none underlyingCode=0";
}

} // namespace tessarin
