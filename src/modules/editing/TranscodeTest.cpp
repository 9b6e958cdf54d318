#include "modules/editing/Transcode.hpp"

#include "base/FileSystem.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <random>
#include <thread>

namespace tessarin::editing {
namespace {

constexpr std::int32_t side = 64;
constexpr std::int64_t pictures = 60;

// A film of a shade that changes with every picture, by the coder under test itself.
void writeSource(const std::string& path) {
  const auto file = machineFileSystem().open(path, OpenMode::createExclusive);
  const FrameSchedule schedule(
      {{{MediaTime::zero(), MediaTime(pictures, 30)}, {MediaTime::zero(), MediaTime(pictures, 30)}}},
      MediaTime(1, 30));
  OutputFile output(*file, schedule, {side, side}, std::nullopt);
  PictureCoder coder(RecordingCodec::h264, {side, side}, MediaTime(1, 30));
  const auto append = [&](const std::vector<CodedFrame>& frames) {
    for (const CodedFrame& frame : frames)
      output.append(frame, coder.description());
  };
  PictureMemory memory;
  for (int i = 0; i < pictures; ++i) {
    const auto frame = memory.frame({side, side});
    std::fill_n(frame->data[0], frame->linesize[0] * side, static_cast<std::uint8_t>(40 + 3 * i));
    for (const int plane : {1, 2})
      std::fill_n(frame->data[plane], frame->linesize[plane] * side / 2, std::uint8_t{128});
    append(coder.encode(frame));
  }
  append(coder.finish());
  output.finish();
}

// Turns colours over, writes the output's time into the top row, and takes an uneven time for it.
class Inverter final : public FrameCompositor {
 public:
  void composite(const CompositionFrame& frame, const MutablePictureView& output) const override {
    const auto number = static_cast<unsigned>(frame.outputTime.convertedTo(30).value());
    std::this_thread::sleep_for(std::chrono::microseconds(number * 7919 % 3000));
    for (std::int32_t y = 0; y < output.height; ++y)
      for (std::int32_t x = 0; x < output.width * 4; ++x)
        output.data[y * output.stride + x] =
            y < 8 ? static_cast<std::uint8_t>((number >> (x / 4 / 8) & 1U) * 255)
                  : static_cast<std::uint8_t>(255 - frame.source.data[y * frame.source.stride + x]);
  }
};

MovieExport exportOf(const TemporaryDirectory& directory, const FrameCompositor& compositor) {
  MovieExport movie;
  movie.composition.sourcePath = directory / "source.mp4";
  movie.composition.segments = {{{MediaTime::zero(), MediaTime::milliseconds(2000)},
                                 {MediaTime::zero(), MediaTime::milliseconds(2000)}}};
  movie.frameDuration = MediaTime(1, 30);
  movie.composited = CompositedVideo{side, side, std::nullopt, &compositor};
  return movie;
}

TEST(Transcode, MakesTheSameFileWithOneFrameMakerAndWithMany) {
  const TemporaryDirectory directory;
  writeSource(directory / "source.mp4");
  const Inverter compositor;
  const MovieExport movie = exportOf(directory, compositor);
  for (const unsigned makers : {1U, 2U, 7U}) {
    Transcode transcode(machineFileSystem(), movie, makers);
    const auto name = std::to_string(makers);
    const auto file = machineFileSystem().open(directory / name, OpenMode::createExclusive);
    transcode.run(*file, [](int) {}, {});
  }
  const std::string one = directory.read("1");
  EXPECT_GT(one.size(), 1000U);
  EXPECT_TRUE(one == directory.read("2"));
  EXPECT_TRUE(one == directory.read("7"));
}

TEST(Transcode, EndsSoonWhenAStopIsAskedForAtAnyMoment) {
  const TemporaryDirectory directory;
  writeSource(directory / "source.mp4");
  const Inverter compositor;
  const MovieExport movie = exportOf(directory, compositor);
  int cancelled = 0;
  for (int round = 0; round < 30; ++round) {
    Transcode transcode(machineFileSystem(), movie, 3);
    const auto file =
        machineFileSystem().open(directory / ("stop" + std::to_string(round)), OpenMode::createExclusive);
    std::stop_source stop;
    // At every part of the way: from the thread that tells the progress.
    try {
      transcode.run(
          *file,
          [&](int permille) {
            if (permille >= round * 40)
              stop.request_stop();
          },
          stop.get_token());
    } catch (const MovieEditingFailure& failure) {
      EXPECT_EQ(failure.error(), MovieEditingError::cancelled);
      ++cancelled;
    }
  }
  // The last rounds wait for more progress than there is.
  EXPECT_EQ(cancelled, 26);
}

TEST(Transcode, EndsWithWhatACompositorThrows) {
  const TemporaryDirectory directory;
  writeSource(directory / "source.mp4");
  struct Thrower final : FrameCompositor {
    void composite(const CompositionFrame& frame, const MutablePictureView&) const override {
      if (frame.outputTime == MediaTime(20, 30))
        throw std::out_of_range("twenty");
    }
  } compositor;
  const MovieExport movie = exportOf(directory, compositor);
  Transcode transcode(machineFileSystem(), movie, 2);
  const auto file = machineFileSystem().open(directory / "thrown", OpenMode::createExclusive);
  EXPECT_THROW(transcode.run(*file, [](int) {}, {}), std::out_of_range);
}

} // namespace
} // namespace tessarin::editing
