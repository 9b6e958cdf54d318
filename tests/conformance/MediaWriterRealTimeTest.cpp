#include "MediaWriterTesting.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

// What the real module does with pictures that come faster than it codes.
namespace tessarin {
namespace {

// More than may wait, and no more than the places in the line.
constexpr std::int64_t pictures = 50;

// 1080p noise, dearer than any screen: a picture is appended long before the one before it is coded.
VideoSettings dearVideo() {
  VideoSettings settings = smallVideo();
  settings.width = 1920;
  settings.height = 1080;
  settings.averageBitRate = 20'000'000;
  settings.expectedFrameRate = 60;
  settings.maximumKeyFrameInterval = 60;
  settings.expectsMediaDataInRealTime = true;
  return settings;
}

TEST(MediaWriterRealTime, takesEveryPictureAtItsTimeAndShowsFewerDifferentOnes) {
  MediaModuleRig rig;
  const auto writer = rig.makeWriter("a.mp4");
  VideoInput* input = writer->addVideoInput(dearVideo());
  ASSERT_NE(input, nullptr);
  ASSERT_TRUE(writer->startWriting());
  writer->startSession(MediaTime::zero());

  Painting painting(1920, 1080);
  for (std::int64_t i = 0; i < pictures; ++i) {
    if (i < 8)
      painting.scatter(static_cast<unsigned>(i));
    ASSERT_TRUE(input->isReadyForMoreMediaData()) << i;
    const auto picture = input->render(painting.view());
    ASSERT_NE(picture, nullptr) << i;
    ASSERT_TRUE(input->append(picture, MediaTime(i, 60))) << i;
  }
  input->markAsFinished();
  finish(*writer);
  ASSERT_EQ(writer->status(), MediaWriterStatus::completed);

  const container::Movie movie = rig.movie("a.mp4");
  ASSERT_EQ(movie.tracks.size(), 1U);
  const auto& samples = movie.tracks[0].samples;
  ASSERT_EQ(samples.size(), static_cast<std::size_t>(pictures));
  for (std::size_t i = 0; i < samples.size(); ++i)
    EXPECT_EQ(samples[i].decodeTime, static_cast<std::int64_t>(i) * 1500);
  EXPECT_EQ(movie.duration.wholeMilliseconds(), 833);
  // A repetition is a few bytes; a new picture of noise is many thousands.
  const auto repeated =
      std::count_if(samples.begin(), samples.end(), [](const auto& sample) { return sample.size < 200; });
  EXPECT_GT(repeated, 0);
  EXPECT_EQ(outputOf("ffmpeg -nostdin -v error -xerror -i '" + rig.path("a.mp4") + "' -f null -"), "");
}

// How far the coders searched, each of which tells it with its first picture.
std::vector<std::string> searchesIn(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string all((std::istreambuf_iterator<char>(file)), {});
  const std::string mark = " subme=";
  std::vector<std::string> searches;
  for (std::size_t at = all.find(mark); at != std::string::npos; at = all.find(mark, at + 1))
    searches.push_back(all.substr(at + mark.size(), 1));
  return searches;
}

// Appends pictures that differ from one to the next at their times, without waiting for those times.
void appendDearPictures(MediaFileWriter& writer, std::size_t count) {
  VideoInput* input = writer.addVideoInput(dearVideo());
  ASSERT_NE(input, nullptr);
  ASSERT_TRUE(writer.startWriting());
  writer.startSession(MediaTime::zero());
  Painting painting(1920, 1080);
  std::vector<std::shared_ptr<const CodablePicture>> rendered;
  for (unsigned number = 0; number < 4; ++number) {
    painting.scatter(number);
    rendered.push_back(input->render(painting.view()));
    ASSERT_NE(rendered.back(), nullptr);
  }
  for (std::size_t i = 0; i < count; ++i) {
    ASSERT_TRUE(input->isReadyForMoreMediaData()) << i;
    ASSERT_TRUE(input->append(rendered[i % 4], MediaTime(static_cast<std::int64_t>(i), 60))) << i;
  }
  input->markAsFinished();
  finish(writer);
  ASSERT_EQ(writer.status(), MediaWriterStatus::completed);
}

TEST(MediaWriterRealTime, codesTheNextSegmentWithLessEffortOnAMachineThatIsTooSlow) {
  MediaModuleRig rig;
  appendDearPictures(*rig.makeWriter("before.mp4"), 2); // which all find room
  // Where in this one the effort changes depends on how far its coder has come when the pictures are there.
  appendDearPictures(*rig.makeWriter("strained.mp4"), 100);
  appendDearPictures(*rig.makeWriter("after.mp4"), 2);
  EXPECT_EQ(searchesIn(rig.path("before.mp4")), std::vector<std::string>{"2"});
  EXPECT_EQ(searchesIn(rig.path("after.mp4")), std::vector<std::string>{"0"});
  for (const char* const name : {"strained.mp4", "after.mp4"})
    EXPECT_EQ(rig.movie(name).tracks.at(0).descriptions, rig.movie("before.mp4").tracks.at(0).descriptions);
}

} // namespace
} // namespace tessarin
