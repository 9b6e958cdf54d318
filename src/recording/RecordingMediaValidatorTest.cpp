#include "recording/RecordingMediaValidator.hpp"

#include "base/SafeFile.hpp"
#include "model/Errors.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/SyntheticMovie.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <optional>

namespace tessarin {
namespace {

using namespace tessarin::testing;
using container::Sample;
using container::Track;

class RecordingMediaValidatorTest : public ::testing::Test {
 protected:
  std::string movie(const std::vector<SyntheticTrack>& tracks, bool isFinished = true) {
    std::string path = directory / ("movie-" + std::to_string(count++) + ".mp4");
    writeSyntheticMovie(path, tracks, isFinished);
    return path;
  }

  // Nothing when the file does not pass.
  std::optional<ValidatedMedia> validated(const std::string& path, std::size_t videoTracks,
                                          std::size_t audioTracks, std::int64_t frameRate = 30) {
    try {
      return RecordingMediaValidator::validateRecording(files, path, MediaTime(), videoTracks, audioTracks,
                                                        frameRate);
    } catch (const NativeServiceError& error) {
      EXPECT_EQ(error, (NativeServiceError{NativeErrorCode::recordingFailed,
                                           "The screen recording could not be completed.", true}));
      return std::nullopt;
    }
  }

  bool audioPasses(const std::string& path, std::int64_t expectedDurationMs) {
    return RecordingMediaValidator::validateAudio(files, path, expectedDurationMs);
  }

  TemporaryDirectory directory;
  FaultyFileSystem files{machineFileSystem()};
  int count = 0;
};

TEST_F(RecordingMediaValidatorTest, TellsLengthAndSizeOfARecording) {
  const std::string path = movie({videoOf(1500)});
  const auto size = static_cast<std::int64_t>(std::filesystem::file_size(path));
  EXPECT_EQ(validated(path, 1, 0), (ValidatedMedia{1500, size}));
}

TEST_F(RecordingMediaValidatorTest, PassesWhatACrashHasLeftUpToItsLastFragment) {
  const std::string path = movie({videoOf(1500)}, false); // the last picture was still held back
  EXPECT_EQ(validated(path, 1, 0)->durationMs, 1467);
}

TEST_F(RecordingMediaValidatorTest, CountsTracksExactly) {
  const std::string path = movie({videoOf(1000), videoOf(1000), audioOf(1000)});
  EXPECT_TRUE(validated(path, 2, 1));
  EXPECT_FALSE(validated(path, 1, 1));
  EXPECT_FALSE(validated(path, 3, 1));
  EXPECT_FALSE(validated(path, 2, 0));
  EXPECT_FALSE(validated(path, 2, 2));
}

TEST_F(RecordingMediaValidatorTest, RefusesWhatIsNoRegularMediaFile) {
  EXPECT_FALSE(validated(directory / "missing.mp4", 1, 0));
  EXPECT_FALSE(validated(directory.write("empty.mp4", ""), 1, 0));
  EXPECT_FALSE(validated(directory.write("text.mp4", "no movie at all"), 1, 0));
  EXPECT_FALSE(validated(directory.path(), 1, 0));
  const std::string path = movie({videoOf(1000)});
  std::filesystem::create_symlink(path, directory / "link.mp4");
  EXPECT_FALSE(validated(directory / "link.mp4", 1, 0));
  std::filesystem::resize_file(path, std::filesystem::file_size(path) - 1);
  EXPECT_FALSE(validated(path, 1, 0));
}

TEST_F(RecordingMediaValidatorTest, RefusesAFileThatCannotBeRead) {
  const std::string path = movie({videoOf(1000)});
  for (const FileOperation operation : {FileOperation::info, FileOperation::open, FileOperation::read}) {
    files.failNth(operation, 1, EIO);
    EXPECT_FALSE(validated(path, 1, 0));
    EXPECT_TRUE(validated(path, 1, 0));
  }
}

TEST_F(RecordingMediaValidatorTest, RefusesATrackWithoutSamples) {
  SyntheticTrack empty = audioOf(1000);
  empty.sampleCount = 0;
  EXPECT_FALSE(validated(movie({videoOf(1000), empty}), 1, 1));
}

TEST_F(RecordingMediaValidatorTest, NeedsAMillisecondAtLeast) {
  SyntheticTrack shortest = videoOf(1);
  EXPECT_EQ(validated(movie({shortest}), 1, 0)->durationMs, 1);
  shortest.endTime = 44; // rounds to none
  EXPECT_FALSE(validated(movie({shortest}), 1, 0));
  shortest.endTime = 45;
  EXPECT_EQ(validated(movie({shortest}), 1, 0)->durationMs, 1);
}

// Sets the durations of all samples in the one table of a finished movie of equally long samples to zero.
void makeTimeless(const std::string& path) {
  const std::unique_ptr<OpenFile> file = machineFileSystem().open(path, OpenMode::readWrite);
  const std::string bytes = readWholeFile(machineFileSystem(), path, 1'000'000);
  const std::size_t table = bytes.rfind("stts");
  ASSERT_NE(table, std::string::npos);
  const std::size_t delta = table + 16; // behind the name, version, number of entries, number of samples
  const std::string zero(4, '\0');
  file->write(delta, std::as_bytes(std::span(zero)));
}

TEST_F(RecordingMediaValidatorTest, TakesTheFallbackWhereTheFileTellsNoLength) {
  const std::string path = movie({videoOf(1)});
  const auto lengthWith = [&](const std::string& file, MediaTime fallback) {
    return RecordingMediaValidator::validateRecording(files, file, fallback, 1, 0, 30).durationMs;
  };
  EXPECT_EQ(lengthWith(path, MediaTime::milliseconds(40)), 1);
  makeTimeless(path);
  EXPECT_EQ(lengthWith(path, MediaTime::milliseconds(40)), 40);
  for (const MediaTime useless : {MediaTime(), MediaTime::zero(), MediaTime::milliseconds(-1)})
    EXPECT_THROW(lengthWith(path, useless), NativeServiceError);
}

TEST_F(RecordingMediaValidatorTest, KeepsEveryTrackInStepWithTheFirstVideoTrack) {
  const auto passesWith = [&](std::int64_t startMs, std::size_t endMs) {
    SyntheticTrack audio = audioOf(endMs);
    audio.firstTime = startMs * 48;
    audio.sampleCount = 1;
    return validated(movie({videoOf(1000), audio}), 1, 1).has_value();
  };
  EXPECT_TRUE(passesWith(0, 1000));
  EXPECT_TRUE(passesWith(0, 750));
  EXPECT_FALSE(passesWith(0, 749));
  EXPECT_TRUE(passesWith(0, 1250));
  EXPECT_FALSE(passesWith(0, 1251));
  EXPECT_TRUE(passesWith(250, 1000));
  EXPECT_FALSE(passesWith(251, 1000));
}

TEST_F(RecordingMediaValidatorTest, MatchesTwoVideoTracksMoreClosely) {
  EXPECT_TRUE(validated(movie({videoOf(1000), videoOf(1100)}), 2, 0));
  EXPECT_FALSE(validated(movie({videoOf(1000), videoOf(1101)}), 2, 0));
  EXPECT_TRUE(validated(movie({videoOf(1000), videoOf(866)}), 2, 0, 15));
  EXPECT_FALSE(validated(movie({videoOf(1000), videoOf(865)}), 2, 0, 15));
  // The length of a recording is that of its longest track.
  EXPECT_EQ(validated(movie({videoOf(1000), videoOf(1100)}), 2, 0)->durationMs, 1100);
}

TEST_F(RecordingMediaValidatorTest, PassesAnAudioFileOfTheExpectedLength) {
  const std::string path = movie({audioOf(1000)});
  EXPECT_TRUE(audioPasses(path, 1000));
  EXPECT_TRUE(audioPasses(path, 1250));
  EXPECT_FALSE(audioPasses(path, 1251));
  EXPECT_TRUE(audioPasses(path, 750));
  EXPECT_FALSE(audioPasses(path, 749));
}

TEST_F(RecordingMediaValidatorTest, NeedsExactlyOneAudioTrackAndNoPicture) {
  EXPECT_FALSE(audioPasses(movie({audioOf(1000), audioOf(1000)}), 1000));
  EXPECT_FALSE(audioPasses(movie({videoOf(1000), audioOf(1000)}), 1000));
  EXPECT_FALSE(audioPasses(movie({videoOf(1000)}), 1000));
  SyntheticTrack empty = audioOf(1000);
  empty.sampleCount = 0;
  EXPECT_FALSE(audioPasses(movie({empty}), 0));
}

TEST_F(RecordingMediaValidatorTest, NeedsTheHouseFormatOfSound) {
  SyntheticTrack mono = audioOf(1000);
  mono.channelCount = 1;
  EXPECT_FALSE(audioPasses(movie({mono}), 1000));
  SyntheticTrack slow = audioOf(1000);
  slow.sampleRate = 44100;
  EXPECT_FALSE(audioPasses(movie({slow}), 1000));
}

TEST_F(RecordingMediaValidatorTest, ThrowsOnlyForAnAudioFileThatCannotBeRead) {
  EXPECT_FALSE(audioPasses(directory / "missing.m4a", 1000));
  EXPECT_FALSE(audioPasses(directory.write("empty.m4a", ""), 1000));
  EXPECT_FALSE(audioPasses(directory.path(), 1000));
  EXPECT_THROW(audioPasses(directory.write("text.m4a", "no sound at all"), 1000), NativeServiceError);
}

Track trackWith(const std::vector<Sample>& samples) {
  Track track;
  track.samples = samples;
  return track;
}

bool isMonotonic(const std::vector<Sample>& samples) {
  const Track track = trackWith(samples);
  const Track* const list[] = {&track};
  return RecordingMediaValidator::samplesAreMonotonic(list);
}

Sample sampleAt(std::int64_t decodeTime, std::int32_t compositionOffset = 0, std::uint32_t size = 1) {
  Sample sample;
  sample.decodeTime = decodeTime;
  sample.compositionOffset = compositionOffset;
  sample.size = size;
  return sample;
}

TEST(RecordingSamples, NeverStepBack) {
  EXPECT_FALSE(isMonotonic({}));
  EXPECT_TRUE(isMonotonic({sampleAt(-5)}));
  EXPECT_TRUE(isMonotonic({sampleAt(0), sampleAt(0), sampleAt(1)}));
  EXPECT_FALSE(isMonotonic({sampleAt(1), sampleAt(0)}));
  EXPECT_FALSE(isMonotonic({sampleAt(1), sampleAt(0, 1)}));    // decoding steps back
  EXPECT_FALSE(isMonotonic({sampleAt(0, 5), sampleAt(1, 3)})); // presentation steps back
  EXPECT_TRUE(isMonotonic({sampleAt(0, 5), sampleAt(1, 4)}));
  EXPECT_FALSE(isMonotonic({sampleAt(0), sampleAt(1, 0, 0)})); // a sample without data
}

TEST(RecordingSamples, AreJudgedTrackByTrack) {
  const Track good = trackWith({sampleAt(10), sampleAt(20)});
  const Track earlier = trackWith({sampleAt(0)});
  const Track empty;
  const Track* const both[] = {&good, &earlier};
  EXPECT_TRUE(RecordingMediaValidator::samplesAreMonotonic(both));
  const Track* const oneEmpty[] = {&good, &empty};
  EXPECT_FALSE(RecordingMediaValidator::samplesAreMonotonic(oneEmpty));
}

TEST(CanonicalAudioFormat, AllowsHalfAHertzInEveryDescription) {
  const auto passes = [](const std::vector<std::pair<double, std::int32_t>>& formats) {
    Track track;
    for (const auto& [rate, channels] : formats) {
      track.descriptions.emplace_back();
      track.descriptions.back().sampleRate = rate;
      track.descriptions.back().channelCount = channels;
    }
    return RecordingMediaValidator::hasCanonicalAudioFormat(track);
  };
  EXPECT_TRUE(passes({{48000, 2}}));
  EXPECT_TRUE(passes({{47999.5, 2}, {48000.5, 2}}));
  EXPECT_FALSE(passes({{47999.4, 2}}));
  EXPECT_FALSE(passes({{48000.6, 2}}));
  EXPECT_FALSE(passes({{48000, 1}}));
  EXPECT_FALSE(passes({{48000, 3}}));
  EXPECT_FALSE(passes({{48000, 2}, {44100, 2}}));
}

} // namespace
} // namespace tessarin
