#include "modules/media/CodingEffort.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

namespace tessarin::media {
namespace {

constexpr std::int64_t second = 90000;

// Hands over pictures at a rate, of which one in so many finds the line full.
struct Track {
  LoadJudge judge{second};
  CodingEffort effort = CodingEffort::full;
  std::int64_t rate = 60;
  std::int64_t time = 0;
  std::int64_t count = 0;
  LoadVerdict verdict = LoadVerdict::holds; // the last one

  // The seconds after which the judge found the effort too much; nothing when it never did.
  std::optional<double> run(double seconds, std::int64_t oneGivesWayIn) {
    const std::int64_t start = time;
    while (time < start + static_cast<std::int64_t>(seconds * second)) {
      const bool gaveWay = oneGivesWayIn > 0 && count % oneGivesWayIn == 0;
      ++count;
      verdict = judge.judge(time, gaveWay, effort);
      const std::int64_t now = time;
      time += second / rate;
      if (verdict != LoadVerdict::holds)
        return static_cast<double>(now - start) / second;
    }
    return std::nullopt;
  }
};

TEST(LoadJudge, findsAMachineTooSlowAfterThreeBadStretches) {
  for (const std::int64_t rate : {15, 30, 60}) {
    Track track{.rate = rate};
    const auto found = track.run(10, 2);
    ASSERT_TRUE(found) << rate;
    EXPECT_NEAR(*found, 1.5, 0.25) << rate;
  }
}

TEST(LoadJudge, toleratesOnePictureInMoreThanEight) {
  EXPECT_TRUE(Track().run(10, LoadJudge::toleratedShare));
  EXPECT_FALSE(Track().run(60, 16));
  EXPECT_FALSE(Track().run(60, 0));
}

TEST(LoadJudge, findsAMachineFarTooSlowWhereHalfOfThePicturesGiveWay) {
  const auto verdict = [](std::int64_t oneGivesWayIn) {
    Track track;
    track.run(10, oneGivesWayIn);
    return track.verdict;
  };
  EXPECT_EQ(verdict(1), LoadVerdict::farTooSlow);
  EXPECT_EQ(verdict(2), LoadVerdict::farTooSlow);
  EXPECT_EQ(verdict(3), LoadVerdict::tooSlow);
  EXPECT_EQ(verdict(LoadJudge::toleratedShare), LoadVerdict::tooSlow);
  EXPECT_EQ(verdict(0), LoadVerdict::holds);
}

TEST(LoadJudge, forgivesAStallOfASecond) {
  Track track;
  for (int i = 0; i < 10; ++i) {
    EXPECT_FALSE(track.run(0.9, 1)) << i;
    EXPECT_FALSE(track.run(1.1, 0)) << i;
  }
}

TEST(LoadJudge, countsNothingTogetherAcrossAHoleInTime) {
  Track track;
  for (int i = 0; i < 6; ++i) {
    EXPECT_FALSE(track.run(0.75, 1)) << i;
    track.time += 2 * second;
  }
}

TEST(LoadJudge, givesALowerEffortTimeToWork) {
  Track track;
  ASSERT_TRUE(track.run(10, 2));
  track.effort = CodingEffort::reduced;
  const auto again = track.run(10, 2);
  ASSERT_TRUE(again);
  EXPECT_NEAR(*again, 3.5, 0.1);

  Track relieved;
  ASSERT_TRUE(relieved.run(10, 2));
  relieved.effort = CodingEffort::reduced;
  EXPECT_FALSE(relieved.run(1.9, 1));
  EXPECT_FALSE(relieved.run(10, 0));
}

TEST(LoadJudge, startsAnewWhenAnotherTrackHasChangedTheEffort) {
  Track track;
  EXPECT_FALSE(track.run(1.2, 1));
  track.effort = CodingEffort::reduced;
  const auto found = track.run(10, 1);
  ASSERT_TRUE(found);
  EXPECT_NEAR(*found, 3.5, 0.1);
}

TEST(LoadJudge, saysItOnceForEachEffort) {
  Track track;
  ASSERT_TRUE(track.run(10, 2));
  // Nobody obeys: it says so again only after as many bad stretches more.
  const auto again = track.run(10, 2);
  ASSERT_TRUE(again);
  EXPECT_GT(*again, 1.0);
}

TEST(LoadJudge, measuresTheCalmFromTheLastPictureThatGaveWay) {
  Track track{.time = 5 * second};
  track.run(10, 0);
  EXPECT_NEAR(static_cast<double>(track.judge.calmTime()) / second, 10, 0.1);
  track.run(0.1, 1);
  EXPECT_EQ(track.judge.calmTime(), 0);
  track.run(3, 0);
  EXPECT_NEAR(static_cast<double>(track.judge.calmTime()) / second, 3, 0.1);
}

TEST(SharedEffort, stepsDownToTheLeastAndNoFurther) {
  SharedEffort effort;
  EXPECT_EQ(effort.current(), CodingEffort::full);
  effort.stepDown(CodingEffort::full);
  EXPECT_EQ(effort.current(), CodingEffort::reduced);
  effort.stepDown(CodingEffort::reduced);
  EXPECT_EQ(effort.current(), CodingEffort::least);
  effort.stepDown(CodingEffort::least);
  EXPECT_EQ(effort.current(), CodingEffort::least);
}

TEST(SharedEffort, goesToTheLeastAtOnceOnAMachineThatIsFarTooSlow) {
  SharedEffort effort;
  effort.stepDown(CodingEffort::full, LoadVerdict::holds);
  EXPECT_EQ(effort.current(), CodingEffort::full);
  effort.stepDown(CodingEffort::full, LoadVerdict::farTooSlow);
  EXPECT_EQ(effort.current(), CodingEffort::least);
  effort.stepDown(CodingEffort::full, LoadVerdict::tooSlow);
  EXPECT_EQ(effort.current(), CodingEffort::least);
}

TEST(SharedEffort, stepsDownOnceForTwoTracksThatAreTooSlowTogether) {
  SharedEffort effort;
  effort.stepDown(CodingEffort::full);
  effort.stepDown(CodingEffort::full);
  EXPECT_EQ(effort.current(), CodingEffort::reduced);
}

TEST(SharedEffort, carriesOverToTheNextSegmentAndRecoversAfterACalmMinute) {
  const auto after = [](std::vector<std::int64_t> calmTimes) {
    SharedEffort effort;
    effort.segmentBegins();
    effort.stepDown(CodingEffort::full);
    effort.stepDown(CodingEffort::reduced);
    for (const std::int64_t calmTime : calmTimes)
      effort.trackEnds(calmTime, second);
    effort.segmentBegins();
    return effort.current();
  };
  EXPECT_EQ(after({}), CodingEffort::least);
  EXPECT_EQ(after({59 * second}), CodingEffort::least);
  EXPECT_EQ(after({60 * second}), CodingEffort::reduced);
  EXPECT_EQ(after({600 * second, 59 * second}), CodingEffort::least);
  EXPECT_EQ(after({59 * second, 600 * second}), CodingEffort::least);
  EXPECT_EQ(after({600 * second, 60 * second}), CodingEffort::reduced);
}

TEST(SharedEffort, recoversOneStepForEachCalmSegment) {
  SharedEffort effort;
  effort.stepDown(CodingEffort::full);
  effort.stepDown(CodingEffort::reduced);
  effort.trackEnds(100 * second, second);
  effort.segmentBegins();
  EXPECT_EQ(effort.current(), CodingEffort::reduced);
  effort.segmentBegins();
  EXPECT_EQ(effort.current(), CodingEffort::reduced) << "a segment without an end says nothing";
  effort.trackEnds(100 * second, second);
  effort.segmentBegins();
  EXPECT_EQ(effort.current(), CodingEffort::full);
}

} // namespace
} // namespace tessarin::media
