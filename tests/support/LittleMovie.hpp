#pragma once

#include "base/FileSystem.hpp"
#include "base/MediaTime.hpp"
#include "container/FragmentedMovieWriter.hpp"
#include "support/SyntheticMovie.hpp"

#include <cstdint>
#include <string>
#include <vector>

// Whole, tiny movie files of coded samples that nobody decodes. For tests that link the container room.
namespace tessarin::testing {

// A sample entry "avc1" with an empty "avcC".
inline container::SampleDescription littleVideoDescription(std::int32_t width, std::int32_t height) {
  container::SampleDescription description;
  description.codec = "avc1";
  description.width = width;
  description.height = height;
  const auto put = [&](std::uint32_t value, int byteCount) {
    for (int shift = (byteCount - 1) * 8; shift >= 0; shift -= 8)
      description.box.push_back(static_cast<std::byte>(value >> shift));
  };
  constexpr std::uint32_t entryBytes = 86;
  constexpr std::uint32_t configurationBytes = 15;
  put(entryBytes + configurationBytes, 4);
  put(0x61766331, 4); // "avc1"
  put(0, 4);
  put(1, 4); // six reserved bytes in all, then the data reference index
  for (int i = 0; i < 4; ++i)
    put(0, 4);
  put(static_cast<std::uint32_t>(width), 2);
  put(static_cast<std::uint32_t>(height), 2);
  put(0x00480000, 4); // 72 dpi
  put(0x00480000, 4);
  put(0, 4);
  put(1, 2); // one frame a sample
  for (int i = 0; i < 8; ++i)
    put(0, 4);    // no name
  put(0x0018, 2); // depth
  put(0xffff, 2); // no colour table
  put(configurationBytes, 4);
  put(0x61766343, 4); // "avcC"
  put(0x01424028, 4); // version 1, baseline, level 4.0
  put(0xffe000, 3);   // 4-byte lengths, no parameter sets
  return description;
}

// A track of one sample for each time; every picture is a key frame.
struct LittleTrack {
  container::TrackKind kind = container::TrackKind::video;
  std::vector<MediaTime> times;
  MediaTime end;
};

// Sound in packets of 1024 frames from the start to the end.
inline LittleTrack littleSound(MediaTime end) {
  LittleTrack track{container::TrackKind::audio, {}, end};
  for (MediaTime time = MediaTime::zero(); time < end; time = time + MediaTime(1024, 48000))
    track.times.push_back(time);
  return track;
}

// What every sample of a track holds, by the track's place in its file.
inline std::vector<std::byte> littleSample(std::size_t track) {
  return std::vector<std::byte>(32, static_cast<std::byte>(7 + track));
}

inline void writeLittleMovie(FileSystem& files, const std::string& path,
                             const std::vector<LittleTrack>& tracks, OpenMode mode) {
  constexpr std::int32_t side = 16;
  std::vector<container::TrackSetup> setups;
  for (const LittleTrack& track : tracks)
    setups.push_back({.kind = track.kind,
                      .timescale = track.kind == container::TrackKind::video ? 90000 : 48000,
                      .width = side,
                      .height = side});
  const auto file = files.open(path, mode);
  container::FragmentedMovieWriter writer(*file, setups);
  std::vector<std::int64_t> ends;
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    const auto ticks = [&](MediaTime time) { return time.convertedTo(setups[i].timescale).value(); };
    writer.setDescription(i, tracks[i].kind == container::TrackKind::video
                                 ? littleVideoDescription(side, side)
                                 : descriptionOf(audioOf(0)));
    for (const MediaTime& time : tracks[i].times)
      writer.append(i, littleSample(i), ticks(time), 0, true);
    ends.push_back(ticks(tracks[i].end));
  }
  writer.finish(ends);
}

// One video track.
inline void writeLittleMovie(FileSystem& files, const std::string& path, const std::vector<MediaTime>& times,
                             MediaTime end, OpenMode mode = OpenMode::createTruncated) {
  writeLittleMovie(files, path, {{container::TrackKind::video, times, end}}, mode);
}

} // namespace tessarin::testing
