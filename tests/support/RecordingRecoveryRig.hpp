#pragma once

#include "base/Json.hpp"
#include "model/MediaErrors.hpp"
#include "recording/RecordingRecoveryService.hpp"
#include "support/FailureOf.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/ScriptedReencoder.hpp"
#include "support/SyntheticMovie.hpp"
#include "support/TemporaryDirectory.hpp"

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace tessarin {

// A session directory with segments that nobody has completed, and a recovery of it.
class RecordingRecoveryTest : public ::testing::Test {
 protected:
  using Error = RecordingRecoveryError;
  using Names = std::vector<std::string>;
  static constexpr const char* sessionID = "0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69";

  RecordingRecoveryTest() {
    std::filesystem::create_directories(at("segments"));
    request.sessionID = sessionID;
    request.outputDirectory = session();
    reencoder.fails = true;
  }

  std::string session() const { return directory / sessionID; }
  std::string at(const std::string& name) const { return session() + '/' + name; }

  // The path of a new segment, which the request names.
  std::string segment(const std::vector<testing::SyntheticTrack>& tracks, bool isFinished = true) {
    const std::string path =
        at("segments/segment-000" + std::to_string(request.segmentPaths.size()) + ".mp4");
    testing::writeSyntheticMovie(path, tracks, isFinished);
    request.segmentPaths.push_back(path);
    return path;
  }
  // A segment of every source.
  std::string fullSegment(std::size_t milliseconds, bool isFinished = true) {
    return segment({testing::videoOf(milliseconds), testing::videoOf(milliseconds),
                    testing::audioOf(milliseconds), testing::audioOf(milliseconds)},
                   isFinished);
  }
  void askForEverything() {
    request.recoverCamera = request.recoverSystemAudio = true;
    request.recoverMicrophone = request.recoverInteractions = true;
  }
  // An output that is there before the recovery.
  std::string existing(const std::string& name, const std::vector<testing::SyntheticTrack>& tracks) const {
    testing::writeSyntheticMovie(at(name), tracks);
    return at(name);
  }
  void write(const std::string& name, const std::string& bytes) const {
    directory.write(std::string(sessionID) + '/' + name, bytes);
  }
  std::string bytesOf(const std::string& name) const {
    return directory.read(std::string(sessionID) + '/' + name);
  }

  RecordingRecoveryPayload recover() { return service.recovery(request); }
  std::optional<Error> error() {
    return failureOf<Error>([&] { recover(); });
  }
  // Everything in the session's directory but the segments, hidden names too.
  Names names() const {
    Names found;
    for (const auto& entry : std::filesystem::directory_iterator(session()))
      if (entry.path().filename() != "segments")
        found.push_back(entry.path().filename().string());
    std::sort(found.begin(), found.end());
    return found;
  }
  static Names ids(const RecordingRecoveryPayload& payload) {
    Names found;
    for (const CaptureTrackPayload& track : payload.tracks)
      found.push_back(track.id);
    return found;
  }
  // The bytes of all segments, by name.
  std::map<std::string, std::string> segments() const {
    std::map<std::string, std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(at("segments")))
      if (entry.is_regular_file())
        found[entry.path().filename().string()] = bytesOf("segments/" + entry.path().filename().string());
    return found;
  }

  TemporaryDirectory directory;
  FaultyFileSystem files{machineFileSystem()};
  ScriptedReencoder reencoder;
  const RecordingRecoveryService service{files, reencoder};
  RecordingRecoveryRequestDTO request;
};

inline const std::vector<std::string> everyOutput = {"camera.mp4", "microphone.m4a", "recording.mp4",
                                                     "screen.mp4", "system-audio.m4a"};

} // namespace tessarin
