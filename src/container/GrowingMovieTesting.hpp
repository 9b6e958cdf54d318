#pragma once

#include "container/ContainerTesting.hpp"
#include "container/FragmentedMovieWriter.hpp"

#include <memory>

// Made-up recordings for the tests of the growing file.
namespace tessarin::container {

constexpr std::int32_t videoScale = 90000;

struct Appended {
  Bytes data;
  std::int64_t decodeTime = 0;
  std::int32_t compositionOffset = 0;
  bool isSync = false;
};

// Pictures at a rate, a key frame every so many.
inline std::vector<Appended> pictures(std::size_t count, std::int64_t interval, std::size_t keyInterval,
                                      std::size_t size = 40) {
  std::vector<Appended> samples;
  for (std::size_t i = 0; i < count; ++i)
    samples.push_back({randomBytes(size + i % 7, static_cast<std::uint32_t>(i)),
                       static_cast<std::int64_t>(i) * interval, 0, i % keyInterval == 0});
  return samples;
}

inline TrackSetup videoTrack() {
  return {TrackKind::video, videoScale, 64, 48, 0};
}

inline TrackSetup audioTrack() {
  return {TrackKind::audio, 48000, 0, 0, 1024};
}

inline void append(FragmentedMovieWriter& writer, std::size_t track, const Appended& sample) {
  writer.append(track, sample.data, sample.decodeTime, sample.compositionOffset, sample.isSync);
}

inline void finish(FragmentedMovieWriter& writer, std::vector<std::int64_t> endTimes) {
  writer.finish(endTimes);
}

// A writer of one video track with its description.
inline std::unique_ptr<FragmentedMovieWriter> videoWriter(OpenFile& file) {
  auto writer = std::make_unique<FragmentedMovieWriter>(file, std::vector{videoTrack()});
  writer->setDescription(0, videoDescription(64, 48));
  return writer;
}

// Flushes behind every key frame but the first.
inline void appendAll(FragmentedMovieWriter& writer, const std::vector<Appended>& samples) {
  for (const Appended& sample : samples) {
    append(writer, 0, sample);
    if (sample.isSync && sample.decodeTime > 0)
      writer.flushFragment();
  }
}

} // namespace tessarin::container
