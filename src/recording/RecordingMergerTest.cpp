#include "support/RecordingMergerRig.hpp"

#include <cerrno>
#include <filesystem>
#include <thread>

namespace tessarin {
namespace {

using namespace tessarin::testing;
using container::Movie;
using Error = RecordingMergeError;

TEST(RecordingMergePlan, PutsSegmentsOneBehindTheOtherExactly) {
  const std::vector<MediaTime> durations = {MediaTime(1, 3), MediaTime(90001, 90000), MediaTime(500, 1000)};
  const RecordingMergePlan plan(durations);
  EXPECT_EQ(plan.insertions,
            (std::vector<RecordingMergeInsertion>{{MediaTime::zero(), MediaTime(1, 3)},
                                                  {MediaTime(1, 3), MediaTime(90001, 90000)},
                                                  {MediaTime(120001, 90000), MediaTime(1, 2)}}));
  EXPECT_EQ(plan.total, MediaTime(165001, 90000));
}

TEST(RecordingMergePlan, NeedsSegmentsThatLast) {
  const auto errorFor = [](const std::vector<MediaTime>& durations) {
    return failureOf<Error>([&] { const RecordingMergePlan plan(durations); });
  };
  EXPECT_EQ(errorFor({}), Error::noSegments);
  EXPECT_EQ(errorFor({MediaTime()}), Error::invalidSegment);
  EXPECT_EQ(errorFor({MediaTime::zero()}), Error::invalidSegment);
  EXPECT_EQ(errorFor({MediaTime(1, 1), MediaTime(-1, 1000)}), Error::invalidSegment);
  EXPECT_EQ(errorFor({MediaTime(1, 1'000'000)}), std::nullopt);
}

TEST_F(RecordingMergerTest, JoinsTheScreenTrackOfTwoSegmentsWithoutAGap) {
  const Paths segments = {segment({videoOf(1001), videoOf(1001)}), segment({videoOf(500), videoOf(500)})};
  const std::int64_t size = merger.mergeVideoTrack(segments, out("screen.mp4"), 0);

  EXPECT_EQ(size, static_cast<std::int64_t>(std::filesystem::file_size(out("screen.mp4"))));
  EXPECT_EQ(outputs(), Paths{"screen.mp4"});
  const Movie movie = movieAt(out("screen.mp4"));
  ASSERT_EQ(movie.tracks.size(), 1U);
  EXPECT_FALSE(movie.isFragmented);
  EXPECT_EQ(movie.duration, MediaTime(1501, 1000));
  const container::Track& track = movie.tracks.front();
  EXPECT_EQ(track.descriptions.front().codec, "avc1");
  ASSERT_EQ(track.samples.size(), 31U + 15U);
  EXPECT_EQ(MediaTime(track.samples[31].decodeTime, track.timescale), MediaTime(1001, 1000));
  EXPECT_EQ(sampleBytesOf(out("screen.mp4"), 0),
            joined(sampleBytesOf(segments[0], 0), sampleBytesOf(segments[1], 0)));
}

TEST_F(RecordingMergerTest, TakesTheCameraTrackByItsPlace) {
  const Paths segments = {segment({videoOf(1000), videoOf(1000)}), segment({videoOf(500), videoOf(500)})};
  merger.mergeVideoTrack(segments, out("camera.mp4"), 1);
  EXPECT_EQ(sampleBytesOf(out("camera.mp4"), 0),
            joined(sampleBytesOf(segments[0], 1), sampleBytesOf(segments[1], 1)));
}

TEST_F(RecordingMergerTest, StretchesAPictureThatEndsBeforeItsSegment) {
  const Paths segments = {segment({videoOf(1000), audioOf(1200)}), segment({videoOf(500), audioOf(500)})};
  merger.mergeVideoTrack(segments, out("screen.mp4"), 0);
  const container::Track track = movieAt(out("screen.mp4")).tracks.front();
  EXPECT_EQ(MediaTime(track.samples[30].decodeTime, track.timescale), MediaTime(1200, 1000));
}

TEST_F(RecordingMergerTest, RefusesASegmentWithoutTheVideoTrack) {
  const Paths segments = {segment({videoOf(1000), videoOf(1000)}), segment({videoOf(500), audioOf(500)})};
  for (const std::int64_t index : {-1, 1, 2})
    EXPECT_EQ(errorOf([&] { merger.mergeVideoTrack(segments, out("screen.mp4"), index); }),
              Error::missingVideo);
  EXPECT_EQ(outputs(), Paths{});
}

TEST_F(RecordingMergerTest, ClonesALoneSegmentThatAlreadyIsTheScreenTrack) {
  const std::string only = segment({videoOf(1000)});
  const std::int64_t size = merger.mergeVideoTrack({only}, out("screen.mp4"), 0);
  EXPECT_TRUE(wasMadeByCloning());
  EXPECT_EQ(bytesOf(out("screen.mp4")), bytesOf(only));
  EXPECT_EQ(size, static_cast<std::int64_t>(std::filesystem::file_size(only)));
  EXPECT_EQ(outputs(), Paths{"screen.mp4"});
}

TEST_F(RecordingMergerTest, CopiesWhereTheVolumeCannotClone) {
  const std::string only = segment({videoOf(1000)});
  files.refuseClones();
  merger.mergeVideoTrack({only}, out("screen.mp4"), 0);
  EXPECT_EQ(files.count(FileOperation::copy), 1U);
  EXPECT_EQ(bytesOf(out("screen.mp4")), bytesOf(only));
}

TEST_F(RecordingMergerTest, CopiesWhenACloneFails) {
  const std::string only = segment({videoOf(1000)});
  files.failNth(FileOperation::clone, 1, EPERM);
  merger.mergeVideoTrack({only}, out("screen.mp4"), 0);
  EXPECT_EQ(bytesOf(out("screen.mp4")), bytesOf(only));
}

TEST_F(RecordingMergerTest, TakesALoneSegmentApartThatHoldsMore) {
  const std::string withSound = segment({videoOf(1000), audioOf(1000)});
  merger.mergeVideoTrack({withSound}, out("screen.mp4"), 0);
  const Movie movie = movieAt(out("screen.mp4"));
  ASSERT_EQ(movie.tracks.size(), 1U);
  EXPECT_EQ(sampleBytesOf(out("screen.mp4"), 0), sampleBytesOf(withSound, 0));
}

TEST_F(RecordingMergerTest, MakesAnOrdinaryFileOfASegmentThatACrashHasLeft) {
  const std::string torn = segment({videoOf(1000)}, false);
  ASSERT_TRUE(movieAt(torn).isFragmented);
  merger.mergeVideoTrack({torn}, out("screen.mp4"), 0);
  merger.mergeShareVideo(Paths{torn}, std::vector<std::int64_t>{}, out("recording.mp4"));
  for (const char* name : {"screen.mp4", "recording.mp4"}) {
    EXPECT_FALSE(movieAt(out(name)).isFragmented);
    EXPECT_EQ(sampleBytesOf(out(name), 0), sampleBytesOf(torn, 0));
  }
}

TEST_F(RecordingMergerTest, NeedsSegments) {
  EXPECT_EQ(errorOf([&] { merger.mergeVideoTrack({}, out("screen.mp4"), 0); }), Error::noSegments);
  EXPECT_EQ(errorOf([&] { merger.mergeAudio({}, out("a.m4a"), 0); }), Error::noSegments);
  EXPECT_EQ(errorOf([&] { merger.mergeShareVideo(Paths{}, std::vector<std::int64_t>{}, out("r.mp4")); }),
            Error::invalidSegment);
}

TEST_F(RecordingMergerTest, RefusesSegmentsThatAreNoMovies) {
  const std::string good = segment({videoOf(1000)});
  const std::string link = directory / "segments/link.mp4";
  std::filesystem::create_symlink(good, link);
  SyntheticTrack nothing = videoOf(1000);
  nothing.sampleCount = 0;
  for (const std::string& bad :
       {directory / "segments/missing.mp4", link, directory.write("segments/text.mp4", "no movie"),
        directory / "segments", segment({nothing})}) {
    EXPECT_EQ(errorOf([&] {
                merger.mergeVideoTrack({good, bad}, out("screen.mp4"), 0);
              }),
              Error::invalidSegment);
    EXPECT_EQ(errorOf([&] { merger.mergeVideoTrack({bad}, out("screen.mp4"), 0); }), Error::invalidSegment);
    EXPECT_EQ(errorOf([&] { merger.mergeAudio({bad}, out("a.m4a"), 0); }), Error::invalidSegment);
    EXPECT_EQ(errorOf([&] { merger.mergeShareVideo(Paths{bad}, std::vector<std::int64_t>{}, out("r.mp4")); }),
              Error::invalidSegment);
    EXPECT_EQ(errorOf([&] { merger.mergeShareVideo(bad, Paths{}, out("r.mp4")); }), Error::invalidSegment);
  }
  EXPECT_EQ(outputs(), Paths{});
}

TEST_F(RecordingMergerTest, RunsManyMergesAtOnce) {
  const Paths segments = {segment({videoOf(3000), videoOf(3000), audioOf(3000), audioOf(3000)}),
                          segment({videoOf(2000), videoOf(2000), audioOf(2000), audioOf(2000)})};
  std::vector<std::thread> threads;
  threads.emplace_back([&] { merger.mergeVideoTrack(segments, out("screen.mp4"), 0); });
  threads.emplace_back([&] { merger.mergeVideoTrack(segments, out("camera.mp4"), 1); });
  threads.emplace_back([&] { merger.mergeAudio(segments, out("system-audio.m4a"), 0); });
  threads.emplace_back([&] { merger.mergeAudio(segments, out("microphone.m4a"), 1); });
  threads.emplace_back([&] {
    merger.mergeShareVideo(segments, std::vector<std::int64_t>{0, 1}, out("recording.mp4"));
  });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(outputs(),
            (Paths{"camera.mp4", "microphone.m4a", "recording.mp4", "screen.mp4", "system-audio.m4a"}));
  for (const std::string& name : outputs())
    EXPECT_EQ(movieAt(out(name)).duration, MediaTime(5, 1)) << name;
}

} // namespace
} // namespace tessarin
