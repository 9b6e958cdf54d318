#pragma once

#include "base/FileSystem.hpp"
#include "base/MediaTime.hpp"
#include "container/FragmentedMovieWriter.hpp"

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

// Writes a video of one sample for each time, every one a key frame, that ends at the time given.
inline void writeLittleMovie(FileSystem& files, const std::string& path, const std::vector<MediaTime>& times,
                             MediaTime end, OpenMode mode = OpenMode::createTruncated) {
  constexpr std::int32_t timescale = 90000;
  constexpr std::int32_t side = 16;
  const auto ticks = [](MediaTime time) { return time.convertedTo(timescale).value(); };
  const auto file = files.open(path, mode);
  container::FragmentedMovieWriter writer(*file, {{.timescale = timescale, .width = side, .height = side}});
  writer.setDescription(0, littleVideoDescription(side, side));
  const std::vector<std::byte> sample(32, std::byte{7});
  for (const MediaTime& time : times)
    writer.append(0, sample, ticks(time), 0, true);
  const std::int64_t endTicks = ticks(end);
  writer.finish({&endTicks, 1});
}

} // namespace tessarin::testing
