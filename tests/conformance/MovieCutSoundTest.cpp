#include "MovieCutTesting.hpp"

#include "container/MovieJoin.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <set>

namespace tessarin {
namespace {

constexpr std::int64_t ms = 48; // frames

class MovieCutSound : public ::testing::Test {
 protected:
  std::vector<float> cutAndDecoded(const std::string& source, const std::vector<Cut>& cuts,
                                   std::size_t lanes = 1, std::size_t lane = 0) {
    const MovieExport movie = cutOf(rig, source, cuts, lanes);
    EXPECT_EQ(rig.run(movie), std::nullopt);
    std::int64_t length = 0;
    for (const Cut& cut : cuts)
      length += cut.end - cut.start;
    EXPECT_EQ(indexOf(movie.outputPath).tracks.at(1 + lane).duration, MediaTime::milliseconds(length));
    auto sound = decoded(movie.outputPath, lane, Decoding::byTime);
    // The other program lets the last packet sound to its end.
    EXPECT_GE(std::ssize(sound), length * ms);
    EXPECT_LT(std::ssize(sound), length * ms + 1024);
    sound.resize(static_cast<std::size_t>(length * ms));
    return sound;
  }

  MovieRig rig;
};

// Of clicks at every distance from a cut, those on either side of it are heard when they should be, and none
// that lies beyond it is heard at all.
TEST_F(MovieCutSound, HearsEveryClickAtItsTimeAndNoneBeyondACut) {
  const std::int64_t firstEnd = 1317;
  const std::int64_t secondStart = 2711;
  int shifted = 0;
  for (std::int64_t distance = -90; distance <= 90; distance += 5) {
    SCOPED_TRACE(distance);
    std::vector<std::int64_t> frames{200 * ms, (firstEnd + distance) * ms, (secondStart + distance) * ms,
                                     3500 * ms};
    const auto source =
        record(rig, "s" + std::to_string(distance) + ".mp4", {.pictures = 120, .lanes = {clicks(frames)}});
    const auto sound = cutAndDecoded(source, {{0, firstEnd, 1}, {secondStart, 3900, 1}});
    std::vector<std::int64_t> expected{200 * ms, (firstEnd + distance) * ms,
                                       (firstEnd + 3500 - secondStart) * ms};
    if (distance == 0)
      continue; // half of a click lies on each side
    const auto found = peaks(sound);
    // Where the packets of the two stretches meet a click comes out weaker, or shifted by what their grids
    // are apart.
    const bool isAtMeeting = distance < 0 && distance > -65;
    if (isAtMeeting && (found.size() != 3 || std::abs(found[1] - expected[1]) > ms)) {
      ++shifted;
      continue;
    }
    ASSERT_EQ(found.size(), 3U);
    for (std::size_t i = 0; i < 3; ++i)
      EXPECT_NEAR(static_cast<double>(found[i]), static_cast<double>(expected[i]), ms) << i;
  }
  // The meeting takes a packet, 21 ms.
  EXPECT_LE(shifted * 5, 20);
}

// A tone that ends at one cut and begins at another is not heard between them.
TEST_F(MovieCutSound, HearsNothingOfWhatWasCutAway) {
  const SoundSource loud = tone(700);
  const SoundSource source = [&](std::int64_t frame) {
    return frame < 1003 * ms || frame >= 2007 * ms ? loud(frame) : 0.0F;
  };
  const auto path = record(rig, "s.mp4", {.pictures = 90, .lanes = {source}});
  const std::vector<std::vector<Cut>> all{
      {{1003, 2007, 1}},
      {{1500, 2007, 1}, {1003, 1500, 1}},
      {{1003, 1100, 1}, {1200, 1231, 1}, {1900, 2007, 1}, {1003, 2007, 1}},
  };
  // Coded, the tone is heard a little beyond its ends.
  const auto whole = decoded(path, 0);
  for (const auto& cuts : all) {
    float most = 0;
    for (const Cut& cut : cuts)
      most = std::max(most, loudest(whole, cut.start * ms, cut.end * ms));
    const auto sound = cutAndDecoded(path, cuts);
    EXPECT_LT(loudest(sound, 0, std::ssize(sound)), most + 0.002F);
    EXPECT_LT(most, 0.04F);
  }
}

// A tone whose period is a millisecond goes on over every cut as if nothing had been cut.
TEST_F(MovieCutSound, GoesOnOverACut) {
  const auto path = record(rig, "s.mp4", {.pictures = 120, .lanes = {tone(1000)}});
  const std::vector<Cut> cuts{{0, 813, 1}, {1200, 2017, 1}, {500, 2900, 1}};
  const auto sound = cutAndDecoded(path, cuts);
  std::vector<std::int64_t> rough;
  for (std::int64_t i = 100; i + 100 < std::ssize(sound); ++i) {
    const double expected = 0.5 * std::sin(2 * M_PI * 1000 * static_cast<double>(i) / 48000);
    if (std::abs(sound[static_cast<std::size_t>(i)] - expected) > 0.08)
      rough.push_back(i);
  }
  // Only in the packet before each cut in which the grids meet, and what is missing between them.
  for (const std::int64_t at : rough) {
    const bool isNear =
        (at > 813 * ms - 3 * 1024 && at < 813 * ms) || (at > 1630 * ms - 3 * 1024 && at < 1630 * ms);
    EXPECT_TRUE(isNear) << at;
    if (!isNear)
      break;
  }
  EXPECT_LT(rough.size(), 2U * 1024);
}

TEST_F(MovieCutSound, CopiesAllPacketsButThoseAroundACut) {
  const auto path = record(rig, "s.mp4", {.pictures = 300, .lanes = {tone(440), tone(880)}});
  const MovieExport movie = cutOf(rig, path, {{333, 3210, 1}, {5001, 9002, 1}, {1000, 4000, 1}}, 2);
  ASSERT_EQ(rig.run(movie), std::nullopt);
  const auto packets = [](const std::string& name, std::size_t track) {
    const auto file = machineFileSystem().open(name, OpenMode::read);
    std::vector<std::vector<std::byte>> found;
    const container::Movie movieIndex = indexOf(name);
    for (const container::Sample& sample : movieIndex.tracks.at(track).samples) {
      found.emplace_back(sample.size);
      file->read(sample.offset, found.back());
    }
    return found;
  };
  for (const std::size_t track : {1U, 2U}) {
    const auto source = packets(path, track);
    const std::set<std::vector<std::byte>> known(source.begin(), source.end());
    const auto made = packets(movie.outputPath, track);
    const auto copied =
        std::count_if(made.begin(), made.end(), [&](const auto& each) { return known.contains(each); });
    EXPECT_GE(copied, std::ssize(made) - 3 * 5);
    const container::Track index = indexOf(movie.outputPath).tracks.at(track);
    EXPECT_EQ(index.duration, MediaTime::milliseconds(2877 + 4001 + 3000));
    EXPECT_EQ(index.descriptions, indexOf(path).tracks.at(track).descriptions);
  }
  const auto low = decoded(movie.outputPath, 0, Decoding::byTime);
  const auto high = decoded(movie.outputPath, 1, Decoding::byTime);
  EXPECT_NEAR(toneIn(low, 10 * ms, 2000 * ms), 440, 1);
  EXPECT_NEAR(toneIn(high, 3000 * ms, 6000 * ms), 880, 1);
}

// By the index exact, and for a player that puts packets in a row never off by more than half of one.
TEST_F(MovieCutSound, KeepsStepWithManyCuts) {
  std::vector<std::int64_t> frames;
  for (std::int64_t at = 250; at < 10000; at += 500)
    frames.push_back(at * ms);
  const auto path = record(rig, "s.mp4", {.pictures = 300, .lanes = {clicks(frames)}});
  std::vector<Cut> cuts;
  std::vector<std::int64_t> expected;
  std::int64_t cursor = 0;
  for (std::int64_t i = 0; i < 20; ++i) {
    const std::int64_t start = (i * 7 % 20) * 500 + i * 3;
    const std::int64_t end = (i * 7 % 20) * 500 + 400 + i;
    cuts.push_back({start, end, 1});
    expected.push_back((cursor + (i * 7 % 20) * 500 + 250 - start) * ms);
    cursor += end - start;
  }
  const MovieExport movie = cutOf(rig, path, cuts, 1);
  ASSERT_EQ(rig.run(movie), std::nullopt);
  for (const Decoding decoding : {Decoding::byTime, Decoding::inARow}) {
    const auto found = peaks(decoded(movie.outputPath, 0, decoding));
    ASSERT_EQ(found.size(), expected.size());
    for (std::size_t i = 0; i < found.size(); ++i)
      EXPECT_NEAR(static_cast<double>(found[i]), static_cast<double>(expected[i]),
                  decoding == Decoding::byTime ? ms : 512 + ms)
          << i;
  }
}

// Of a recording that was paused packets do not lie on one grid.
TEST_F(MovieCutSound, CutsAcrossTheJointsOfARecording) {
  std::vector<std::int64_t> frames;
  for (std::int64_t at = 120; at < 1500; at += 200)
    frames.push_back(at * ms);
  std::vector<std::unique_ptr<OpenFile>> files;
  std::vector<container::Movie> movies;
  for (int i = 0; i < 3; ++i) {
    const auto part =
        record(rig, "part" + std::to_string(i) + ".mp4", {.pictures = 46, .lanes = {clicks(frames)}});
    files.push_back(machineFileSystem().open(part, OpenMode::read));
    movies.push_back(container::readMovie(*files.back()));
  }
  std::vector<container::JoinTrack> tracks(2);
  std::vector<std::int64_t> heard;
  MediaTime start = MediaTime::zero();
  for (std::size_t i = 0; i < movies.size(); ++i) {
    for (std::size_t track = 0; track < 2; ++track)
      tracks[track].pieces.push_back({files[i].get(), &movies[i].tracks[track], start, movies[i].duration});
    for (const std::int64_t frame : frames)
      heard.push_back(start.convertedTo(48000).value() + frame);
    start = start + movies[i].duration;
  }
  const auto source = rig.path("s.mp4");
  writeJoinedMovie(*machineFileSystem().open(source, OpenMode::createExclusive), tracks, "mp42");

  const std::vector<Cut> cuts{{1390, 1700, 1}, {1000, 3200, 1}, {2990, 4400, 1}, {1300, 1633, 1}};
  std::vector<std::int64_t> expected;
  for (const Cut& cut : cuts) {
    std::int64_t output = 0;
    for (const Cut* before = cuts.data(); before != &cut; ++before)
      output += (before->end - before->start) * ms;
    for (const std::int64_t frame : heard) {
      // Not in the packets ahead of a cut, where two grids meet, nor split by a cut.
      if (frame > (cut.start + 1) * ms && frame < (cut.end - 65) * ms)
        expected.push_back(output + frame - cut.start * ms);
    }
  }
  const auto found = peaks(cutAndDecoded(source, cuts));
  for (const std::int64_t frame : expected) {
    EXPECT_TRUE(std::any_of(found.begin(), found.end(), [&](auto peak) {
      return std::abs(peak - frame) <= ms;
    })) << frame / ms;
  }
}

TEST_F(MovieCutSound, TakesTracksThatAreNoneOfTheRecorders) {
  const std::string video = "-c:v libx264 -preset ultrafast -pix_fmt yuv420p -g 30 -bf 0 -c:a aac";
  struct Kind {
    const char* name;
    double seconds;
    int rate;
    int channels;
  };
  for (const Kind& kind : {Kind{"mono.mp4", 4, 44100, 1}, Kind{"short.mp4", 1, 48000, 2},
                           Kind{"long.mp4", 6, 48000, 2}, Kind{"stereo.mp4", 4, 44100, 2}}) {
    SCOPED_TRACE(kind.name);
    const auto source =
        rig.paint(kind.name, 120, 30, video, toneInput(kind.seconds, 1000, kind.rate, kind.channels));
    const auto sound = cutAndDecoded(source, {{3000, 4000, 1}, {500, 1500, 1}, {100, 333, 1}});
    const bool isShort = kind.seconds < 2;
    if (isShort) {
      EXPECT_LT(loudest(sound, 0, 900 * ms), 0.002F);
      EXPECT_NEAR(toneIn(sound, 1010 * ms, 1490 * ms), 1000, 3);
      EXPECT_LT(loudest(sound, 1530 * ms, 1940 * ms), 0.01F);
    } else {
      EXPECT_NEAR(toneIn(sound, 100 * ms, 900 * ms), 1000, 3);
      EXPECT_NEAR(toneIn(sound, 1010 * ms, 1900 * ms), 1000, 3);
    }
    EXPECT_NEAR(toneIn(sound, 2010 * ms, 2220 * ms), 1000, 5);
  }
}

} // namespace
} // namespace tessarin
