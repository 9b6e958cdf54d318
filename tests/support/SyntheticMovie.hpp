#pragma once

#include "base/FileSystem.hpp"
#include "container/FragmentedMovieWriter.hpp"
#include "container/Movie.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

// Recordings whose coded samples are random bytes: whole as far as the container goes, for tests that look
// at indices and at where bytes end up.
namespace tessarin::testing {

struct SyntheticTrack {
  container::TrackKind kind = container::TrackKind::video;
  std::int32_t timescale = 90000;
  std::size_t sampleCount = 30;
  std::int64_t sampleDuration = 3000; // units of the timescale, like all times
  std::int64_t firstTime = 0;
  std::optional<std::int64_t> endTime; // absent: when the last sample has lasted as long as the others
  std::int64_t presentationStart = 0;
  std::int32_t channelCount = 2; // audio
  std::uint16_t sampleRate = 48000;
};

// At 30 pictures a second.
inline SyntheticTrack videoOf(std::size_t milliseconds) {
  SyntheticTrack track;
  track.sampleCount = (milliseconds * 30 + 999) / 1000;
  track.endTime = static_cast<std::int64_t>(milliseconds) * 90;
  return track;
}

// Packets of 1024 frames at 48000 Hz; the last one is cut at the end.
inline SyntheticTrack audioOf(std::size_t milliseconds) {
  SyntheticTrack track;
  track.kind = container::TrackKind::audio;
  track.timescale = 48000;
  track.sampleDuration = 1024;
  track.sampleCount = (milliseconds * 48 + 1023) / 1024;
  track.endTime = static_cast<std::int64_t>(milliseconds) * 48;
  return track;
}

class BigEndianBytes {
 public:
  BigEndianBytes& number(std::uint64_t value, int width) {
    for (int byte = width - 1; byte >= 0; --byte)
      bytes_.push_back(static_cast<std::byte>(value >> (8 * byte)));
    return *this;
  }
  BigEndianBytes& text(const std::string& value) {
    for (const char character : value)
      bytes_.push_back(static_cast<std::byte>(character));
    return *this;
  }
  BigEndianBytes& zeros(std::size_t count) {
    bytes_.resize(bytes_.size() + count);
    return *this;
  }
  std::vector<std::byte> take() { return std::move(bytes_); }

 private:
  std::vector<std::byte> bytes_;
};

inline container::SampleDescription descriptionOf(const SyntheticTrack& track) {
  container::SampleDescription description;
  if (track.kind == container::TrackKind::video) {
    description.codec = "avc1";
    description.width = 320;
    description.height = 240;
    description.box =
        BigEndianBytes().number(86, 4).text("avc1").zeros(24).number(320, 2).number(240, 2).zeros(50).take();
  } else {
    description.codec = "mp4a";
    description.channelCount = track.channelCount;
    description.sampleRate = track.sampleRate;
    description.box = BigEndianBytes()
                          .number(36, 4)
                          .text("mp4a")
                          .zeros(6)
                          .number(1, 2)
                          .zeros(8)
                          .number(static_cast<std::uint64_t>(track.channelCount), 2)
                          .number(16, 2)
                          .zeros(4)
                          .number(track.sampleRate, 2)
                          .zeros(2)
                          .take();
  }
  return description;
}

// A new file at the path. Unfinished, it is one fragment that a crash has left.
inline void writeSyntheticMovie(const std::string& path, const std::vector<SyntheticTrack>& tracks,
                                bool isFinished = true) {
  const std::unique_ptr<OpenFile> file = machineFileSystem().open(path, OpenMode::createExclusive);
  std::vector<container::TrackSetup> setups;
  std::vector<std::int64_t> ends;
  for (const SyntheticTrack& track : tracks) {
    setups.push_back({track.kind, track.timescale, 320, 240, track.presentationStart});
    ends.push_back(track.endTime.value_or(track.firstTime + static_cast<std::int64_t>(track.sampleCount) *
                                                                track.sampleDuration));
  }
  container::FragmentedMovieWriter writer(*file, setups);
  std::mt19937 random(static_cast<std::uint32_t>(std::hash<std::string>()(path)));
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    writer.setDescription(i, descriptionOf(tracks[i]));
    for (std::size_t sample = 0; sample < tracks[i].sampleCount; ++sample) {
      std::vector<std::byte> data(20 + random() % 200);
      for (std::byte& byte : data)
        byte = static_cast<std::byte>(random());
      writer.append(i, data,
                    tracks[i].firstTime + static_cast<std::int64_t>(sample) * tracks[i].sampleDuration, 0,
                    sample % 30 == 0);
    }
  }
  if (isFinished)
    writer.finish(ends);
  else
    writer.flushFragment();
}

inline container::Movie movieAt(const std::string& path) {
  return container::readMovie(*machineFileSystem().open(path, OpenMode::read));
}

// The coded bytes of every sample of a track, by its place in the file.
inline std::vector<std::string> sampleBytesOf(const std::string& path, std::size_t track) {
  const std::unique_ptr<OpenFile> file = machineFileSystem().open(path, OpenMode::read);
  const container::Movie movie = container::readMovie(*file);
  std::vector<std::string> samples;
  for (const container::Sample& sample : movie.tracks.at(track).samples) {
    std::string bytes(sample.size, '\0');
    file->read(sample.offset, std::as_writable_bytes(std::span(bytes)));
    samples.push_back(std::move(bytes));
  }
  return samples;
}

} // namespace tessarin::testing
