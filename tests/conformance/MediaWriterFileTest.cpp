#include "MediaWriterTesting.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>

// What the real module leaves on the disk: sample tables, fragments, and what failures and cancelling leave.
namespace tessarin {
namespace {

using testing::ElementsAre;

class MediaWriterFile : public testing::Test {
 protected:
  void begin(const VideoSettings& settings = smallVideo()) {
    video = settings;
    writer = rig.makeWriter("a.mp4");
    input = writer->addVideoInput(settings);
    ASSERT_NE(input, nullptr);
    ASSERT_TRUE(writer->startWriting());
    writer->startSession(MediaTime::zero());
  }
  // A picture that differs from the one before.
  bool append(MediaTime time) {
    Painting painting(static_cast<std::int32_t>(video.width), static_cast<std::int32_t>(video.height));
    painting.fill(0, 0, 32 + appended % 64, 48, {200, static_cast<std::uint8_t>(appended * 5), 30});
    ++appended;
    picture = input->render(painting.view());
    return picture && appendPatiently(*writer, *input, picture, time);
  }
  void appendFrames(int count) {
    for (int i = 0; i < count; ++i)
      ASSERT_TRUE(append(MediaTime(i, static_cast<std::int32_t>(video.expectedFrameRate))));
  }
  void finishFile() {
    input->markAsFinished();
    finish(*writer);
    ASSERT_EQ(writer->status(), MediaWriterStatus::completed);
  }
  const container::Track& track() {
    movie = rig.movie("a.mp4");
    return movie.tracks.at(0);
  }
  std::vector<std::size_t> keys() {
    std::vector<std::size_t> found;
    const auto& samples = track().samples;
    for (std::size_t i = 0; i < samples.size(); ++i)
      if (samples[i].isSync)
        found.push_back(i);
    return found;
  }
  // The number of pictures in the file each time when it is made durable.
  void watchFragments() {
    rig.files.setObserver([this](const FaultyFileSystem::Event& event) {
      if (event.operation == FileOperation::sync)
        durable.push_back(rig.movie("a.mp4").tracks.at(0).samples.size());
    });
  }

  MediaModuleRig rig;
  VideoSettings video;
  std::unique_ptr<MediaFileWriter> writer;
  VideoInput* input = nullptr;
  std::shared_ptr<const CodablePicture> picture;
  int appended = 0;
  container::Movie movie;
  std::vector<std::size_t> durable;
};

TEST_F(MediaWriterFile, holdsEveryPictureAtItsTimeOnTheGridAndOffIt) {
  begin();
  const MediaTime times[] = {
      {0, 10}, {1, 10}, {2, 10}, {1'234'567'891, 4'000'000'000 / 4}, {13, 10}, {1'300'000'001, 1'000'000'000},
      {7, 3},  {24, 10}};
  for (const MediaTime time : times)
    ASSERT_TRUE(append(time));
  finishFile();
  std::vector<std::int64_t> decodeTimes;
  for (const container::Sample& sample : track().samples)
    decodeTimes.push_back(sample.decodeTime);
  EXPECT_THAT(decodeTimes, ElementsAre(0, 9000, 18000, 111111, 117000, 117001, 210000, 216000));
  EXPECT_EQ(track().timescale, 90000);
  EXPECT_EQ(track().samples.back().duration, 9000U) << "one interval of the expected rate";
  EXPECT_EQ(movie.duration, MediaTime(25, 10));
  EXPECT_FALSE(movie.isFragmented);
  EXPECT_EQ(track().descriptions.size(), 1U);
  EXPECT_EQ(track().descriptions[0].codec, "avc1");
  EXPECT_EQ(track().descriptions[0].width, 128);
  EXPECT_EQ(track().descriptions[0].height, 96);
}

TEST_F(MediaWriterFile, refersTimesToTheStartOfTheSession) {
  begin();
  writer->startSession(MediaTime(5, 1));
  ASSERT_TRUE(append(MediaTime(50, 10)));
  ASSERT_TRUE(append(MediaTime(51, 10)));
  finishFile();
  EXPECT_EQ(track().samples[0].decodeTime, 0);
  EXPECT_EQ(track().samples[1].decodeTime, 9000);
}

TEST_F(MediaWriterFile, hasAKeyPictureAtEveryKeyInterval) {
  begin();
  appendFrames(45);
  finishFile();
  EXPECT_THAT(keys(), ElementsAre(0, 10, 20, 30, 40));
}

TEST_F(MediaWriterFile, hasKeyPicturesAloneWhenEveryPictureIsToBeOne) {
  VideoSettings settings = smallVideo();
  settings.maximumKeyFrameInterval = 1;
  begin(settings);
  appendFrames(5);
  finishFile();
  EXPECT_THAT(keys(), ElementsAre(0, 1, 2, 3, 4));
}

TEST_F(MediaWriterFile, canBeReadWhileItGrowsAfterOneSecondAndThenEveryTen) {
  begin();
  watchFragments();
  appendFrames(250);
  finishFile();
  ASSERT_GE(durable.size(), 3U);
  durable.resize(3);
  EXPECT_THAT(durable, ElementsAre(10, 110, 210));
  EXPECT_EQ(track().samples.size(), 250U);
}

TEST_F(MediaWriterFile, beginsAFragmentWithTheFirstKeyAfterItsTime) {
  VideoSettings settings = smallVideo();
  settings.maximumKeyFrameInterval = 15;
  settings.expectedFrameRate = 15; // so that keys are 1.5 s apart
  begin(settings);
  watchFragments();
  for (int i = 0; i < 260; ++i)
    ASSERT_TRUE(append(MediaTime(i, 15)));
  finishFile();
  ASSERT_GE(durable.size(), 2U);
  durable.resize(2);
  EXPECT_THAT(durable, ElementsAre(15, 165));
}

TEST_F(MediaWriterFile, growsWithAStillPictureToo) {
  begin();
  watchFragments();
  ASSERT_TRUE(append(MediaTime(0, 10)));
  for (int i = 1; i < 250; ++i)
    ASSERT_TRUE(appendPatiently(*writer, *input, picture, MediaTime(i, 10)));
  finishFile();
  ASSERT_GE(durable.size(), 3U);
  durable.resize(3);
  EXPECT_THAT(durable, ElementsAre(10, 110, 210));
  EXPECT_EQ(track().samples.size(), 250U);
  std::uint64_t bytes = 0;
  for (const container::Sample& sample : track().samples)
    bytes += sample.isSync ? 0 : sample.size;
  EXPECT_LT(bytes / 225, 200U) << "next to nothing for a repeated picture";
}

// A still camera's coder is far ahead of one that codes a screen in motion.
TEST_F(MediaWriterFile, holdsTheOtherTracksPicturesBackUntilThoseOfTheFirstAreThere) {
  video = smallVideo();
  writer = rig.makeWriter("a.mp4");
  input = writer->addVideoInput(video);
  VideoInput* const other = writer->addVideoInput(video);
  ASSERT_TRUE(input != nullptr && other != nullptr);
  ASSERT_TRUE(writer->startWriting());
  writer->startSession(MediaTime::zero());
  std::vector<MediaTime> ends, otherEnds;
  rig.files.setObserver([&](const FaultyFileSystem::Event& event) {
    if (event.operation != FileOperation::sync)
      return;
    movie = rig.movie("a.mp4");
    ends.push_back(movie.tracks.at(0).start + movie.tracks[0].duration);
    otherEnds.push_back(movie.tracks.at(1).start + movie.tracks[1].duration);
  });
  const auto still = other->render(Painting(128, 96).view());
  for (int i = 0; i < 250; ++i)
    ASSERT_TRUE(appendPatiently(*writer, *other, still, MediaTime(i, 10)));
  appendFrames(250);
  other->markAsFinished();
  finishFile();
  ASSERT_GE(ends.size(), 3U);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(ends[i], MediaTime(1 + 10 * static_cast<std::int64_t>(i), 1));
    EXPECT_EQ(otherEnds[i], ends[i]) << i;
  }
  EXPECT_EQ(rig.movie("a.mp4").tracks.at(1).samples.size(), 250U);
}

TEST_F(MediaWriterFile, mayHoldOnePicture) {
  begin();
  ASSERT_TRUE(append(MediaTime(0, 10)));
  finishFile();
  EXPECT_EQ(track().samples.size(), 1U);
  EXPECT_EQ(movie.duration, MediaTime(1, 10));
}

TEST_F(MediaWriterFile, mustNotExistBefore) {
  std::ofstream(rig.path("a.mp4")) << "something of value";
  writer = rig.makeWriter("a.mp4");
  ASSERT_NE(writer->addVideoInput(smallVideo()), nullptr);
  EXPECT_FALSE(writer->startWriting());
  EXPECT_EQ(writer->status(), MediaWriterStatus::failed);
  ASSERT_TRUE(writer->error());
  EXPECT_EQ(writer->error()->domain, "POSIX");
  EXPECT_EQ(writer->error()->code, EEXIST);
  writer->cancelWriting();
  writer.reset();
  std::string content;
  std::getline(std::ifstream(rig.path("a.mp4")), content);
  EXPECT_EQ(content, "something of value");
}

TEST_F(MediaWriterFile, isGoneAfterCancelling) {
  begin();
  appendFrames(30);
  EXPECT_TRUE(rig.has("a.mp4"));
  writer->cancelWriting();
  EXPECT_FALSE(rig.has("a.mp4"));
  EXPECT_FALSE(input->append(picture, MediaTime(40, 10)));
  EXPECT_FALSE(input->isReadyForMoreMediaData());
}

TEST_F(MediaWriterFile, staysReadableWhenTheWriterIsDestroyedWithoutAnEnd) {
  begin();
  appendFrames(60);
  writer.reset();
  // Without those in line, in the coder and the last one.
  EXPECT_GE(track().samples.size(), 60U - 4 - 1 - 6 - 1);
  EXPECT_TRUE(movie.isFragmented);
}

TEST_F(MediaWriterFile, isWholeWhenTheWriterIsDestroyedRightAfterItsFinishBegan) {
  begin();
  appendFrames(30);
  input->markAsFinished();
  writer->finishWriting([] {});
  writer.reset();
  EXPECT_EQ(track().samples.size(), 30U);
  EXPECT_FALSE(movie.isFragmented);
}

TEST_F(MediaWriterFile, staysAsItIsWhenACompletedWriterIsCancelled) {
  begin();
  appendFrames(3);
  finishFile();
  writer->cancelWriting();
  EXPECT_EQ(writer->status(), MediaWriterStatus::completed);
  writer.reset();
  EXPECT_EQ(track().samples.size(), 3U);
}

TEST_F(MediaWriterFile, keepsItsFragmentsWhenTheDiskIsFull) {
  begin();
  // The head and the first fragments come through.
  std::size_t syncs = 0;
  rig.files.setObserver([&](const FaultyFileSystem::Event& event) {
    if (event.operation == FileOperation::sync && ++syncs == 2)
      rig.files.failAlways(FileOperation::write, ENOSPC);
  });
  // How soon the failure shows depends on the disk.
  int taken = 0;
  while (taken < 300 && append(MediaTime(taken, 10)))
    ++taken;
  EXPECT_GE(taken, 200);
  finish(*writer);
  EXPECT_EQ(writer->status(), MediaWriterStatus::failed);
  ASSERT_TRUE(writer->error());
  EXPECT_EQ(writer->error()->domain, "POSIX");
  EXPECT_EQ(writer->error()->code, ENOSPC);
  EXPECT_FALSE(append(MediaTime(taken, 10)));
  writer.reset();
  EXPECT_EQ(track().samples.size(), 110U);
  EXPECT_TRUE(movie.isFragmented);
}

// The end of the file is torn where the disk was full; players that know nothing of that must read it.
TEST_F(MediaWriterFile, playsToTheLastFragmentWhenTheDiskGotFullWithinOne) {
  begin();
  rig.files.inject({FileOperation::write, "", 2, FaultyFileSystem::always, ENOSPC, 70});
  int taken = 0;
  while (taken < 1000 && append(MediaTime(taken, 10)))
    ++taken;
  finish(*writer);
  ASSERT_EQ(writer->status(), MediaWriterStatus::failed);
  writer.reset();
  EXPECT_GE(track().samples.size(), 10U);
  EXPECT_EQ(outputOf("ffprobe -v error -count_frames -show_entries stream=nb_read_frames -of csv=p=0 '" +
                     rig.path("a.mp4") + "'"),
            std::to_string(movie.tracks.at(0).samples.size()) + "\n");
}

TEST_F(MediaWriterFile, mayBeAbandonedWhileTheDiskIsFull) {
  begin();
  rig.files.failAlways(FileOperation::write, ENOSPC);
  rig.files.failAlways(FileOperation::truncate, EIO);
  for (int i = 0; i < 40 && append(MediaTime(i, 10)); ++i)
    ;
  writer.reset();
  EXPECT_TRUE(rig.has("a.mp4"));
}

TEST_F(MediaWriterFile, failsWhenTheEndCannotBeWritten) {
  begin();
  appendFrames(15);
  rig.files.failAlways(FileOperation::sync, EIO);
  input->markAsFinished();
  finish(*writer);
  EXPECT_EQ(writer->status(), MediaWriterStatus::failed);
  ASSERT_TRUE(writer->error());
  EXPECT_EQ(writer->error()->code, EIO);
  writer.reset();
  EXPECT_GE(track().samples.size(), 10U);
  EXPECT_TRUE(movie.isFragmented);
}

TEST_F(MediaWriterFile, isGoneOrWholeWhenItsFinishIsCancelled) {
  begin();
  appendFrames(30);
  input->markAsFinished();
  int completions = 0; // of the writer's thread until the writer is gone
  writer->finishWriting([&] { ++completions; });
  writer->cancelWriting();
  const MediaWriterStatus status = writer->status();
  writer.reset();
  EXPECT_EQ(completions, 1);
  EXPECT_EQ(rig.has("a.mp4"), status == MediaWriterStatus::completed);
  EXPECT_TRUE(status == MediaWriterStatus::completed || status == MediaWriterStatus::cancelled);
  if (status == MediaWriterStatus::completed) {
    EXPECT_EQ(track().samples.size(), 30U);
  }
}

TEST_F(MediaWriterFile, keepsWhatWasCodedWhenThePicturesGoWrong) {
  begin();
  appendFrames(60);
  EXPECT_FALSE(append(MediaTime(3, 10)));
  EXPECT_EQ(writer->status(), MediaWriterStatus::failed);
  ASSERT_TRUE(writer->error());
  EXPECT_EQ(writer->error()->domain, "POSIX");
  EXPECT_EQ(writer->error()->code, EINVAL);
  finish(*writer);
  writer.reset();
  // Without those in line, in the coder and the last one.
  EXPECT_GE(track().samples.size(), 60U - 4 - 1 - 6 - 1);
  EXPECT_TRUE(movie.isFragmented);
}

TEST_F(MediaWriterFile, describesItsTrackEquallyForEqualSettings) {
  begin();
  appendFrames(20);
  finishFile();
  const container::SampleDescription first = track().descriptions.at(0);
  writer = rig.makeWriter("b.mp4");
  input = writer->addVideoInput(video);
  ASSERT_TRUE(writer->startWriting());
  writer->startSession(MediaTime::zero());
  appendFrames(5);
  finishFile();
  EXPECT_EQ(rig.movie("b.mp4").tracks.at(0).descriptions.at(0), first);
}

TEST_F(MediaWriterFile, refusesSettingsWithoutACoder) {
  writer = rig.makeWriter("a.mp4");
  VideoSettings odd = smallVideo();
  odd.width = 127;
  EXPECT_FALSE(writer->canApply(odd));
  EXPECT_EQ(writer->addVideoInput(odd), nullptr);
  EXPECT_FALSE(writer->startWriting());
  EXPECT_FALSE(rig.has("a.mp4"));
}

TEST_F(MediaWriterFile, rendersNoMorePicturesThanAreBounded) {
  begin();
  std::vector<std::shared_ptr<const CodablePicture>> held;
  while (auto next = input->render(Painting(128, 96).view())) {
    held.push_back(std::move(next));
    ASSERT_LT(held.size(), 100U);
  }
  EXPECT_GE(held.size(), 8U);
  held.pop_back();
  EXPECT_NE(input->render(Painting(128, 96).view()), nullptr);
}

} // namespace
} // namespace tessarin
