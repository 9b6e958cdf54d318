#include "modules/media/SampleEntry.hpp"

#include "modules/media/BoxBytes.hpp"
#include "modules/media/CoderFailure.hpp"

#include <algorithm>

namespace tessarin::media {

namespace {

using Units = std::vector<std::span<const std::byte>>;

Units ofType(const Units& units, unsigned type, bool isHevc) {
  Units found;
  std::copy_if(units.begin(), units.end(), std::back_inserter(found), [&](auto unit) {
    const auto first = std::to_integer<unsigned>(unit[0]);
    return (isHevc ? first >> 1 & 63 : first & 31) == type;
  });
  return found;
}

std::span<const std::byte> onlyOne(const Units& units, std::size_t leastBytes) {
  if (units.size() != 1 || units[0].size() < leastBytes)
    throw CoderFailure("parameter-sets", static_cast<std::int64_t>(units.size()));
  return units[0];
}

BoxBytes h264Configuration(const Units& units) {
  constexpr std::size_t profileBytes = 4;
  const auto sequence = onlyOne(ofType(units, 7, false), profileBytes);
  const auto picture = onlyOne(ofType(units, 8, false), 2);
  BoxBytes writer;
  writer.number(1, 1);
  writer.bytes(sequence.subspan(1, 3)); // profile, compatibility, level
  writer.number(0xFC | 3, 1);           // lengths of four bytes
  writer.number(0xE0 | 1, 1);
  writer.unit(sequence);
  writer.number(1, 1);
  writer.unit(picture);
  const auto profile = std::to_integer<unsigned>(sequence[1]);
  if (profile != 66 && profile != 77 && profile != 88) {
    writer.number(0xFC | 1, 1); // 4:2:0
    writer.number(0xF8, 1);     // 8 bits luma
    writer.number(0xF8, 1);     // and chroma
    writer.number(0, 1);
  }
  return writer;
}

BoxBytes hevcConfiguration(const Units& units) {
  constexpr unsigned videoSet = 32;
  constexpr unsigned sequenceSet = 33;
  constexpr unsigned pictureSet = 34;
  constexpr std::size_t profileBytes = 12;
  const Bytes sequence =
      withoutEmulationPrevention(onlyOne(ofType(units, sequenceSet, true), profileBytes + 3));
  if (sequence.size() < profileBytes + 3)
    throw CoderFailure("parameter-sets", 0);
  const bool isTemporallyNested = (sequence[2] & std::byte{1}) != std::byte{0};
  BoxBytes writer;
  writer.number(1, 1);
  writer.bytes(std::span(sequence).subspan(3, profileBytes));
  writer.number(0xF000, 2);                                      // any spatial segmentation
  writer.number(0xFC, 1);                                        // any parallelism
  writer.number(0xFC | 1, 1);                                    // 4:2:0
  writer.number(0xF8, 1);                                        // 8 bits luma
  writer.number(0xF8, 1);                                        // and chroma
  writer.number(0, 2);                                           // any frame rate
  writer.number((1 << 3) | (isTemporallyNested ? 4 : 0) | 3, 1); // one layer, lengths of four bytes
  writer.number(3, 1);
  for (const unsigned type : {videoSet, sequenceSet, pictureSet}) {
    writer.number(0x80 | type, 1); // all of them are here
    writer.number(1, 2);
    writer.unit(onlyOne(ofType(units, type, true), 3));
  }
  return writer;
}

BoxBytes colorInformation() {
  constexpr int bt709 = 1;
  BoxBytes writer;
  writer.code("nclx");
  writer.number(bt709, 2); // primaries
  writer.number(bt709, 2); // transfer
  writer.number(bt709, 2); // matrix
  writer.number(0, 1);     // video range
  return writer;
}

} // namespace

container::SampleDescription makeSampleEntry(const VideoSettings& settings,
                                             std::span<const std::byte> parameterSets) {
  const bool isHevc = settings.codec == RecordingCodec::hevc;
  const Units units = splitByteStream(parameterSets);

  BoxBytes entry;
  entry.zeros(6);
  entry.number(1, 2); // data reference
  entry.zeros(16);
  entry.number(static_cast<std::uint64_t>(settings.width), 2);
  entry.number(static_cast<std::uint64_t>(settings.height), 2);
  entry.number(0x00480000, 4); // 72 dots per inch
  entry.number(0x00480000, 4);
  entry.zeros(4);
  entry.number(1, 2); // one picture a sample
  entry.zeros(32);    // no name
  entry.number(24, 2);
  entry.number(0xFFFF, 2);
  entry.box(isHevc ? "hvcC" : "avcC", isHevc ? hevcConfiguration(units) : h264Configuration(units));
  entry.box("colr", colorInformation());
  BoxBytes squarePixels;
  squarePixels.number(1, 4);
  squarePixels.number(1, 4);
  entry.box("pasp", squarePixels);

  container::SampleDescription description;
  description.codec = isHevc ? "hvc1" : "avc1";
  description.width = static_cast<std::int32_t>(settings.width);
  description.height = static_cast<std::int32_t>(settings.height);
  BoxBytes box;
  box.box(description.codec, entry);
  description.box = box.bytes();
  return description;
}

} // namespace tessarin::media
