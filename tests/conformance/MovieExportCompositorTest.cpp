#include "MovieTesting.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <mutex>
#include <random>
#include <set>
#include <thread>

namespace tessarin {
namespace {

constexpr const char* h264 = "-c:v libx264 -preset ultrafast -pix_fmt yuv420p";

void paintNumber(const MutablePictureView& output, std::uint32_t number, std::int32_t top) {
  for (std::int32_t y = 0; y < frameCounter::height; ++y)
    for (std::int32_t x = 0; x < frameCounter::width; ++x) {
      const int block = y / frameCounter::blockSize * frameCounter::columns + x / frameCounter::blockSize;
      std::uint8_t* const pixel = output.data + (top + y) * output.stride + std::ptrdiff_t{x} * 4;
      pixel[0] = pixel[1] = pixel[2] = frameCounter::isWhite(number, block) ? 255 : 0;
    }
}

// Shows three numbers below each other: the source's, which it reads from the inverted picture, the output's
// frame, and the camera's, or 9999 without one.
class Script final : public FrameCompositor {
 public:
  void composite(const CompositionFrame& frame, const MutablePictureView& output) const override {
    const auto at = static_cast<std::uint32_t>(frame.outputTime.convertedTo(30).value());
    const std::scoped_lock lock(mutex_);
    threads_.insert(std::this_thread::get_id());
    for (std::int32_t y = 0; y < output.height; ++y)
      std::fill_n(output.data + y * output.stride, output.width * 4, std::uint8_t{90});
    const auto source = frameCounter::read(frame.source);
    paintNumber(output, source.value_or(8888), 0);
    paintNumber(output, at, frameCounter::height);
    paintNumber(output, frame.camera ? frameCounter::read(*frame.camera).value_or(7777) : 9999,
                2 * frameCounter::height);
    sourceSize_ = {frame.source.width, frame.source.height};
  }

  mutable std::mutex mutex_;
  mutable std::set<std::thread::id> threads_;
  mutable std::pair<std::int32_t, std::int32_t> sourceSize_;
};

struct Seen {
  std::int64_t source = 0, output = 0, camera = 0;
  bool operator==(const Seen&) const = default;
};

std::vector<Seen> seenIn(const std::string& path, std::int32_t width, std::int32_t height) {
  const std::string pixels = outputOf("ffmpeg -v error -nostdin -i '" + path +
                                      "' -fps_mode passthrough -f rawvideo -pix_fmt bgr0 -");
  const auto size = static_cast<std::size_t>(width * height * 4);
  std::vector<Seen> seen;
  for (std::size_t at = 0; at + size <= pixels.size(); at += size) {
    const PictureView view{reinterpret_cast<const std::uint8_t*>(pixels.data()) + at, width, height,
                           width * 4, PixelFormat::bgrx8};
    const auto read = [&](int row) {
      const auto number = frameCounter::read(view, 0, row * frameCounter::height);
      return number ? std::int64_t{*number} : -1;
    };
    seen.push_back({read(0), read(1), read(2)});
  }
  return seen;
}

class MovieCompositing : public ::testing::Test {
 protected:
  MovieExport exportOf(const std::string& source, const std::vector<Cut>& cuts) {
    MovieExport movie;
    movie.composition = compositionOf(source, cuts);
    movie.frameDuration = MediaTime(1, 30);
    movie.outputPath = rig.path("out.mp4");
    movie.composited = CompositedVideo{200, 200, std::nullopt, &script};
    return movie;
  }

  MovieRig rig;
  Script script;
};

TEST_F(MovieCompositing, HandsOverSourceAndCameraInStepAndNoCameraPastItsEnd) {
  const auto source = rig.paint("source.mp4", 120, 30, h264);
  const auto camera = rig.paint("camera.mp4", 75, 30, h264); // two and a half seconds
  MovieExport movie = exportOf(source, {{2000, 3000, 1}, {0, 2000, 2}, {2400, 2600, 0.5}});
  movie.composited->cameraPath = camera;
  ASSERT_EQ(rig.run(movie), std::nullopt);
  std::vector<Seen> expected;
  const auto expect = [&](int number) {
    expected.push_back({number, std::ssize(expected), number < 75 ? number : 9999});
  };
  for (int i = 0; i < 30; ++i)
    expect(60 + i);
  for (int i = 0; i < 30; ++i)
    expect(2 * i);
  for (int i = 0; i < 12; ++i)
    expect(72 + i / 2);
  EXPECT_EQ(seenIn(movie.outputPath, 200, 200), expected);
  EXPECT_EQ(script.sourceSize_, std::pair(320, 240));
}

// Pictures are handed over as they are coded.
TEST_F(MovieCompositing, LeavesTurningToTheCompositor) {
  const auto upright = rig.paint("upright.mp4", 10, 30, h264);
  const auto source = rig.path("rotated.mp4");
  outputOf("ffmpeg -v error -i '" + upright + "' -c copy -metadata:s:v rotate=90 '" + source + "'");
  const MovieExport movie = exportOf(source, {{0, 333, 1}});
  ASSERT_EQ(rig.run(movie), std::nullopt);
  EXPECT_EQ(script.sourceSize_, std::pair(320, 240));
  EXPECT_EQ(seenIn(movie.outputPath, 200, 200).at(7), (Seen{7, 7, 9999}));
}

TEST_F(MovieCompositing, RefusesSizesThatCannotBeCoded) {
  const auto source = rig.paint("source.mp4", 10, 30, h264);
  for (const auto& [width, height] :
       std::vector<std::pair<int, int>>{{201, 200}, {200, 201}, {0, 200}, {200, -2}}) {
    MovieExport movie = exportOf(source, {{0, 300, 1}});
    movie.composited->width = width;
    movie.composited->height = height;
    EXPECT_EQ(rig.run(movie), MovieEditingError::notComposable);
  }
}

TEST_F(MovieCompositing, RefusesACameraThatIsNoMovie) {
  const auto source = rig.paint("source.mp4", 10, 30, h264);
  MovieExport movie = exportOf(source, {{0, 300, 1}});
  movie.composited->cameraPath = rig.directory().write("camera.mp4", "nothing");
  EXPECT_EQ(rig.run(movie), MovieEditingError::unreadable);
  EXPECT_FALSE(exists(machineFileSystem(), movie.outputPath));
}

TEST_F(MovieCompositing, LeavesNothingWhenItIsCancelledAtRandomMoments) {
  const auto source = rig.paint("source.mp4", 120, 30, std::string(h264) + " -c:a aac", toneInput(4));
  std::mt19937 random(20);
  int cancelled = 0;
  for (int round = 0; round < 20; ++round) {
    MovieExport movie = exportOf(source, {{0, 4000, 0.5}});
    movie.composition.audioLanes = {{0, {1}}};
    std::stop_source stop;
    const std::jthread other([&, delay = std::chrono::microseconds(random() % 400'000)] {
      std::this_thread::sleep_for(delay);
      stop.request_stop();
    });
    const auto failure = editingFailureOf([&] {
      rig.exporter.run(
          movie, [](int) {}, stop.get_token());
    });
    EXPECT_EQ(exists(machineFileSystem(), movie.outputPath), !failure);
    if (failure) {
      EXPECT_EQ(failure, MovieEditingError::cancelled);
      ++cancelled;
    } else {
      machineFileSystem().remove(movie.outputPath);
    }
  }
  EXPECT_GT(cancelled, 0);
}

// The greatest memory of a process of its own, in megabytes.
TEST_F(MovieCompositing, NeedsNoMoreMemoryForALongFilm) {
  const auto source = rig.paint("source.mp4", 300, 30, std::string(h264) + " -c:a aac", toneInput(10));
  const auto residentMb = [] {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("VmRSS:"))
        return std::stod(line.substr(6)) / 1024;
    }
    return 0.0;
  };
  const auto most = [&](int repetitions) {
    MovieExport movie =
        exportOf(source, std::vector<Cut>(static_cast<std::size_t>(repetitions), Cut{0, 10000, 1.25}));
    movie.composition.audioLanes = {{0, std::vector<float>(static_cast<std::size_t>(repetitions), 1.0F)}};
    double peak = 0;
    rig.exporter.run(movie, [&](int) { peak = std::max(peak, residentMb()); }, {});
    machineFileSystem().remove(movie.outputPath);
    return peak;
  };
  const double shortFilm = most(2); // 16 s; the first one also warms up
  const double longFilm = most(20); // 160 s
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  constexpr double room = 256; // the sanitizers keep what was let go for a while
#else
  constexpr double room = 8;
#endif
  EXPECT_LT(longFilm, shortFilm + room) << shortFilm;
}

} // namespace
} // namespace tessarin
