#include "MovieCutTesting.hpp"

#include <gtest/gtest.h>

#include <algorithm>

// What players that have nothing in common show of a cut: their readers of the file, and where it can be had
// their decoders, are of different origin.
namespace tessarin {
namespace {

std::vector<std::int64_t> numbersOf(const std::string& pixels) {
  constexpr std::size_t size = std::size_t{paintedWidth} * paintedHeight * 4;
  std::vector<std::int64_t> numbers;
  for (std::size_t at = 0; at + size <= pixels.size(); at += size) {
    const PictureView view{reinterpret_cast<const std::uint8_t*>(pixels.data()) + at, paintedWidth,
                           paintedHeight, paintedWidth * 4, PixelFormat::bgrx8};
    const auto number = frameCounter::read(view);
    numbers.push_back(number ? std::int64_t{*number} : -1);
  }
  return numbers;
}

// GStreamer's own reader, with decoders that are not of libavcodec.
std::vector<std::int64_t> shownByGStreamer(const std::string& path, RecordingCodec codec) {
  const bool isHevc = codec == RecordingCodec::hevc;
  return numbersOf(outputOf("gst-launch-1.0 -q filesrc location='" + path + "' ! qtdemux ! " +
                            (isHevc ? "h265parse ! libde265dec" : "h264parse ! openh264dec") +
                            " ! videoconvert ! video/x-raw,format=BGRx ! fdsink"));
}

std::vector<std::int64_t> shownByMpv(const std::string& path, const std::string& folder) {
  outputOf("mkdir -p '" + folder +
           "' && mpv --no-config --really-quiet --no-audio --untimed --framedrop=no " +
           "--vo=image --vo-image-format=png --vo-image-png-compression=0 --vo-image-outdir='" + folder +
           "' '" + path + "'");
  return numbersOf(
      outputOf("ffmpeg -v error -nostdin -i '" + folder + "/%08d.png' -f rawvideo -pix_fmt bgr0 -"));
}

std::vector<std::int64_t> numbersIn(const std::vector<Shown>& shown) {
  std::vector<std::int64_t> numbers;
  std::transform(shown.begin(), shown.end(), std::back_inserter(numbers),
                 [](const Shown& each) { return each.second; });
  return numbers;
}

TEST(MovieCutPlayers, ShowTheSamePictures) {
  MovieRig rig;
  const std::vector<Cut> cuts{{817, 1600, 1}, {0, 450, 1}, {2030, 2970, 1}, {1001, 1499, 1}, {1933, 2000, 1}};
  for (const RecordingCodec codec : {RecordingCodec::h264, RecordingCodec::hevc}) {
    const std::string name = codec == RecordingCodec::hevc ? "hevc" : "h264";
    SCOPED_TRACE(name);
    const auto source = record(rig, name + ".mp4", {.pictures = 90, .codec = codec, .lanes = {tone(440)}});
    const MovieExport movie = cutOf(rig, source, cuts, 1);
    ASSERT_EQ(rig.run(movie), std::nullopt);
    const auto expected = numbersIn(expectedOf(cuts, evenly(90, 30)));
    EXPECT_EQ(tessarin::numbersIn(movie.outputPath), expected);
    EXPECT_EQ(shownByGStreamer(movie.outputPath, codec), expected);
    EXPECT_EQ(shownByMpv(movie.outputPath, rig.path(name)), expected);
  }
}

TEST(MovieCutPlayers, ShowTheSamePicturesOfWhatAnotherProgramHasCoded) {
  MovieRig rig;
  const std::vector<Cut> cuts{{1000, 2500, 1}, {100, 500, 1}, {2000, 2300, 1}, {1700, 1800, 1}, {0, 300, 1}};
  for (const RecordingCodec codec : {RecordingCodec::h264, RecordingCodec::hevc}) {
    const bool isHevc = codec == RecordingCodec::hevc;
    SCOPED_TRACE(isHevc);
    const auto source =
        rig.paint(isHevc ? "hevc.mp4" : "h264.mp4", 90, 30,
                  isHevc ? "-c:v libx265 -preset ultrafast -pix_fmt yuv420p -tag:v hvc1 -x265-params "
                           "log-level=none:bframes=0:keyint=30:scenecut=0"
                         : "-c:v libx264 -preset ultrafast -pix_fmt yuv420p -g 30 -keyint_min 30 -bf 0");
    const MovieExport movie = cutOf(rig, source, cuts);
    ASSERT_EQ(rig.run(movie), std::nullopt);
    // Two kinds of streams in one track are more than some decoders bear.
    EXPECT_EQ(indexOf(movie.outputPath).tracks.front().descriptions.size(), 1U);
    const auto expected = numbersIn(expectedOf(cuts, evenly(90, 30)));
    EXPECT_EQ(tessarin::numbersIn(movie.outputPath), expected);
    EXPECT_EQ(shownByGStreamer(movie.outputPath, codec), expected);
    EXPECT_EQ(shownByMpv(movie.outputPath, rig.path(isHevc ? "hevc" : "h264")), expected);
  }
}

} // namespace
} // namespace tessarin
