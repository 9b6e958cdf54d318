#include "MovieTesting.hpp"

#include "container/MovieJoin.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <future>

namespace tessarin {
namespace {

constexpr const char* h264 = "-c:v libx264 -preset ultrafast -pix_fmt yuv420p";

std::vector<float> soundOf(MediaAssets& assets, const std::string& path, std::size_t track) {
  std::vector<float> sound;
  assets.decodeSound(path, track, [&](const DecodedSound& stretch) {
    const std::int64_t start = stretch.start.convertedTo(48000).value();
    EXPECT_EQ(stretch.start, MediaTime(start, 48000));
    EXPECT_GE(start, std::ssize(sound));
    sound.resize(static_cast<std::size_t>(start));
    sound.insert(sound.end(), stretch.samples.begin(), stretch.samples.end());
  });
  return sound;
}

class MovieAssets : public ::testing::Test {
 protected:
  MovieRig rig;
};

TEST_F(MovieAssets, TellsWhatAFileHolds) {
  const auto path = rig.paint("a.mp4", 60, 30, std::string(h264) + " -c:a aac -shortest", toneInput(2));
  const MediaAsset asset = rig.assets.asset(path);
  EXPECT_TRUE(asset.isComposable);
  EXPECT_NEAR(asset.duration.seconds(), 2, 0.03);
  ASSERT_EQ(asset.videoTracks.size(), 1U);
  const AssetVideoTrack& video = asset.videoTracks[0];
  EXPECT_EQ(video.naturalWidth, 320);
  EXPECT_EQ(video.naturalHeight, 240);
  EXPECT_EQ(video.preferredTransform, AffineTransform());
  EXPECT_NEAR(video.nominalFrameRate, 30, 1e-9);
  EXPECT_EQ(video.timeRange.start, MediaTime::zero());
  EXPECT_EQ(video.timeRange.duration, MediaTime(2, 1));
  EXPECT_EQ(video.subtypes, std::vector<std::string>{"avc1"});
  ASSERT_EQ(asset.audioTracks.size(), 1U);
  EXPECT_EQ(asset.audioTracks[0].subtypes, std::vector<std::string>{"aac "});
  EXPECT_EQ(asset.audioTracks[0].timeRange.start, MediaTime::zero());
}

TEST_F(MovieAssets, TellsCodecRotationRateAndPixelAspect) {
  const auto upright = rig.paint("upright.mp4", 10, 50, h264);
  EXPECT_NEAR(rig.assets.asset(upright).videoTracks.at(0).nominalFrameRate, 50, 1e-9);
  const auto rotated = rig.path("rotated.mp4");
  outputOf("ffmpeg -v error -i '" + upright + "' -c copy -metadata:s:v rotate=90 '" + rotated + "'");
  const AffineTransform transform = rig.assets.asset(rotated).videoTracks.at(0).preferredTransform;
  const RectDTO bounds = transform.boundsOf({0, 0, 320, 240});
  EXPECT_EQ(bounds.width, 240);
  EXPECT_EQ(bounds.height, 320);

  const auto hevc =
      rig.paint("hevc.mp4", 10, 30, "-c:v libx265 -preset ultrafast -x265-params log-level=none -tag:v hvc1");
  EXPECT_EQ(rig.assets.asset(hevc).videoTracks.at(0).subtypes, std::vector<std::string>{"hvc1"});

  const auto wide = rig.paint("wide.mp4", 10, 30, std::string(h264) + " -vf setsar=2");
  EXPECT_EQ(rig.assets.asset(wide).videoTracks.at(0).naturalWidth, 640);
  EXPECT_EQ(rig.assets.asset(wide).videoTracks.at(0).naturalHeight, 240);
}

TEST_F(MovieAssets, RefusesWhatIsNoMovie) {
  const auto text = rig.directory().write("text.mp4", "not a movie at all, but long enough for a header");
  const auto empty = rig.directory().write("empty.mp4", "");
  const auto movie = rig.paint("whole.mp4", 30, 30, h264);
  const auto list = rig.directory().write("list.mp4", "#EXTM3U\n#EXTINF:1,\nwhole.mp4\n");
  const auto concat = rig.directory().write("concat.mp4", "ffconcat version 1.0\nfile whole.mp4\n");
  const std::string bytes = rig.directory().read("whole.mp4");
  const auto torn = rig.directory().write("torn.mp4", bytes.substr(0, bytes.size() / 2));
  outputOf("ffmpeg -v error -i '" + movie + "' -c copy -movflags +faststart '" + rig.path("front.mp4") + "'");
  const std::string front = rig.directory().read("front.mp4");
  const auto tornEnd = rig.directory().write("torn-end.mp4", front.substr(0, front.size() - 100));
  for (const std::string& path : {text, empty, list, concat, torn, tornEnd, rig.path("absent.mp4")})
    EXPECT_EQ(editingFailureOf([&] { rig.assets.asset(path); }), MovieEditingError::unreadable) << path;
}

TEST_F(MovieAssets, TakesAFileThatIsMadeOfFragmentsOnlyWhole) {
  rig.paint("f.mp4", 60, 30, std::string(h264) + " -g 10 -movflags +frag_keyframe+empty_moov");
  const std::string whole = rig.directory().read("f.mp4");
  const MediaAsset asset = rig.assets.asset(rig.path("f.mp4"));
  EXPECT_TRUE(asset.isComposable);
  EXPECT_EQ(asset.duration, MediaTime(2, 1));
  EXPECT_EQ(frameCounter::read(rig.assets.picture(rig.path("f.mp4"), MediaTime(59, 30)).view), 59U);
  const auto torn = rig.directory().write("torn.mp4", whole.substr(0, whole.size() * 3 / 4));
  EXPECT_EQ(editingFailureOf([&] { rig.assets.asset(torn); }), MovieEditingError::unreadable);
}

// An index whose media lie in another file, which it names.
TEST_F(MovieAssets, FollowsNoReferenceToAnotherFile) {
  rig.paint("a.mp4", 10, 30, h264);
  std::string bytes = rig.directory().read("a.mp4");
  const std::size_t reference = bytes.find("url ");
  ASSERT_NE(reference, std::string::npos);
  ASSERT_EQ(bytes.substr(reference + 4, 4), std::string("\0\0\0\1", 4));
  bytes[reference + 7] = 0;
  const auto elsewhere = rig.directory().write("elsewhere.mp4", bytes);
  EXPECT_FALSE(rig.assets.asset(elsewhere).isComposable);
  EXPECT_EQ(editingFailureOf([&] { rig.assets.picture(elsewhere, MediaTime::zero()); }),
            MovieEditingError::notComposable);
}

// Segments that were coded differently, one behind the other in one track.
TEST_F(MovieAssets, ShowsThePicturesOfATrackWithSeveralDescriptions) {
  const std::vector<std::string> parts{
      rig.paint("1.mp4", 30, 30, std::string(h264) + " -g 10 -bf 0"),
      rig.paint("2.mp4", 30, 30, "-c:v libx264 -preset fast -pix_fmt yuv420p -profile:v main -bf 0"),
      rig.paint("3.mp4", 30, 30, std::string(h264) + " -g 10 -bf 0")};
  std::vector<std::unique_ptr<OpenFile>> files;
  std::vector<container::Movie> movies;
  movies.reserve(parts.size());
  container::JoinTrack track;
  for (const std::string& part : parts) {
    files.push_back(machineFileSystem().open(part, OpenMode::read));
    movies.push_back(container::readMovie(*files.back()));
    const container::Track& source = movies.back().tracks.at(0);
    track.pieces.push_back(
        {files.back().get(), &source, MediaTime(std::ssize(movies) - 1, 1), source.duration});
  }
  const auto joined = machineFileSystem().open(rig.path("joined.mp4"), OpenMode::createExclusive);
  container::writeJoinedMovie(*joined, {track}, "mp42");
  ASSERT_EQ(rig.assets.asset(rig.path("joined.mp4")).videoTracks.at(0).subtypes.size(), 2U);
  MovieExport movie;
  movie.composition = compositionOf(rig.path("joined.mp4"), {{0, 3000, 1}, {1500, 2500, 1}});
  movie.frameDuration = MediaTime(1, 30);
  movie.outputPath = rig.path("out.mp4");
  ASSERT_EQ(rig.run(movie), std::nullopt);
  std::vector<std::int64_t> expected;
  for (int i = 0; i < 90; ++i)
    expected.push_back(i % 30);
  for (int i = 45; i < 75; ++i)
    expected.push_back(i % 30);
  EXPECT_EQ(numbersIn(movie.outputPath), expected);
}

TEST_F(MovieAssets, TakesTracksThatItCannotDecodeForNotComposable) {
  const auto path = rig.paint("strange.mp4", 10, 30, "-c:v mpeg4");
  const MediaAsset asset = rig.assets.asset(path);
  EXPECT_FALSE(asset.isComposable);
  EXPECT_EQ(asset.videoTracks.size(), 1U);
  EXPECT_EQ(editingFailureOf([&] { rig.assets.picture(path, MediaTime::zero()); }),
            MovieEditingError::notComposable);
}

// With pictures that are coded in another order than they are shown, and groups that begin before their key.
TEST_F(MovieAssets, ShowsThePictureOfEveryTimeExactly) {
  const auto path = rig.paint(
      "b.mp4", 90, 30,
      "-c:v libx264 -preset fast -pix_fmt yuv420p -bf 3 -g 20 -x264-params open-gop=1:b-pyramid=normal");
  for (const int number : {0, 1, 19, 20, 21, 39, 40, 59, 60, 88, 89, 5}) {
    for (const std::int64_t within : {0, 400, 999}) {
      const Picture picture = rig.assets.picture(path, MediaTime(number * 1000 + within, 30000));
      EXPECT_EQ(frameCounter::read(picture.view), number) << within;
    }
  }
  for (const MediaTime time : {MediaTime(-1, 1000), MediaTime(3, 1), MediaTime()})
    EXPECT_EQ(editingFailureOf([&] { rig.assets.picture(path, time); }), MovieEditingError::unreadable);
}

TEST_F(MovieAssets, TakesADamagedPictureForUnreadableAndTheOthersForWhatTheyAre) {
  const auto path = rig.paint("c.mp4", 60, 30, std::string(h264) + " -g 30 -bf 0");
  const container::Movie movie = container::readMovie(*machineFileSystem().open(path, OpenMode::read));
  const container::Sample& damaged = movie.tracks.at(0).samples.at(10);
  std::string bytes = rig.directory().read("c.mp4");
  for (std::size_t i = 6; i < damaged.size; ++i)
    bytes[damaged.offset + i] = static_cast<char>(i * 37);
  const auto bad = rig.directory().write("bad.mp4", bytes);
  EXPECT_EQ(frameCounter::read(rig.assets.picture(bad, MediaTime(9, 30)).view), 9U);
  EXPECT_EQ(editingFailureOf([&] { rig.assets.picture(bad, MediaTime(10, 30)); }),
            MovieEditingError::unreadable);
  EXPECT_EQ(frameCounter::read(rig.assets.picture(bad, MediaTime(30, 30)).view), 30U);
}

TEST_F(MovieAssets, DecodesSoundAtItsPlace) {
  for (const auto& [rate, channels] :
       std::vector<std::pair<int, int>>{{48000, 2}, {48000, 1}, {44100, 1}, {44100, 2}}) {
    const std::string name = std::to_string(rate) + "-" + std::to_string(channels) + ".mp4";
    const auto path = rig.paint(name, 30, 30, std::string(h264) + " -c:a aac -b:a 192k",
                                toneInput(1, 1000, rate, channels));
    const std::vector<float> sound = soundOf(rig.assets, path, 0);
    EXPECT_NEAR(static_cast<double>(sound.size()), 48000, 5) << name;
    EXPECT_NEAR(toneIn(sound, 4800, 43200), 1000, 0.5) << name;
    EXPECT_NEAR(loudest(sound, 4800, 43200), 0.5, 0.02) << name;
  }
}

// Lip sync: a click lies where it was put.
TEST_F(MovieAssets, DecodesAClickOfARecordingWhereItWasHeard) {
  MediaModuleRig recorder;
  const std::vector<std::int64_t> frames{4800, 24000, 43210};
  recordSegment(recorder, "r.mp4", 10, {clicks(frames)});
  const std::vector<float> sound = soundOf(rig.assets, recorder.path("r.mp4"), 0);
  const auto found = peaks(sound);
  ASSERT_EQ(found.size(), frames.size());
  for (std::size_t i = 0; i < frames.size(); ++i)
    EXPECT_NEAR(static_cast<double>(found[i]), static_cast<double>(frames[i]), 2);
}

TEST_F(MovieAssets, DecodesTwoTracksAtATime) {
  const auto path = rig.paint("two.mp4", 30, 30, std::string(h264) + " -map 0 -map 1 -map 2 -c:a aac",
                              toneInput(1, 1000) + " " + toneInput(1, 440));
  auto other = std::async(std::launch::async, [&] { return soundOf(rig.assets, path, 1); });
  const std::vector<float> first = soundOf(rig.assets, path, 0);
  const std::vector<float> second = other.get();
  EXPECT_NEAR(toneIn(first, 4800, 43200), 1000, 0.5);
  EXPECT_NEAR(toneIn(second, 4800, 43200), 440, 0.5);
}

TEST_F(MovieAssets, TakesDamagedSoundForUnreadable) {
  const auto path = rig.paint("s.mp4", 30, 30, std::string(h264) + " -c:a aac", toneInput(1));
  const container::Movie movie = container::readMovie(*machineFileSystem().open(path, OpenMode::read));
  const container::Sample& damaged = movie.tracksOf(container::TrackKind::audio).at(0)->samples.at(20);
  std::string bytes = rig.directory().read("s.mp4");
  for (std::size_t i = 0; i < damaged.size; ++i)
    bytes[damaged.offset + i] = '\xff';
  const auto bad = rig.directory().write("bad.mp4", bytes);
  EXPECT_EQ(editingFailureOf([&] { soundOf(rig.assets, bad, 0); }), MovieEditingError::unreadable);
  EXPECT_EQ(editingFailureOf([&] { soundOf(rig.assets, path, 1); }), MovieEditingError::notComposable);
}

TEST_F(MovieAssets, LetsWhatTheHandlerThrowsThrough) {
  const auto path = rig.paint("t.mp4", 30, 30, std::string(h264) + " -c:a aac", toneInput(1));
  EXPECT_THROW(
      rig.assets.decodeSound(path, 0, [](const DecodedSound&) { throw std::out_of_range("enough"); }),
      std::out_of_range);
}

TEST(MovieModule, ThatIsMissingMakesEverythingUnavailable) {
  ModuleLoader loader({"/nonexistent"}, [](const std::string&) {});
  ModuleMediaAssets assets(loader, machineFileSystem());
  ModuleMovieExporter exporter(loader, machineFileSystem());
  const auto unavailable = MovieEditingError::unavailable;
  EXPECT_EQ(editingFailureOf([&] { assets.asset("/a.mp4"); }), unavailable);
  EXPECT_EQ(editingFailureOf([&] { assets.picture("/a.mp4", {}); }), unavailable);
  EXPECT_EQ(editingFailureOf([&] { assets.decodeSound("/a.mp4", 0, [](const DecodedSound&) {}); }),
            unavailable);
  EXPECT_EQ(editingFailureOf([&] { exporter.run({}, [](int) {}, {}); }), unavailable);
}

} // namespace
} // namespace tessarin
