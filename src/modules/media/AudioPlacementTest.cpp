#include "modules/media/AudioPlacement.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>

namespace tessarin::media {
namespace {

constexpr std::int32_t rate = 48000;
constexpr std::int64_t millisecond = 48; // frames

// The result of a stretch that is put right behind the one before.
constexpr PlacedSound whole(std::int64_t frames) {
  return {0, 0, frames};
}

TEST(AudioPlacement, putsStretchesBehindEachOther) {
  AudioPlacement placement(rate);
  EXPECT_EQ(placement.place(0, 480), whole(480));
  EXPECT_EQ(placement.place(480, 480), whole(480));
  EXPECT_EQ(placement.end(), 960);
}

TEST(AudioPlacement, fillsSilenceAheadOfALateStart) {
  AudioPlacement placement(rate);
  EXPECT_EQ(placement.place(1, 480), (PlacedSound{1, 0, 480})) << "exactly, however small";
  AudioPlacement later(rate);
  EXPECT_EQ(later.place(96000, 480), (PlacedSound{96000, 0, 480}));
  EXPECT_EQ(later.end(), 96480);
}

TEST(AudioPlacement, leavesOutWhatLiesBeforeTheBeginning) {
  AudioPlacement placement(rate);
  EXPECT_EQ(placement.place(-480, 480), (PlacedSound{0, 480, 0}));
  EXPECT_EQ(placement.place(-480, 481), (PlacedSound{0, 480, 1}));
  EXPECT_EQ(placement.end(), 1);
  EXPECT_EQ(placement.place(1, 480), whole(480));
}

TEST(AudioPlacement, takesNothingFromNothing) {
  AudioPlacement placement(rate);
  EXPECT_EQ(placement.place(96000, 0), (PlacedSound{0, 0, 0}));
  EXPECT_EQ(placement.end(), 0);
}

TEST(AudioPlacement, takesUpToTwentyMillisecondsForJitter) {
  for (const std::int64_t offset : {-20 * millisecond, std::int64_t{-1}, std::int64_t{1}, 20 * millisecond}) {
    AudioPlacement placement(rate);
    placement.place(0, 4800);
    EXPECT_EQ(placement.place(4800 + offset, 480), whole(480)) << offset;
  }
}

TEST(AudioPlacement, fillsAHoleAndCutsAnOverlapOfMoreThanTwentyMilliseconds) {
  AudioPlacement hole(rate);
  hole.place(0, 4800);
  EXPECT_EQ(hole.place(4800 + 961, 480), (PlacedSound{961, 0, 480}));
  EXPECT_EQ(hole.end(), 4800 + 961 + 480);

  AudioPlacement overlap(rate);
  overlap.place(0, 4800);
  EXPECT_EQ(overlap.place(4800 - 961, 480), (PlacedSound{0, 480, 0}));
  EXPECT_EQ(overlap.place(4800 - 961, 1000), (PlacedSound{0, 961, 39}));
  EXPECT_EQ(overlap.end(), 4839);
}

TEST(AudioPlacement, evensOutJitterOfFiveMilliseconds) {
  AudioPlacement placement(rate);
  constexpr std::int64_t frames = 256;
  for (std::int64_t i = 0; i < 2000; ++i) {
    // Never twice the same way in a row, and as often early as late.
    const std::int64_t jitter = (i * 7 % 11 - 5) * millisecond;
    const PlacedSound placed = placement.place(std::max<std::int64_t>(i * frames + jitter, 0), frames);
    if (i > 0) {
      ASSERT_EQ(placed, whole(frames)) << i;
    }
  }
  EXPECT_LE(std::abs(placement.end() - 2000 * frames), 5 * millisecond);
}

struct Drift {
  std::int64_t worst = 0;        // frames that the track was ever off
  std::int64_t greatestStep = 0; // frames by which one stretch was changed
  std::int64_t silence = 0;
};

// A device that delivers 256 frames at a time, and whose frames last longer by so many millionths.
Drift drift(std::int64_t millionths, std::int64_t jitter) {
  AudioPlacement placement(rate);
  Drift found;
  constexpr std::int64_t frames = 256;
  for (std::int64_t i = 0; i * frames < std::int64_t{60} * rate; ++i) {
    const std::int64_t time = i * frames * (1'000'000 + millionths) / 1'000'000;
    const std::int64_t end = placement.end();
    const PlacedSound placed = placement.place(i == 0 ? 0 : time + (i * 7 % 11 - 5) * jitter / 5, frames);
    found.worst = std::max(found.worst, std::abs(time - end - placed.silence));
    found.greatestStep = std::max(found.greatestStep, std::abs(placed.length + placed.skipped - frames));
    found.silence += placed.silence;
  }
  return found;
}

TEST(AudioPlacement, followsADeviceWhoseClockDrifts) {
  for (const std::int64_t millionths : {-200, 200, -50, 50, 1000})
    for (const std::int64_t jitter : {std::int64_t{0}, 5 * millisecond}) {
      const Drift found = drift(millionths, jitter);
      EXPECT_LE(found.worst, 4 * millisecond) << millionths << " and jitter " << jitter;
      EXPECT_LE(found.greatestStep, 2) << millionths << " and jitter " << jitter;
      EXPECT_EQ(found.silence, 0);
    }
}

TEST(AudioPlacement, leavesADeviceAloneThatDoesNotDrift) {
  for (const std::int64_t jitter : {std::int64_t{0}, 5 * millisecond})
    EXPECT_EQ(drift(0, jitter).greatestStep, 0) << jitter;
}

// Half a second of stretches, all late by as much, and then what the next two seconds make up for.
std::int64_t madeUpFor(std::int64_t lateness) {
  AudioPlacement placement(rate);
  placement.place(0, 480);
  for (std::int64_t i = 1; i <= 250; ++i)
    placement.place(i * 480 + lateness, 480);
  return placement.end() - std::int64_t{251} * 480;
}

TEST(AudioPlacement, makesUpForALastingOffsetOfMoreThanThreeMilliseconds) {
  EXPECT_EQ(madeUpFor(3 * millisecond), 0);
  EXPECT_EQ(madeUpFor(3 * millisecond + 1), 145) << "exactly as much as it was off";
  EXPECT_EQ(madeUpFor(-3 * millisecond), 0);
  EXPECT_EQ(madeUpFor(-3 * millisecond - 1), -145);
  EXPECT_EQ(madeUpFor(15 * millisecond), 15 * millisecond);
}

TEST(AudioPlacement, makesUpInStretchesOfAnySize) {
  for (const std::int64_t frames :
       {std::int64_t{1}, std::int64_t{2}, std::int64_t{100}, std::int64_t{48000}}) {
    AudioPlacement placement(rate);
    placement.place(0, frames);
    std::int64_t time = frames;
    for (; time < std::int64_t{4} * rate; time += frames) {
      const PlacedSound placed = placement.place(time + 480, frames);
      ASSERT_GE(placed.length, 1) << frames;
      ASSERT_EQ(placed.silence, 0) << frames;
    }
    EXPECT_EQ(placement.end() - time, 480) << frames;
  }
}

TEST(AudioPlacement, startsAnewBehindAHole) {
  AudioPlacement placement(rate);
  placement.place(0, 480);
  for (std::int64_t i = 1; i <= 60; ++i)
    placement.place(i * 480 + 240, 480); // 5 ms late: a correction is under way
  const std::int64_t end = placement.end();
  EXPECT_GT(end, 61 * 480);
  EXPECT_EQ(placement.place(end + 48000, 480), (PlacedSound{48000, 0, 480}));
  EXPECT_EQ(placement.place(end + 48480, 48000), whole(48000)) << "nothing is owed any more";
}

TEST(AudioPlacement, fillsUpToAFrame) {
  AudioPlacement placement(rate);
  EXPECT_EQ(placement.fillTo(1000), 1000);
  EXPECT_EQ(placement.fillTo(1000), 0);
  EXPECT_EQ(placement.fillTo(500), 0);
  EXPECT_EQ(placement.end(), 1000);
  EXPECT_EQ(placement.place(990, 480), (PlacedSound{0, 10, 470})) << "sound that comes too late";
}

TEST(AudioPlacement, countsHolesOfDays) {
  AudioPlacement placement(rate);
  placement.place(0, 480);
  const std::int64_t week = std::int64_t{7} * 24 * 3600 * rate;
  EXPECT_EQ(placement.place(week, 480), (PlacedSound{week - 480, 0, 480}));
}

TEST(StretchSound, keepsTheEndsAndDrawsStraightLines) {
  std::vector<float> out;
  const std::vector<float> sound = {0, 10, 1, 20, 2, 30};
  stretchSound(sound, 2, 5, out);
  EXPECT_EQ(out, (std::vector<float>{0, 10, 0.5F, 15, 1, 20, 1.5F, 25, 2, 30}));
  stretchSound(sound, 2, 2, out);
  EXPECT_EQ(out, (std::vector<float>{0, 10, 2, 30}));
  stretchSound(sound, 2, 3, out);
  EXPECT_EQ(out, sound);
  stretchSound({sound.data(), 2}, 2, 3, out);
  EXPECT_EQ(out, (std::vector<float>{0, 10, 0, 10, 0, 10}));
  stretchSound(sound, 2, 1, out);
  EXPECT_EQ(out, (std::vector<float>{0, 10}));
}

// A tone that is made longer by one frame in 256 stays a tone.
TEST(StretchSound, bringsNoClickIntoATone) {
  std::vector<float> tone(256);
  for (std::size_t i = 0; i < tone.size(); ++i)
    tone[i] = std::sin(static_cast<float>(i) * 0.0576F); // 440 Hz
  std::vector<float> out;
  for (const std::size_t frames : {tone.size() - 1, tone.size() + 1}) {
    stretchSound(tone, 1, frames, out);
    for (std::size_t i = 1; i < out.size(); ++i)
      EXPECT_LT(std::abs(out[i] - out[i - 1]), 0.0585F) << i;
  }
}

} // namespace
} // namespace tessarin::media
