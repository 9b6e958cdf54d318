#include "backends/posix/ModuleMovieEditing.hpp"
#include "base/FileSystem.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <thread>

// Edits by the module alone, for a benchmark to time:
//   MODULES export SOURCE OUTPUT MS RATE FPS TRACKS   the first so many milliseconds at a rate
//   MODULES paint SOURCE OUTPUT MS FPS                the same at its own rate, through a compositor that
//   copies
//   MODULES cut SOURCE OUTPUT TRACKS START END...     stretches in milliseconds, copied
//   MODULES sound SOURCE TRACKS                       all tracks decoded, each on a thread of its own
namespace tessarin {
namespace {

// Does no more than hand the picture on.
class Copier final : public FrameCompositor {
 public:
  void composite(const CompositionFrame& frame, const MutablePictureView& output) const override {
    const auto bytes = static_cast<std::size_t>(output.width) * 4;
    for (std::int32_t y = 0; y < output.height; ++y)
      std::memcpy(output.data + y * output.stride, frame.source.data + y * frame.source.stride, bytes);
  }
};

MovieExport exportOf(char** arguments, double rate, std::int32_t framesPerSecond, std::size_t tracks) {
  const std::int64_t length = std::atoll(arguments[5]);
  MovieExport movie;
  movie.composition.sourcePath = arguments[3];
  movie.outputPath = arguments[4];
  movie.composition.segments = {
      {{MediaTime::zero(), MediaTime::milliseconds(length)},
       {MediaTime::zero(), MediaTime::milliseconds(std::llround(static_cast<double>(length) / rate))}}};
  movie.frameDuration = MediaTime(1, framesPerSecond);
  movie.codec = std::getenv("TESSARIN_BENCH_HEVC") != nullptr ? RecordingCodec::hevc : RecordingCodec::h264;
  for (std::size_t i = 0; i < tracks; ++i)
    movie.composition.audioLanes.push_back({i, {1.0F}});
  return movie;
}

MovieExport cutOf(int count, char** arguments) {
  MovieExport movie;
  movie.composition.sourcePath = arguments[3];
  movie.outputPath = arguments[4];
  std::int64_t cursor = 0;
  for (int i = 6; i + 1 < count; i += 2) {
    const std::int64_t start = std::atoll(arguments[i]);
    const MediaTime length = MediaTime::milliseconds(std::atoll(arguments[i + 1]) - start);
    movie.composition.segments.push_back(
        {{MediaTime::milliseconds(start), length}, {MediaTime::milliseconds(cursor), length}});
    cursor += length.value();
  }
  for (int i = 0; i < std::atoi(arguments[5]); ++i)
    movie.composition.audioLanes.push_back(
        {static_cast<std::size_t>(i), std::vector<float>(movie.composition.segments.size(), 1.0F)});
  movie.isPassthrough = true;
  movie.frameDuration = MediaTime(1, 60);
  return movie;
}

int run(int count, char** arguments) {
  ModuleLoader loader({arguments[1]}, [](const std::string& line) { std::cerr << line << '\n'; });
  ModuleMovieExporter exporter(loader, machineFileSystem());
  ModuleMediaAssets assets(loader, machineFileSystem());
  const std::string_view job = arguments[2];
  if (job == "export" && count == 9) {
    exporter.run(exportOf(arguments, std::atof(arguments[6]), std::atoi(arguments[7]),
                          static_cast<std::size_t>(std::atoi(arguments[8]))),
                 [](int) {}, {});
  } else if (job == "paint" && count == 7) {
    const Copier copier;
    MovieExport movie = exportOf(arguments, 1, std::atoi(arguments[6]), 0);
    const AssetVideoTrack video = assets.asset(arguments[3]).videoTracks.at(0);
    movie.composited = CompositedVideo{static_cast<std::int32_t>(video.naturalWidth),
                                       static_cast<std::int32_t>(video.naturalHeight), std::nullopt, &copier};
    exporter.run(movie, [](int) {}, {});
  } else if (job == "cut" && count >= 8 && count % 2 == 0) {
    exporter.run(cutOf(count, arguments), [](int) {}, {});
  } else if (job == "sound" && count == 5) {
    std::vector<std::jthread> threads;
    const int tracks = std::atoi(arguments[4]);
    threads.reserve(static_cast<std::size_t>(std::max(tracks, 0)));
    for (int track = 0; track < tracks; ++track)
      threads.emplace_back([&, track] {
        assets.decodeSound(arguments[3], static_cast<std::size_t>(track), [](const DecodedSound&) {});
      });
  } else {
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}

} // namespace
} // namespace tessarin

int main(int count, char** arguments) {
  try {
    return count < 4 ? EXIT_FAILURE : tessarin::run(count, arguments);
  } catch (const std::exception& failure) {
    std::cerr << failure.what() << '\n';
    return EXIT_FAILURE;
  }
}
