#include "SoundTesting.hpp"

#include "backends/posix/ModuleAudioReencoder.hpp"
#include "container/MovieJoin.hpp"
#include "recording/RecordingMediaValidator.hpp"
#include "recording/RecordingMerger.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <numbers>

// Segments with real sound, joined and coded anew: what is heard where.
namespace tessarin {
namespace {

using testing::ElementsAre;
using Paths = std::vector<std::string>;

constexpr std::int64_t rate = 48000;
constexpr std::int64_t millisecond = 48;        // frames
constexpr std::int64_t framesPerPicture = 4800; // at ten a second

// What a tone's own equation leaves over: near zero for a tone, and as large as a click within it.
float roughness(const std::vector<float>& sound, double hertz, std::int64_t from, std::int64_t to) {
  const auto twice = static_cast<float>(2 * std::cos(2 * std::numbers::pi * hertz / rate));
  float most = 0;
  for (std::int64_t i = from; i < to; ++i) {
    const auto at = static_cast<std::size_t>(i);
    most = std::max(most, std::abs(sound.at(at + 1) - twice * sound.at(at) + sound.at(at - 1)));
  }
  return most;
}

class SoundJoin : public testing::Test {
 protected:
  void segment(int pictures, const std::vector<SoundSource>& lanes) {
    const std::string name = "segment-" + std::to_string(segments.size()) + ".mp4";
    recordSegment(rig, name, pictures, lanes);
    segments.push_back(rig.path(name));
    pictureCounts.push_back(pictures);
  }
  // One source over all segments without a break.
  void split(const SoundSource& source, const std::vector<int>& pictures) {
    std::int64_t start = 0;
    for (const int count : pictures) {
      segment(count, {[source, start](std::int64_t frame) { return source(start + frame); }});
      start += count * framesPerPicture;
    }
  }
  // Where segments begin on the joined time line, and where the last one ends.
  std::vector<std::int64_t> joints() const {
    std::vector<std::int64_t> found{0};
    for (const int count : pictureCounts)
      found.push_back(found.back() + count * framesPerPicture);
    return found;
  }
  std::string merged(const std::string& name = "sound.m4a", std::int64_t lane = 0) {
    merger.mergeAudio(segments, rig.path(name), lane);
    return rig.path(name);
  }
  // The same by the second way.
  std::string codedAnew(const std::string& name = "anew.m4a") {
    rig.files.inject({FileOperation::copy, "", 0, 1, EIO, std::nullopt});
    return merged(name);
  }
  void expectDuration(const std::string& path, MediaTime duration) {
    const container::Movie movie = container::readMovie(*machineFileSystem().open(path, OpenMode::read));
    EXPECT_EQ(movie.duration, duration) << path;
    for (const container::Track& track : movie.tracks)
      EXPECT_EQ(track.start, MediaTime::zero()) << path;
  }

  MediaModuleRig rig;
  ModuleLoader loader{{TESSARIN_MODULE_DIRECTORY}, [](const std::string&) {}};
  ModuleAudioReencoder reencoder{loader, rig.files};
  RecordingMerger merger{rig.files, reencoder};
  Paths segments;
  std::vector<int> pictureCounts;
};

// 1.6 s is a whole number of packets. The tone is far from zero where it is cut.
constexpr double hertz = 437.3;

TEST_F(SoundJoin, runsOnOverAJointWithoutAClickOrAGap) {
  split(tone(hertz), {16, 16, 16});
  const std::string path = merged();
  expectDuration(path, MediaTime(48, 10));
  for (const Decoding decoding : {Decoding::inARow, Decoding::byTime}) {
    const std::vector<float> sound = decoded(path, 0, decoding);
    EXPECT_EQ(std::ssize(sound), 48 * framesPerPicture);
    EXPECT_LT(roughness(sound, hertz, 2048, 48 * framesPerPicture - 2048), 0.06F) << "a cut leaves 0.5";
    for (std::int64_t at = 0; at + 256 < std::ssize(sound); at += 256)
      ASSERT_NEAR(loudest(sound, at, at + 256), 0.5F, 0.25F) << at;
    // The tone itself where no packet is shared.
    for (const std::int64_t joint : {std::int64_t{0}, 16 * framesPerPicture, 32 * framesPerPicture})
      for (std::int64_t at = joint + 8; at < joint + 16 * framesPerPicture - 1100; at += 97)
        ASSERT_NEAR(sound[static_cast<std::size_t>(at)], tone(hertz)(at), 0.08F) << at - joint;
  }
}

TEST_F(SoundJoin, runsOnSmoothlyWherePacketsDoNotMeet) {
  split(tone(hertz), {17, 13, 19});
  const std::vector<float> sound = decoded(merged(), 0);
  EXPECT_LT(roughness(sound, hertz, 2048, 49 * framesPerPicture - 2048), 0.06F);
  for (std::int64_t at = 0; at + 256 < 49 * framesPerPicture; at += 256)
    ASSERT_NEAR(loudest(sound, at, at + 256), 0.5F, 0.3F) << at;
}

TEST_F(SoundJoin, placesEverySegmentsSoundExactlyHoweverManyThereAre) {
  std::vector<std::int64_t> expected;
  for (int i = 0; i < 12; ++i)
    segment(7 + i % 5, {clicks({rate / 2})});
  for (const std::int64_t joint : joints())
    expected.push_back(joint + rate / 2);
  expected.pop_back();

  const std::string path = merged();
  expectDuration(path, MediaTime(joints().back(), rate));
  const auto byTime = peaks(decoded(path, 0, Decoding::byTime));
  const auto inARow = peaks(decoded(path, 0, Decoding::inARow));
  ASSERT_EQ(byTime.size(), expected.size());
  ASSERT_EQ(inARow.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_NEAR(static_cast<double>(byTime[i] - expected[i]), 0, millisecond) << i;
    EXPECT_NEAR(static_cast<double>(inARow[i] - expected[i]), 0, 513) << i << ", half a packet";
  }
  // By the index alone.
  const container::Movie movie = container::readMovie(*machineFileSystem().open(path, OpenMode::read));
  const container::Track& track = movie.tracks.at(0);
  for (const std::int64_t joint : joints())
    if (joint < joints().back()) {
      EXPECT_TRUE(std::any_of(track.samples.begin(), track.samples.end(), [&](const auto& sample) {
        return sample.decodeTime - track.presentationStart == joint;
      })) << joint;
    }
}

TEST_F(SoundJoin, keepsTheTimeOfALateSource) {
  for (int i = 0; i < 2; ++i) {
    const std::string name = "late-" + std::to_string(i) + ".mp4";
    SegmentRecording recording(rig, name, 1);
    for (int picture = 0; picture < 15; ++picture)
      ASSERT_TRUE(recording.appendPicture());
    ASSERT_TRUE(recording.appendSound(0, clicks({rate}), 9 * rate / 10, 15 * framesPerPicture));
    recording.finish();
    segments.push_back(rig.path(name));
  }
  const auto found = peaks(decoded(merged(), 0, Decoding::byTime));
  ASSERT_EQ(found.size(), 2U);
  EXPECT_NEAR(static_cast<double>(found[0] - rate), 0, millisecond);
  EXPECT_NEAR(static_cast<double>(found[1] - (5 * rate / 2)), 0, millisecond);
}

TEST_F(SoundJoin, putsBothLanesBesideThePictures) {
  segment(16, {clicks({rate}), clicks({rate + 4800})});
  segment(11, {clicks({rate / 2}), clicks({rate / 2 + 4800})});
  const std::string path = rig.path("recording.mp4");
  merger.mergeShareVideo(segments, {0, 1}, path);
  expectDuration(path, MediaTime(27, 10));
  const auto first = peaks(decoded(path, 0, Decoding::byTime));
  const auto second = peaks(decoded(path, 1, Decoding::byTime));
  ASSERT_EQ(first.size(), 2U);
  ASSERT_EQ(second.size(), 2U);
  EXPECT_NEAR(static_cast<double>(first[0] - rate), 0, millisecond);
  EXPECT_NEAR(static_cast<double>(first[1] - (16 * framesPerPicture + rate / 2)), 0, millisecond);
  EXPECT_NEAR(static_cast<double>(second[0] - (rate + 4800)), 0, millisecond);
  EXPECT_NEAR(static_cast<double>(second[1] - (16 * framesPerPicture + rate / 2 + 4800)), 0, millisecond);
  EXPECT_EQ(outputOf("ffmpeg -nostdin -v error -xerror -i '" + path + "' -map 0 -f null -"), "");
  const std::string microphone = merged("microphone.m4a", 1);
  EXPECT_THAT(peaks(decoded(microphone, 0, Decoding::byTime)), ElementsAre(second[0], second[1]));

  // Finished media as a session checks it.
  namespace validator = RecordingMediaValidator;
  EXPECT_EQ(validator::validateRecording(rig.files, path, MediaTime::zero(), 1, 2, 10).durationMs, 2700);
  EXPECT_TRUE(validator::validateAudio(rig.files, microphone, 2700));
  EXPECT_FALSE(validator::validateAudio(rig.files, microphone, 3000));
}

// ---- Coded anew

TEST_F(SoundJoin, codesAnewToTheFrameWhatCannotBeJoined) {
  segment(17, {clicks({100, rate})});
  segment(13, {clicks({rate / 2})});
  const std::string path = codedAnew();
  expectDuration(path, MediaTime(30, 10));
  const auto found = peaks(decoded(path, 0));
  ASSERT_EQ(found.size(), 3U);
  EXPECT_NEAR(static_cast<double>(found[0] - 100), 0, 2);
  EXPECT_NEAR(static_cast<double>(found[1] - rate), 0, 2);
  EXPECT_NEAR(static_cast<double>(found[2] - (17 * framesPerPicture + rate / 2)), 0, 2);
  EXPECT_EQ(outputOf("ffprobe -v error -show_entries format_tags=major_brand:stream=codec_name,sample_rate,"
                     "channels -of csv=p=0 '" +
                     path + "'"),
            "aac,48000,2\nM4A \n");
  EXPECT_TRUE(rig.files.count(FileOperation::rename) > 0);
}

TEST_F(SoundJoin, codesAnewAContinuousToneWithoutAClick) {
  split(tone(hertz), {17, 13});
  const std::vector<float> sound = decoded(codedAnew(), 0);
  EXPECT_LT(roughness(sound, hertz, 2048, 30 * framesPerPicture - 2048), 0.02F);
}

TEST_F(SoundJoin, codesSilenceBetweenPieces) {
  segment(10, {clicks({rate / 2})});
  reencoder.reencode({{segments[0], 0, MediaTime(1, 1), MediaTime(1, 1)},
                      {segments[0], 0, MediaTime(4, 1), MediaTime(1, 4)},
                      {segments[0], 0, MediaTime(5, 1), MediaTime(1, 1)}},
                     rig.path("pieces.m4a"));
  expectDuration(rig.path("pieces.m4a"), MediaTime(6, 1));
  const auto sound = decoded(rig.path("pieces.m4a"), 0);
  const auto found = peaks(sound);
  ASSERT_EQ(found.size(), 2U) << "the piece between is too short for its click";
  EXPECT_NEAR(static_cast<double>(found[0] - 3 * rate / 2), 0, 2);
  EXPECT_NEAR(static_cast<double>(found[1] - 11 * rate / 2), 0, 2);
  EXPECT_LT(loudest(sound, 0, rate), 0.01F);
  EXPECT_LT(loudest(sound, 2 * rate, 5 * rate), 0.01F);
}

// Another program's file: mono at 44100 Hz.
TEST_F(SoundJoin, codesAnewSoundOfAnotherForm) {
  segment(20, {clicks({rate / 2, rate})});
  const std::string other = rig.path("other.m4a");
  outputOf("ffmpeg -nostdin -v error -i '" + segments[0] + "' -map 0:a -ac 1 -ar 44100 -c:a aac '" + other +
           "'");
  reencoder.reencode({{other, 0, MediaTime::zero(), MediaTime(3, 2)}}, rig.path("anew.m4a"));
  expectDuration(rig.path("anew.m4a"), MediaTime(3, 2));
  const auto found = peaks(decoded(rig.path("anew.m4a"), 0));
  ASSERT_EQ(found.size(), 2U);
  EXPECT_NEAR(static_cast<double>(found[0] - rate / 2), 0, millisecond);
  EXPECT_NEAR(static_cast<double>(found[1] - rate), 0, millisecond);
}

TEST_F(SoundJoin, leavesNoFileWhenSoundCannotBeCodedAnew) {
  segment(10, {tone(hertz)});
  std::ofstream(rig.path("text.mp4")) << "no movie";
  const MediaTime second(1, 1);
  const auto fails = [&](const AudioPiece& piece) {
    EXPECT_THROW(reencoder.reencode({piece}, rig.path("no.m4a")), std::exception);
  };
  fails({rig.path("missing.mp4"), 0, MediaTime::zero(), second});
  fails({rig.path("text.mp4"), 0, MediaTime::zero(), second});
  fails({segments[0], 1, MediaTime::zero(), second});
  fails({segments[0], -1, MediaTime::zero(), second});
  for (const FileOperation operation : {FileOperation::write, FileOperation::sync, FileOperation::rename}) {
    rig.files.inject({operation, "", 0, 1, ENOSPC, std::nullopt});
    fails({segments[0], 0, MediaTime::zero(), second});
    rig.files.clearFaults();
  }
  std::ofstream(rig.path("existing.m4a")) << "kept";
  EXPECT_THROW(reencoder.reencode({{segments[0], 0, MediaTime::zero(), second}}, rig.path("existing.m4a")),
               std::exception);
  EXPECT_EQ(std::filesystem::file_size(rig.path("existing.m4a")), 4U);
  std::vector<std::string> names;
  for (const auto& entry :
       std::filesystem::directory_iterator(std::filesystem::path(segments[0]).parent_path()))
    names.push_back(entry.path().filename().string());
  EXPECT_THAT(names, testing::UnorderedElementsAre("segment-0.mp4", "text.mp4", "existing.m4a"));
}

} // namespace
} // namespace tessarin
