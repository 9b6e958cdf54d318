#pragma once

#include "recording/RecordingSegmentStore.hpp"
#include "support/RecordingRig.hpp"

#include <gmock/gmock.h>

#include <string>
#include <vector>

// What tests of whole sessions expect: the lines that a host sees, and what is left when one has ended.
namespace tessarin::testing {

inline std::string state(const std::string& phase, int activeDurationMs) {
  return R"({"activeDurationMs":)" + std::to_string(activeDurationMs) +
         R"(,"event":"stateChanged","phase":")" + phase + R"(","schemaVersion":2,"sessionId":"ID"})";
}

inline std::string segmentFinalized(int index, int durationMs, int activeDurationMs) {
  return R"({"activeDurationMs":)" + std::to_string(activeDurationMs) + R"(,"durationMs":)" +
         std::to_string(durationMs) + R"(,"event":"segmentFinalized","index":)" + std::to_string(index) +
         R"(,"path":"DIR/segments/segment-000)" + std::to_string(index) +
         R"(.mp4","schemaVersion":2,"sessionId":"ID","sizeBytes":SIZE})";
}

// The tracks that a completed event lists.
inline std::string videoTrackOf(const std::string& id, const std::string& kind, int durationMs, int width,
                                int height) {
  return R"({"codec":"h264","durationMs":)" + std::to_string(durationMs) + R"(,"heightPixels":)" +
         std::to_string(height) + R"(,"id":")" + id + R"(","kind":")" + kind +
         R"(","mediaType":"video","path":"DIR/)" + id + R"(.mp4","sizeBytes":SIZE,"widthPixels":)" +
         std::to_string(width) + "}";
}
inline std::string soundTrackOf(const std::string& id, const std::string& kind, int durationMs) {
  return R"({"channelCount":2,"durationMs":)" + std::to_string(durationMs) + R"(,"id":")" + id +
         R"(","kind":")" + kind + R"(","mediaType":"audio","path":"DIR/)" + id +
         R"(.m4a","sampleRateHz":48000,"sizeBytes":SIZE})";
}
inline std::string screenTrack(int durationMs) {
  return videoTrackOf("screen", "screenVideo", durationMs, 1920, 1080);
}
inline std::string cameraTrack(int durationMs, int width = 64, int height = 48) {
  return videoTrackOf("camera", "cameraVideo", durationMs, width, height);
}
inline std::string systemAudioTrack(int durationMs) {
  return soundTrackOf("system-audio", "systemAudio", durationMs);
}
inline std::string microphoneTrack(int durationMs) {
  return soundTrackOf("microphone", "microphoneAudio", durationMs);
}

// With the tracks behind the screen's as they are given.
inline std::string completed(int captureDurationMs, int programDurationMs,
                             const std::vector<std::string>& furtherTracks = {}) {
  const std::string duration = std::to_string(programDurationMs);
  std::string tracks = screenTrack(programDurationMs);
  for (const std::string& track : furtherTracks)
    tracks += "," + track;
  return R"({"clock":{"captureDurationMs":)" + std::to_string(captureDurationMs) +
         R"(,"epochHostTimeNs":10000000000,"programDurationMs":)" + duration +
         R"(},"deliverables":[{"codec":"h264","durationMs":)" + duration +
         R"(,"heightPixels":1080,"id":"share-video","kind":"shareVideo","path":"DIR/recording.mp4",)" +
         R"("sizeBytes":SIZE,"widthPixels":1920}],"event":"completed","schemaVersion":2,"sessionId":"ID",)" +
         R"("tracks":[)" + tracks + "]}";
}

inline std::string failed(const std::string& code, const std::string& message) {
  return R"({"error":{"code":")" + code + R"(","message":")" + message +
         R"(","recoverable":true},"event":"failed","schemaVersion":2,"sessionId":"ID"})";
}

inline const std::string cancelled = R"({"event":"cancelled","schemaVersion":2,"sessionId":"ID"})";
inline const std::string recordingFailed =
    failed("recordingFailed", "The screen recording could not be completed.");

inline const std::string outputFailed =
    failed("outputFailed", "The screenshot could not be written to its temporary output.");
inline const std::string contentUnavailable =
    failed("contentUnavailable", "Shareable screen content is temporarily unavailable.");
inline const std::string microphoneUnavailable =
    failed("microphoneUnavailable",
           "The selected microphone is unavailable. Finalized screen recording segments were preserved.");
inline const std::string microphoneDenied =
    failed("microphoneDenied", "Microphone access is required when microphone recording is enabled.");
inline const std::string cameraUnavailable =
    failed("cameraUnavailable",
           "The selected camera is unavailable. Finalized screen recording segments were preserved.");
inline const std::string cameraDenied =
    failed("cameraDenied", "Camera access is required when camera picture-in-picture is enabled.");

inline std::string failedLine(const std::string& stage, const std::string& code = "recordingFailed") {
  return "tessarin-native recording-failed stage=" + stage + " nativeCode=" + code;
}

inline std::vector<NativeRecordingSegment> manifestSegments(RecordingRig& rig) {
  return json::decode<NativeRecordingManifest>(rig.read("native-manifest.json")).segments;
}

// No device runs on, and nobody holds it.
inline void expectDevicesStopped(RecordingRig& rig) {
  for (const auto* const devices :
       {&rig.devices.microphones, &rig.devices.cameras, &rig.devices.systemAudios})
    for (const auto& device : *devices) {
      EXPECT_FALSE(device->isRunning());
      EXPECT_TRUE(device->isDestroyed());
    }
}

// Nothing of a session runs on once it has ended.
inline void expectQuiet(RecordingRig& rig) {
  EXPECT_EQ(rig.scheduler.timerCount(), 0u);
  EXPECT_EQ(rig.scheduler.pendingCount(), 0u);
  EXPECT_EQ(rig.stream().outputCount(), 0u);
  EXPECT_THAT(rig.stream().calls, ::testing::Contains("stopCapture").Times(1));
  expectDevicesStopped(rig);
}

} // namespace tessarin::testing
