#include "MovieTesting.hpp"

#include "support/SmallVolume.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <sstream>

namespace tessarin {
namespace {

constexpr const char* h264 = "-c:v libx264 -preset ultrafast -pix_fmt yuv420p";

class MovieExporting : public ::testing::Test {
 protected:
  MovieExport exportOf(const std::string& source, const std::vector<Cut>& cuts, int rate = 30) const {
    MovieExport movie;
    movie.composition = compositionOf(source, cuts);
    movie.frameDuration = MediaTime(1, rate);
    movie.outputPath = rig.path("out.mp4");
    return movie;
  }
  // All tracks of the source at the volume.
  static void addLanes(MovieExport& movie, std::size_t count, float volume = 1) {
    for (std::size_t i = 0; i < count; ++i)
      movie.composition.audioLanes.push_back(
          {i, std::vector<float>(movie.composition.segments.size(), volume)});
  }
  void expectExported(const MovieExport& movie) { ASSERT_EQ(rig.run(movie), std::nullopt); }

  MovieRig rig;
};

TEST_F(MovieExporting, ShowsThePictureThatIsOnShowAtEachMomentOfTheGrid) {
  const auto source = rig.paint("s.mp4", 120, 30, std::string(h264) + " -bf 2 -g 50");
  const std::vector<Cut> cuts{{1000, 2000, 1}, {500, 3500, 3}, {2000, 2500, 0.5}, {0, 100, 1}};
  expectExported(exportOf(source, cuts));
  std::vector<std::int64_t> expected;
  expected.reserve(200);
  for (int i = 0; i < 30; ++i)
    expected.push_back(30 + i);
  for (int i = 0; i < 30; ++i)
    expected.push_back(15 + 3 * i);
  for (int i = 0; i < 30; ++i)
    expected.push_back(60 + i / 2);
  for (int i = 0; i < 3; ++i)
    expected.push_back(i);
  EXPECT_EQ(numbersIn(rig.path("out.mp4")), expected);
  const MediaAsset asset = rig.assets.asset(rig.path("out.mp4"));
  EXPECT_TRUE(asset.isComposable);
  EXPECT_EQ(asset.duration, MediaTime::milliseconds(3100));
  EXPECT_TRUE(asset.audioTracks.empty());
}

TEST_F(MovieExporting, MakesAFileThatOtherProgramsTakeForWhatItIs) {
  const auto source = rig.paint("s.mp4", 300, 60, std::string(h264) + " -c:a aac", toneInput(5));
  for (const RecordingCodec codec : {RecordingCodec::h264, RecordingCodec::hevc}) {
    const bool isHevc = codec == RecordingCodec::hevc;
    MovieExport movie = exportOf(source, {{0, 5000, 1}}, 60);
    movie.codec = codec;
    movie.outputPath = rig.path(isHevc ? "hevc.mp4" : "h264.mp4");
    addLanes(movie, 1, 0.5F);
    expectExported(movie);
    const std::string entries =
        "stream=codec_name,codec_tag_string,width,height,pix_fmt,color_range,color_space,"
        "color_transfer,color_primaries,r_frame_rate,avg_frame_rate,nb_frames,profile,"
        "sample_rate,channels,start_time,has_b_frames";
    auto video = probed(movie.outputPath, "v:0", entries);
    EXPECT_EQ(video["codec_name"], isHevc ? "hevc" : "h264");
    EXPECT_EQ(video["codec_tag_string"], isHevc ? "hvc1" : "avc1");
    EXPECT_EQ(video["width"] + "x" + video["height"], "320x240");
    EXPECT_EQ(video["pix_fmt"], "yuv420p");
    EXPECT_EQ(video["color_range"], "tv");
    EXPECT_EQ(video["color_space"], "bt709");
    EXPECT_EQ(video["color_transfer"], "bt709");
    EXPECT_EQ(video["color_primaries"], "bt709");
    EXPECT_EQ(video["avg_frame_rate"], "60/1");
    EXPECT_EQ(video["nb_frames"], "300");
    EXPECT_EQ(std::stod(video["start_time"]), 0);
    EXPECT_NE(video["has_b_frames"], "0");
    auto sound = probed(movie.outputPath, "a:0", entries);
    EXPECT_EQ(sound["codec_name"], "aac");
    EXPECT_EQ(sound["profile"], "LC");
    EXPECT_EQ(sound["sample_rate"], "48000");
    EXPECT_EQ(sound["channels"], "2");
    EXPECT_EQ(std::stod(sound["start_time"]), 0);

    const container::Movie index =
        container::readMovie(*machineFileSystem().open(movie.outputPath, OpenMode::read));
    EXPECT_EQ(index.tracks.at(0).duration, MediaTime(5, 1));
    EXPECT_EQ(index.tracks.at(1).duration, MediaTime(5, 1));
    std::int64_t lastKey = 0;
    for (const container::Sample& sample : index.tracks.at(0).samples) {
      lastKey = sample.isSync ? sample.decodeTime : lastKey;
      EXPECT_LT(sample.decodeTime - lastKey, 2 * 90000);
    }
    const std::string bytes = rig.directory().read(isHevc ? "hevc.mp4" : "h264.mp4");
    EXPECT_LT(bytes.find("moov"), bytes.find("mdat"));
    std::vector<std::int64_t> all(300);
    std::iota(all.begin(), all.end(), 0);
    EXPECT_EQ(numbersIn(movie.outputPath), all);
  }
}

TEST_F(MovieExporting, TakesFiftyAndSixtyFramesASecondAndRatesThatVary) {
  const auto fifty = rig.paint("fifty.mp4", 100, 50, h264);
  MovieExport movie = exportOf(fifty, {{0, 2000, 1}}, 60);
  expectExported(movie);
  std::vector<std::int64_t> expected;
  expected.reserve(200);
  for (int i = 0; i < 120; ++i)
    expected.push_back(i * 50 / 60);
  EXPECT_EQ(numbersIn(movie.outputPath), expected);

  // Every picture with a square number, at its own time.
  const auto varying =
      rig.paint("varying.mp4", 82, 30,
                std::string(h264) + " -vf \"select='eq(pow(round(sqrt(n)),2),n)'\" -fps_mode vfr");
  movie = exportOf(varying, {{0, 2700, 1}}, 30);
  movie.outputPath = rig.path("even.mp4");
  expectExported(movie);
  expected.clear();
  for (int i = 0; i < 81; ++i) {
    const int root = static_cast<int>(std::sqrt(i));
    expected.push_back(root * root);
  }
  EXPECT_EQ(numbersIn(movie.outputPath), expected);
}

TEST_F(MovieExporting, SetsRotatedPicturesUprightAndMakesSizesEven) {
  const auto upright = rig.paint("upright.mp4", 10, 30, h264);
  for (const int degrees : {90, 180, 270}) {
    // Turned as it is coded, and told to be turned back.
    const auto turned = rig.path("turned.mp4");
    const auto source = rig.path("rotated.mp4");
    const std::string filter = degrees == 90 ? "transpose=1" : degrees == 270 ? "transpose=2" : "hflip,vflip";
    std::ostringstream commands;
    commands << "ffmpeg -v error -y -i '" << upright << "' -vf " << filter
             << " -c:v libx264 -preset ultrafast '" << turned << "' && ffmpeg -v error -y -i '" << turned
             << "' -c copy -metadata:s:v rotate=" << degrees << " '" << source << "'";
    outputOf(commands.str());
    MovieExport movie = exportOf(source, {{0, 333, 1}});
    movie.outputPath = rig.path(std::to_string(degrees) + ".mp4");
    expectExported(movie);
    auto video = probed(movie.outputPath, "v:0", "stream=width,height");
    EXPECT_EQ(video["width"] + "x" + video["height"], "320x240") << degrees;
    EXPECT_EQ(numbersIn(movie.outputPath), (std::vector<std::int64_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}))
        << degrees;
    EXPECT_EQ(rig.assets.asset(movie.outputPath).videoTracks.at(0).preferredTransform, AffineTransform());
  }
  const auto odd =
      rig.paint("odd.mp4", 5, 30, "-c:v libx264 -preset ultrafast -pix_fmt yuv444p -vf crop=319:239:0:0");
  MovieExport movie = exportOf(odd, {{0, 166, 1}});
  expectExported(movie);
  auto video = probed(movie.outputPath, "v:0", "stream=width,height,pix_fmt");
  EXPECT_EQ(video["width"] + "x" + video["height"] + video["pix_fmt"], "318x238yuv420p");
  EXPECT_EQ(numbersIn(movie.outputPath, 318, 238), (std::vector<std::int64_t>{0, 1, 2, 3, 4}));
}

TEST_F(MovieExporting, RoundsASizeThatIsNoWholeNumberOfPixelsDownAndOnlyOnce) {
  // 319.638 pixels wide: 318, where 320 would come of rounding to the nearest first.
  const auto source = rig.paint(
      "uneven.mp4", 5, 30,
      "-c:v libx264 -preset ultrafast -pix_fmt yuv444p -vf crop=319:239:0:0,setsar=sar=501/500:max=1000");
  MovieExport movie = exportOf(source, {{0, 166, 1}});
  expectExported(movie);
  auto video = probed(movie.outputPath, "v:0", "stream=width,height");
  EXPECT_EQ(video["width"] + "x" + video["height"], "318x238");
  EXPECT_EQ(numbersIn(movie.outputPath, 318, 238), (std::vector<std::int64_t>{0, 1, 2, 3, 4}));
}

TEST_F(MovieExporting, KeepsColoursWhateverTheSourceTells) {
  struct Source {
    const char* name;
    const char* options;
  };
  for (const Source& each : {Source{"709.mp4", "-vf scale=out_color_matrix=bt709:out_range=tv -pix_fmt "
                                               "yuv420p -colorspace bt709 -color_range tv"},
                             Source{"601.mp4", "-vf scale=out_color_matrix=bt601:out_range=tv -pix_fmt "
                                               "yuv420p -colorspace smpte170m -color_range tv"},
                             Source{"full.mp4", "-vf scale=out_color_matrix=bt709:out_range=pc -pix_fmt "
                                                "yuv420p -colorspace bt709 -color_range pc"},
                             Source{"444.mp4", "-vf scale=out_color_matrix=bt709:out_range=tv -pix_fmt "
                                               "yuv444p -colorspace bt709 -color_range tv"},
                             Source{"ten.mp4", "-vf scale=out_color_matrix=bt709:out_range=tv -pix_fmt "
                                               "yuv420p10le -colorspace bt709 -color_range tv"}}) {
    const auto source =
        rig.paint(each.name, 3, 30, std::string("-c:v libx264 -preset ultrafast -qp 4 ") + each.options);
    MovieExport movie = exportOf(source, {{0, 100, 1}});
    movie.outputPath = rig.path(std::string("out-") + each.name);
    expectExported(movie);
    for (const std::string& path : {source, movie.outputPath}) {
      const Picture picture = rig.assets.picture(path, MediaTime::zero());
      const std::uint8_t* const pixel = picture.view.data + 200 * picture.view.stride + 200 * 4;
      EXPECT_NEAR(pixel[2], 60, 4) << path;
      EXPECT_NEAR(pixel[1], 120, 4) << path;
      EXPECT_NEAR(pixel[0], 200, 4) << path;
    }
  }
}

TEST_F(MovieExporting, HoldsTheLastPictureWhereTheSoundIsLonger) {
  const auto source = rig.paint("s.mp4", 30, 30, std::string(h264) + " -c:a aac", toneInput(2));
  MovieExport movie = exportOf(source, {{500, 2000, 1}});
  addLanes(movie, 1, 0.9F);
  expectExported(movie);
  const auto numbers = numbersIn(movie.outputPath);
  ASSERT_EQ(numbers.size(), 45U);
  EXPECT_EQ(numbers.at(14), 29);
  EXPECT_EQ(numbers.back(), 29);
}

TEST_F(MovieExporting, TellsProgressThatNeverGoesBack) {
  const auto source = rig.paint("s.mp4", 90, 30, h264);
  std::vector<int> told;
  rig.exporter.run(exportOf(source, {{0, 3000, 2}}), [&](int permille) { told.push_back(permille); }, {});
  ASSERT_FALSE(told.empty());
  EXPECT_EQ(told.front(), 0);
  EXPECT_EQ(told.back(), 1000);
  EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
  EXPECT_EQ(std::adjacent_find(told.begin(), told.end()), told.end());
  EXPECT_GE(told.size(), 40U);
}

TEST_F(MovieExporting, RefusesDamagedSourcesAndLeavesNothing) {
  const auto source = rig.paint("s.mp4", 90, 30, std::string(h264) + " -g 30 -bf 0 -c:a aac", toneInput(3));
  const container::Movie index = container::readMovie(*machineFileSystem().open(source, OpenMode::read));
  const auto damage = [&](const container::Sample& sample) {
    std::string bytes = rig.directory().read("s.mp4");
    for (std::size_t i = 6; i < sample.size; ++i)
      bytes[sample.offset + i] = static_cast<char>(255 - i % 5);
    return bytes;
  };
  const auto picture = rig.directory().write("picture.mp4", damage(index.tracks.at(0).samples.at(45)));
  const auto sound = rig.directory().write("sound.mp4", damage(index.tracks.at(1).samples.at(60)));
  for (const std::string& path : {picture, sound}) {
    MovieExport movie = exportOf(path, {{0, 3000, 1}});
    addLanes(movie, 1, 0.5F);
    EXPECT_EQ(rig.run(movie), MovieEditingError::unreadable) << path;
    EXPECT_FALSE(exists(machineFileSystem(), movie.outputPath));
  }
  // Where the damage is not needed it does not matter.
  MovieExport movie = exportOf(picture, {{0, 1000, 1}, {2000, 3000, 2}});
  EXPECT_EQ(rig.run(movie), std::nullopt);
}

TEST_F(MovieExporting, RefusesWhatItCannotLayOnATimeLine) {
  const auto silent = rig.paint("silent.mp4", 30, 30, h264);
  MovieExport movie = exportOf(silent, {{0, 1000, 1}});
  addLanes(movie, 1);
  EXPECT_EQ(rig.run(movie), MovieEditingError::notComposable);
  EXPECT_EQ(rig.run(exportOf(silent, {})), MovieEditingError::notComposable);
  EXPECT_EQ(rig.run(exportOf(rig.path("absent.mp4"), {{0, 1000, 1}})), MovieEditingError::unreadable);
  const auto strange = rig.paint("strange.mp4", 10, 30, "-c:v mpeg4");
  EXPECT_EQ(rig.run(exportOf(strange, {{0, 300, 1}})), MovieEditingError::notComposable);
  EXPECT_FALSE(exists(machineFileSystem(), movie.outputPath));
}

TEST_F(MovieExporting, NeverWritesOverAFile) {
  const auto source = rig.paint("s.mp4", 30, 30, h264);
  rig.directory().write("out.mp4", "precious");
  EXPECT_EQ(rig.run(exportOf(source, {{0, 1000, 1}})), MovieEditingError::notWritten);
  EXPECT_EQ(rig.directory().read("out.mp4"), "precious");
}

TEST_F(MovieExporting, LeavesNothingWhenTheDiskFailsAtAnyPoint) {
  const auto source = rig.paint("s.mp4", 60, 30, std::string(h264) + " -c:a aac", toneInput(2));
  MovieExport movie = exportOf(source, {{0, 2000, 1}});
  addLanes(movie, 1);
  for (const FileOperation operation : {FileOperation::open, FileOperation::write, FileOperation::sync}) {
    for (std::size_t n = 1;; ++n) {
      rig.files.clearFaults();
      rig.files.inject({.operation = operation, .pathPart = "out.mp4", .skip = n - 1, .errorNumber = ENOSPC});
      const auto failure = rig.run(movie);
      if (!failure) {
        EXPECT_GT(n, 1U); // at least one of each was met
        rig.files.clearFaults();
        rig.files.remove(movie.outputPath);
        break;
      }
      EXPECT_EQ(failure, MovieEditingError::notWritten);
      EXPECT_FALSE(exists(machineFileSystem(), movie.outputPath));
    }
  }
}

TEST_F(MovieExporting, LeavesNothingOnAFullDisk) {
  const auto source = rig.paint("s.mp4", 60, 30, std::string(h264) + " -c:a aac", toneInput(2));
  const SmallVolume volume(std::uint64_t{1} << 20);
  volume.setFreeBytes(16384);
  MovieExport movie = exportOf(source, {{0, 2000, 1}});
  movie.outputPath = volume.path() + "/out.mp4";
  addLanes(movie, 1);
  EXPECT_EQ(rig.run(movie), MovieEditingError::notWritten);
  EXPECT_FALSE(exists(machineFileSystem(), movie.outputPath));
}

} // namespace
} // namespace tessarin
