// Segments of the real module that were cut anywhere, and what a recovery makes of them.

#include "SoundTesting.hpp"

#include "backends/posix/ModuleAudioReencoder.hpp"
#include "model/MediaErrors.hpp"
#include "recording/RecordingRecoveryService.hpp"
#include "support/FailureOf.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <string_view>

namespace tessarin {
namespace {

const std::string sessionID = "0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69";
const std::vector<std::string> outputs = {"screen.mp4", "camera.mp4", "system-audio.m4a", "microphone.m4a",
                                          "recording.mp4"};

std::string bytesAt(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::uint32_t numberAt(const std::string& bytes, std::size_t at) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 4; ++i)
    value = value << 8 | static_cast<std::uint8_t>(bytes.at(at + i));
  return value;
}

// Where every box from one place to another begins and ends, those within it as well.
void collectBoundaries(const std::string& bytes, std::size_t from, std::size_t to,
                       std::set<std::size_t>& found, std::vector<std::size_t>* mediaEnds = nullptr) {
  constexpr std::size_t headerBytes = 8;
  while (to - from >= headerBytes) {
    const std::size_t end = from + numberAt(bytes, from);
    const std::string_view type = std::string_view(bytes).substr(from + 4, 4);
    ASSERT_TRUE(end > from && end <= to) << type << " at " << from;
    found.insert({from, from + headerBytes, end});
    for (const std::string_view parent : {"moov", "trak", "mdia", "minf", "stbl", "mvex", "moof", "traf"})
      if (type == parent)
        collectBoundaries(bytes, from + headerBytes, end, found);
    if (mediaEnds != nullptr && type == "mdat")
      mediaEnds->push_back(end);
    from = end;
  }
}

// A segment of all sources as it is on disk just before it is made an ordinary file: four fragments and the
// new index behind them.
class TornRecovery : public testing::Test {
 protected:
  TornRecovery() {
    rig.options.initialFragmentInterval = rig.options.fragmentInterval = MediaTime(600, 600);
    recordSegment(rig, "whole.mp4", 42, {tone(437.3), tone(880)}, 2);
    whole = bytesAt(rig.path("whole.mp4"));
    grown = whole;
    const std::size_t header = numberAt(grown, 0); // behind the file type
    EXPECT_EQ(grown.substr(header, 8), std::string("\0\0\0\1mdat", 8));
    grown.replace(header, 16,
                  std::string("\0\0\0\x10"
                              "free\0\0\0\0\0\0\0\0",
                              16));
    collectBoundaries(grown, 0, grown.size(), boundaries, &mediaEnds);

    std::filesystem::create_directories(rig.path(sessionID) + "/segments");
    request.sessionID = sessionID;
    request.outputDirectory = rig.path(sessionID);
    request.segmentPaths = {rig.path(sessionID) + "/segments/segment-0000.mp4"};
    request.recoverCamera = request.recoverSystemAudio = request.recoverMicrophone = true;
  }

  std::string at(const std::string& name) const { return request.outputDirectory + '/' + name; }
  std::size_t wholeFragments(std::size_t size) const {
    return static_cast<std::size_t>(
        std::count_if(mediaEnds.begin(), mediaEnds.end(), [&](std::size_t end) { return end <= size; }));
  }

  struct Recovered {
    RecordingRecoveryPayload payload;
    std::map<std::string, std::string> files;
    bool operator==(const Recovered&) const = default;
  };
  // What is made of a segment of these bytes; nothing when it is a failed merge that leaves nothing.
  std::optional<Recovered> recovered(const std::string& bytes) {
    for (const std::string& name : outputs)
      std::filesystem::remove(at(name));
    std::ofstream(request.segmentPaths[0], std::ios::binary | std::ios::trunc) << bytes;
    std::optional<Recovered> result = Recovered();
    const auto failure =
        failureOf<RecordingRecoveryError>([&] { result->payload = service.recovery(request); });
    EXPECT_EQ(bytesAt(request.segmentPaths[0]), bytes) << "the segment was changed";
    std::size_t entries = 0;
    for (const auto& entry : std::filesystem::directory_iterator(request.outputDirectory))
      entries += entry.path().filename() != "segments" ? 1 : 0;
    EXPECT_EQ(entries, failure ? 0 : outputs.size());
    if (failure) {
      EXPECT_EQ(*failure, RecordingRecoveryError::mergeFailed);
      return std::nullopt;
    }
    for (const std::string& name : outputs)
      result->files[name] = bytesAt(at(name));
    return result;
  }
  // What another program says of the files that are there now: nothing.
  void expectPlayable(const RecordingRecoveryPayload& payload) const {
    const auto expectLength = [](const std::string& path, std::int64_t milliseconds) {
      EXPECT_EQ(outputOf("ffmpeg -nostdin -v error -xerror -i '" + path + "' -map 0 -f null -"), "") << path;
      const double seconds =
          std::stod(outputOf("ffprobe -v error -show_entries format=duration -of csv=p=0 '" + path + "'"));
      EXPECT_NEAR(seconds * 1000, static_cast<double>(milliseconds), 25) << path;
    };
    for (const CaptureTrackPayload& track : payload.tracks) {
      // The sound that the coder had not finished yet is missing at the end.
      EXPECT_NEAR(static_cast<double>(track.durationMs), static_cast<double>(payload.clock.programDurationMs),
                  250)
          << track.id;
      expectLength(track.path, track.durationMs);
    }
    expectLength(at("recording.mp4"), payload.clock.programDurationMs);
  }

  MediaModuleRig rig;
  ModuleLoader loader{{TESSARIN_MODULE_DIRECTORY}, [](const std::string&) {}};
  ModuleAudioReencoder reencoder{loader, machineFileSystem()};
  const RecordingRecoveryService service{machineFileSystem(), reencoder};
  RecordingRecoveryRequestDTO request;
  std::string whole;
  std::string grown;
  std::set<std::size_t> boundaries;
  std::vector<std::size_t> mediaEnds; // of each fragment
};

TEST_F(TornRecovery, ASegmentThatIsCutAnywhereIsRecoveredUpToItsLastWholeFragment) {
  ASSERT_GE(mediaEnds.size(), 4U);
  // What each number of whole fragments gives, and that it plays.
  std::vector<std::optional<Recovered>> expected{std::nullopt};
  for (const std::size_t end : mediaEnds) {
    expected.push_back(recovered(grown.substr(0, end)));
    ASSERT_TRUE(expected.back()) << end;
    expectPlayable(expected.back()->payload);
    if (expected.size() > 2) {
      EXPECT_GT(expected.back()->payload.clock.programDurationMs,
                expected[expected.size() - 2]->payload.clock.programDurationMs);
    }
  }

  std::set<std::size_t> cuts;
  for (const std::size_t boundary : boundaries)
    for (const std::size_t cut : {boundary - 7, boundary - 1, boundary, boundary + 1, boundary + 7})
      if (cut <= grown.size()) // what is below zero has wrapped
        cuts.insert(cut);
  std::minstd_rand random(7);
  for (int i = 0; i < 60; ++i)
    cuts.insert(random() % grown.size());
  ASSERT_GT(cuts.size(), 300U);
  for (const std::size_t cut : cuts)
    EXPECT_TRUE(recovered(grown.substr(0, cut)) == expected.at(wholeFragments(cut))) << cut;
}

TEST_F(TornRecovery, ZerosBehindTheLastWholeFragmentAreNoMedia) {
  const std::size_t end = mediaEnds.at(1);
  const auto expected = recovered(grown.substr(0, end));
  for (const std::size_t zeros : {std::size_t{1}, std::size_t{8}, std::size_t{4096}, std::size_t{100'000}})
    EXPECT_TRUE(recovered(grown.substr(0, end) + std::string(zeros, '\0')) == expected) << zeros;
  // A fragment's bytes that never reached the disk, though the file is as long as with them.
  const std::size_t next = mediaEnds.at(2);
  EXPECT_TRUE(recovered(grown.substr(0, end) + std::string(next - end, '\0')) == expected);
}

TEST_F(TornRecovery, AFinishedSegmentAndOneThatWasAboutToBeAreAsLong) {
  const auto finished = recovered(whole);
  ASSERT_TRUE(finished);
  expectPlayable(finished->payload);
  const auto almost = recovered(grown);
  ASSERT_TRUE(almost);
  EXPECT_EQ(almost->payload.clock, finished->payload.clock);
}

TEST_F(TornRecovery, AWholeSegmentAndATornOneAreJoined) {
  const auto alone = recovered(grown.substr(0, mediaEnds.at(1)));
  ASSERT_TRUE(alone);
  std::ofstream(at("segments/segment-0001.mp4"), std::ios::binary) << whole;
  request.segmentPaths = {at("segments/segment-0001.mp4"), at("segments/segment-0000.mp4")};
  for (const std::string& name : outputs)
    std::filesystem::remove(at(name));
  const RecordingRecoveryPayload payload = service.recovery(request);
  EXPECT_NEAR(static_cast<double>(payload.clock.programDurationMs),
              static_cast<double>(4200 + alone->payload.clock.programDurationMs), 1);
  expectPlayable(payload);
}

} // namespace
} // namespace tessarin
