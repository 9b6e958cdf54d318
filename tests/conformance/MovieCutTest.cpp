#include "MovieCutTesting.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace tessarin {
namespace {

class MovieCutting : public ::testing::Test {
 protected:
  // The cut shows exactly what it should, and codes anew no more pictures than are told.
  void expectCut(const std::string& source, const std::vector<Cut>& cuts, const std::vector<double>& starts,
                 std::size_t codedAnew, std::size_t lanes = 0) {
    const MovieExport movie = cutOf(rig, source, cuts, lanes);
    ASSERT_EQ(rig.run(movie), std::nullopt);
    const auto shown = shownIn(movie.outputPath);
    const auto expected = expectedOf(cuts, starts);
    ASSERT_EQ(shown.size(), expected.size());
    for (std::size_t i = 0; i < shown.size(); ++i)
      ASSERT_EQ(shown[i], expected[i]) << i;
    // What is coded anew may come out as it was.
    EXPECT_GE(copiedPictures(movie.outputPath, source), shown.size() - codedAnew);
    std::int64_t length = 0;
    for (const Cut& cut : cuts)
      length += cut.end - cut.start;
    EXPECT_EQ(indexOf(movie.outputPath).tracks.front().duration, MediaTime::milliseconds(length));
  }

  MovieRig rig;
};

TEST_F(MovieCutting, BeginsAtEveryPictureOfTwoGroupsAndBesideIt) {
  const auto source = record(rig, "s.mp4", {});
  const auto starts = evenly(60, 30);
  for (int picture = 0; picture < 60; ++picture) {
    for (const int beside : {-1, 0, 1}) {
      const std::int64_t start = (picture * 1000 + 29) / 30 + beside;
      if (start < 0)
        continue;
      SCOPED_TRACE(start);
      const std::int64_t end = std::min<std::int64_t>(start + 700, 2000);
      // Of the pictures shown, those before the next key.
      const std::vector<Cut> cuts{{start, end, 1}};
      std::size_t coded = 0;
      const auto expected = expectedOf(cuts, starts);
      while (coded < expected.size() && expected[coded].second % 30 != 0)
        ++coded;
      expectCut(source, cuts, starts, coded);
    }
  }
}

TEST_F(MovieCutting, EndsAtEveryPictureAndBesideIt) {
  const auto source = record(rig, "s.mp4", {});
  for (int picture = 25; picture < 36; ++picture) {
    for (const int beside : {-1, 0, 1}) {
      const std::int64_t end = (picture * 1000 + 29) / 30 + beside;
      SCOPED_TRACE(end);
      expectCut(source, {{0, end, 1}, {1500, 2000, 1}}, evenly(60, 30), 15);
    }
  }
}

TEST_F(MovieCutting, CopiesTheWholeByteByByte) {
  const auto source = record(rig, "s.mp4", {.lanes = {tone(440), tone(880)}});
  const MovieExport movie = cutOf(rig, source, {{0, 2000, 1}}, 2);
  ASSERT_EQ(rig.run(movie), std::nullopt);
  const container::Movie before = indexOf(source);
  const container::Movie after = indexOf(movie.outputPath);
  ASSERT_EQ(after.tracks.size(), 3U);
  const auto sourceFile = machineFileSystem().open(source, OpenMode::read);
  const auto file = machineFileSystem().open(movie.outputPath, OpenMode::read);
  for (std::size_t i = 0; i < 3; ++i) {
    const container::Track& a = before.tracks[i];
    const container::Track& b = after.tracks[i];
    EXPECT_EQ(a.descriptions, b.descriptions);
    EXPECT_EQ(a.duration, b.duration);
    EXPECT_EQ(a.start, b.start);
    ASSERT_EQ(a.samples.size(), b.samples.size()) << i;
    for (std::size_t k = 0; k < a.samples.size(); ++k) {
      EXPECT_EQ(a.samples[k].isSync, b.samples[k].isSync);
      EXPECT_EQ(a.samples[k].size, b.samples[k].size);
      std::vector<std::byte> x(a.samples[k].size);
      std::vector<std::byte> y(b.samples[k].size);
      sourceFile->read(a.samples[k].offset, x);
      file->read(b.samples[k].offset, y);
      ASSERT_EQ(x, y) << i << " " << k;
    }
  }
  const std::string bytes = rig.directory().read("cut.mp4");
  EXPECT_LT(bytes.find("moov"), bytes.find("mdat"));
}

TEST_F(MovieCutting, PutsManyStretchesInAnyOrder) {
  const auto source = record(rig, "s.mp4", {.pictures = 150, .lanes = {tone(440)}});
  expectCut(source,
            {{4000, 4500, 1}, {100, 117, 1}, {1000, 2000, 1}, {2000, 3333, 1}, {500, 501, 1}, {0, 5000, 1}},
            evenly(150, 30), 2, 1);
}

// Numbers of the key pictures in the order of decoding; -1 for other pictures. As another program reads them.
std::vector<int> keyNumbers(const std::string& path) {
  std::istringstream lines(outputOf("ffmpeg -nostdin -v info -i '" + path +
                                    "' -map 0:v -c copy -bsf:v trace_headers -f null - 2>&1 | "
                                    "grep -oE '(nal_unit_type|idr_pic_id) .*'"));
  std::vector<int> numbers;
  for (std::string line; std::getline(lines, line);) {
    const int value = std::stoi(line.substr(line.rfind('=') + 1));
    if (line.starts_with("idr_pic_id"))
      numbers.back() = value;
    else if (value == 1 || value == 5)
      numbers.push_back(-1);
  }
  return numbers;
}

// A reader of the bare stream could take them for one picture.
TEST_F(MovieCutting, LetsNoTwoKeysOfOneNumberFollowEachOther) {
  const auto source = record(rig, "s.mp4", {.pictures = 150});
  const auto original = keyNumbers(source);
  ASSERT_EQ(original.size(), 150U);
  ASSERT_EQ(original[30], 1);
  ASSERT_EQ(original[60], 0);
  const std::vector<std::vector<Cut>> all{
      {{0, 1001, 1}, {1000, 2000, 1}},                   // the same key twice
      {{0, 1001, 1}, {3000, 4000, 1}},                   // another one of its number
      {{0, 1001, 1}, {2000, 4000, 1}},                   // one of the other number
      {{1500, 2001, 1}, {500, 1500, 1}},                 // ahead of one coded anew, of number 0
      {{1500, 1501, 1}, {1960, 2500, 1}},                // coded anew both
      {{1500, 1501, 1}, {1500, 1501, 1}, {0, 100, 1}},   // again and again
      {{500, 1500, 1}, {1975, 2100, 1}, {990, 1100, 1}}, // one picture ahead of a key of either number
  };
  for (const auto& cuts : all) {
    SCOPED_TRACE(cuts.front().end);
    const MovieExport movie = cutOf(rig, source, cuts);
    ASSERT_EQ(rig.run(movie), std::nullopt);
    const auto shown = shownIn(movie.outputPath);
    EXPECT_EQ(shown, expectedOf(cuts, evenly(150, 30)));
    const auto numbers = keyNumbers(movie.outputPath);
    ASSERT_EQ(numbers.size(), shown.size());
    for (std::size_t i = 1; i < numbers.size(); ++i)
      EXPECT_FALSE(numbers[i] >= 0 && numbers[i] == numbers[i - 1]) << i;
  }
}

TEST_F(MovieCutting, TakesEveryRateAndCodec) {
  for (const RecordingCodec codec : {RecordingCodec::h264, RecordingCodec::hevc}) {
    for (const int rate : {24, 50, 60}) {
      SCOPED_TRACE(rate);
      const std::string name = std::to_string(rate) + (codec == RecordingCodec::hevc ? "h.mp4" : ".mp4");
      const auto source = record(rig, name, {.pictures = 3 * rate, .rate = rate, .codec = codec});
      const std::int64_t before = 1000 - 5 * 1000 / rate;
      expectCut(source, {{before, 1900, 1}, {0, 300, 1}}, evenly(3 * rate, rate), 5);
    }
  }
}

TEST_F(MovieCutting, TakesPicturesAtUnevenTimes) {
  std::vector<std::int64_t> milliseconds;
  std::vector<double> starts;
  for (int i = 0; i < 90; ++i) {
    milliseconds.push_back(i * 40 + i % 3 * 13);
    starts.push_back(static_cast<double>(milliseconds.back()));
  }
  const auto source = record(rig, "s.mp4", {.pictures = 90, .milliseconds = milliseconds});
  // Keys come by the second or by the count, whichever comes first.
  const container::Movie index = indexOf(source);
  const auto& samples = index.tracks.front().samples;
  std::size_t key = 12;
  while (!samples[key].isSync)
    ++key;
  for (const std::int64_t start : {milliseconds[12], milliseconds[12] - 1, milliseconds[12] + 1}) {
    SCOPED_TRACE(start);
    const std::size_t first = start < milliseconds[12] ? 11 : 12;
    expectCut(source, {{start, 3000, 1}}, starts, key - first);
  }
}

TEST_F(MovieCutting, TakesARunningSegment) {
  const auto source = record(rig, "s.mp4", {.pictures = 150, .lanes = {tone(440)}, .isFinished = false});
  const container::Movie index = indexOf(source);
  ASSERT_TRUE(index.isFragmented);
  const auto pictures = static_cast<int>(index.tracks.front().samples.size());
  ASSERT_GE(pictures, 30);
  expectCut(source, {{900, 990, 1}, {100, 900, 1}}, evenly(pictures, 30), 3 + 24, 1);
}

} // namespace
} // namespace tessarin
