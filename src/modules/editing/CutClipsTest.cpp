#include "modules/editing/CutClips.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessarin::editing {
namespace {

using testing::ElementsAre;

MovieSegment segment(std::int64_t source, std::int64_t length, std::int64_t output) {
  return {{MediaTime::milliseconds(source), MediaTime::milliseconds(length)},
          {MediaTime::milliseconds(output), MediaTime::milliseconds(length)}};
}

bool isRefused(const std::vector<MovieSegment>& segments) {
  try {
    cutClips(segments);
    return false;
  } catch (const MovieEditingFailure& failure) {
    return failure.error() == MovieEditingError::notComposable;
  }
}

TEST(CutClips, TakesStretchesInTheirOrder) {
  EXPECT_THAT(cutClips({segment(500, 100, 0), segment(0, 1, 100), segment(500, 100, 101)}),
              ElementsAre(CutClip{500, 600, 0}, CutClip{0, 1, 100}, CutClip{500, 600, 101}));
}

TEST(CutClips, MakesOneOfThoseThatGoOn) {
  EXPECT_THAT(
      cutClips({segment(500, 100, 0), segment(600, 1, 100), segment(601, 99, 101), segment(701, 9, 200)}),
      ElementsAre(CutClip{500, 700, 0}, CutClip{701, 710, 200}));
}

TEST(CutClips, RefusesWhatIsNoCut) {
  EXPECT_TRUE(isRefused({}));
  EXPECT_TRUE(isRefused({segment(0, 0, 0)}));
  EXPECT_FALSE(isRefused({segment(0, 1, 0)}));
  EXPECT_TRUE(isRefused({segment(-1, 10, 0)}));
  EXPECT_TRUE(isRefused({segment(0, 10, 1)}));
  EXPECT_TRUE(isRefused({segment(0, 10, 0), segment(20, 10, 9)}));
  EXPECT_TRUE(isRefused({segment(0, 10, 0), segment(20, 10, 11)}));
  MovieSegment other = segment(0, 10, 0);
  other.output.duration = MediaTime::milliseconds(9);
  EXPECT_TRUE(isRefused({other}));
  other = segment(0, 10, 0);
  other.source.start = MediaTime(1, 3000);
  EXPECT_TRUE(isRefused({other}));
  other.source.start = MediaTime();
  EXPECT_TRUE(isRefused({other}));
}

} // namespace
} // namespace tessarin::editing
