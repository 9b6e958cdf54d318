#include "container/MovieIndex.hpp"

#include <algorithm>

namespace tessarin::container {

namespace {

// Flags of `tfhd`, `trun` and of a sample.
constexpr std::uint32_t hasBaseOffset = 0x1, hasDescription = 0x2, hasDefaultDuration = 0x8,
                        hasDefaultSize = 0x10, hasDefaultFlags = 0x20, baseIsFragment = 0x20000;
constexpr std::uint32_t hasDataOffset = 0x1, hasFirstFlags = 0x4, hasDuration = 0x100, hasSize = 0x200,
                        hasFlags = 0x400, hasCompositionOffset = 0x800;
constexpr std::uint32_t isNotSync = 0x10000;

// Offsets stay far below where a sum with a sample's size could overflow.
constexpr std::uint64_t maximumOffset = std::uint64_t{1} << 62;

// Where the data of the next run lies when it does not say.
struct DataPosition {
  std::uint64_t base = 0;
  std::uint64_t next = 0;
  std::uint64_t end = 0; // of all data so far
};

struct FragmentTrack {
  TrackIndex* index = nullptr;
  SampleDefaults defaults;
};

FragmentTrack readTrackHeader(ByteCursor cursor, MovieIndex& movie, std::uint64_t fragmentOffset,
                              DataPosition& position) {
  const auto head = readVersionAndFlags(cursor, 0);
  const std::uint32_t id = cursor.u32();
  const auto found = std::find_if(movie.tracks.begin(), movie.tracks.end(),
                                  [&](const TrackIndex& index) { return index.track.id == id; });
  if (found == movie.tracks.end() || !found->fragmentDefaults)
    failDamaged();
  FragmentTrack track{&*found, *found->fragmentDefaults};
  if (head.flags & hasBaseOffset)
    position.base = cursor.u64();
  else if (head.flags & baseIsFragment)
    position.base = fragmentOffset;
  else
    position.base = position.end; // behind the track before; the fragment for the first one
  if (position.base > maximumOffset)
    failDamaged();
  position.next = position.base;
  if (head.flags & hasDescription) {
    const std::uint32_t description = cursor.u32();
    if (description == 0 || description > found->track.descriptions.size())
      failDamaged();
    track.defaults.description = description - 1;
  }
  if (head.flags & hasDefaultDuration)
    track.defaults.duration = cursor.u32();
  if (head.flags & hasDefaultSize)
    track.defaults.size = cursor.u32();
  if (head.flags & hasDefaultFlags)
    track.defaults.flags = cursor.u32();
  return track;
}

void readDecodeTime(ByteCursor cursor, TrackIndex& index) {
  const auto head = readVersionAndFlags(cursor, 1);
  const std::uint64_t time = head.version == 1 ? cursor.u64() : cursor.u32();
  if (time >= static_cast<std::uint64_t>(maximumDecodeTime))
    failDamaged();
  const auto& samples = index.track.samples;
  if (!samples.empty() && static_cast<std::int64_t>(time) < samples.back().decodeTime)
    failDamaged();
  index.endTime = static_cast<std::int64_t>(time);
}

void seek(DataPosition& position, std::int32_t offset) {
  const auto target = static_cast<std::int64_t>(position.base) + offset;
  if (target < 0)
    failDamaged();
  position.next = static_cast<std::uint64_t>(target);
}

void readRun(ByteCursor cursor, const FragmentTrack& track, DataPosition& position, SampleBudget& budget) {
  const auto head = readVersionAndFlags(cursor, 1);
  const std::uint32_t flags = head.flags;
  const std::uint32_t count = cursor.u32();
  if (flags & hasDataOffset)
    seek(position, cursor.i32());
  std::uint32_t firstFlags = track.defaults.flags;
  if (flags & hasFirstFlags)
    firstFlags = cursor.u32();

  std::size_t entrySize = 0;
  for (const std::uint32_t field : {hasDuration, hasSize, hasFlags, hasCompositionOffset})
    entrySize += flags & field ? 4 : 0;
  ByteCursor entries(cursor.take(count * entrySize));
  budget.takeSamples(count);
  if (!(flags & hasSize) && count > 0)
    budget.takeBytes(count, track.defaults.size);

  TrackIndex& index = *track.index;
  for (std::uint32_t i = 0; i < count; ++i) {
    Sample sample{.offset = position.next,
                  .size = track.defaults.size,
                  .duration = track.defaults.duration,
                  .decodeTime = index.endTime,
                  .description = static_cast<std::uint16_t>(track.defaults.description)};
    std::uint32_t sampleFlags = i == 0 ? firstFlags : track.defaults.flags;
    if (flags & hasDuration)
      sample.duration = entries.u32();
    if (flags & hasSize)
      budget.takeBytes(sample.size = entries.u32());
    if (flags & hasFlags)
      sampleFlags = i == 0 && flags & hasFirstFlags ? (entries.skip(4), firstFlags) : entries.u32();
    if (flags & hasCompositionOffset) {
      sample.compositionOffset = entries.i32();
      if (head.version == 0 && sample.compositionOffset < 0)
        failDamaged();
    }
    sample.isSync = !(sampleFlags & isNotSync);
    index.endTime += sample.duration;
    position.next += sample.size;
    if (index.endTime >= maximumDecodeTime || position.next > maximumOffset)
      failDamaged();
    index.track.samples.push_back(sample);
  }
  position.end = std::max(position.end, position.next);
}

} // namespace

std::uint64_t readFragment(std::span<const std::byte> content, std::uint64_t offset, MovieIndex& index,
                           SampleBudget& budget) {
  const BoxList boxes(content);
  ByteCursor header = boxes.requireContent(fourCC("mfhd"));
  readVersionAndFlags(header, 0);
  DataPosition position{offset, offset, offset};
  for (const Box& box : boxes.all()) {
    if (box.type != fourCC("traf"))
      continue;
    const BoxList parts(box.content);
    const FragmentTrack track =
        readTrackHeader(parts.requireContent(fourCC("tfhd")), index, offset, position);
    if (const Box* time = parts.find(fourCC("tfdt")))
      readDecodeTime(ByteCursor(time->content), *track.index);
    for (const Box& part : parts.all()) {
      if (part.type == fourCC("trun"))
        readRun(ByteCursor(part.content), track, position, budget);
    }
  }
  return position.end == offset ? 0 : position.end;
}

} // namespace tessarin::container
