#include "container/MovieIndex.hpp"

#include <limits>

namespace tessarin::container {

namespace {

constexpr std::size_t maximumTracks = 64;

std::int32_t readTimescale(ByteCursor& cursor) {
  const std::uint32_t timescale = cursor.u32();
  if (timescale == 0 || timescale > std::numeric_limits<std::int32_t>::max())
    failDamaged();
  return static_cast<std::int32_t>(timescale);
}

// `mvhd` and `mdhd` begin alike: creation and modification times, then the timescale.
std::int32_t readHeaderTimescale(ByteCursor cursor) {
  const auto head = readVersionAndFlags(cursor, 1);
  cursor.skip(head.version == 1 ? 16 : 8);
  return readTimescale(cursor);
}

void readTrackHeader(ByteCursor cursor, Track& track) {
  const auto head = readVersionAndFlags(cursor, 1);
  cursor.skip(head.version == 1 ? 16 : 8);
  track.id = cursor.u32();
  if (track.id == 0)
    failDamaged();
  cursor.skip(head.version == 1 ? 12 : 8); // reserved, duration
  cursor.skip(16);                         // reserved, layer, group, volume, reserved
  for (std::int32_t& value : track.matrix)
    value = cursor.i32();
  cursor.skip(8); // width and height
}

TrackKind readHandler(ByteCursor cursor) {
  readVersionAndFlags(cursor, 0);
  cursor.skip(4);
  switch (cursor.u32()) {
  case fourCC("vide"):
    return TrackKind::video;
  case fourCC("soun"):
    return TrackKind::audio;
  default:
    return TrackKind::other;
  }
}

std::optional<Edit> readEditList(ByteCursor cursor) {
  const auto head = readVersionAndFlags(cursor, 1);
  const std::uint32_t count = cursor.u32();
  std::optional<Edit> media;
  std::uint64_t empty = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint64_t duration = head.version == 1 ? cursor.u64() : cursor.u32();
    const std::int64_t mediaTime = head.version == 1 ? cursor.i64() : cursor.i32();
    if (cursor.u32() != 0x00010000 || media)
      throw ContainerFailure(ContainerError::unsupported);
    if (duration >= maximumDecodeTime || mediaTime < -1 || mediaTime >= maximumDecodeTime)
      failDamaged();
    if (mediaTime >= 0) {
      media = Edit{empty, mediaTime, duration};
    } else {
      empty += duration;
      if (empty >= maximumDecodeTime)
        failDamaged();
    }
  }
  if (empty > 0 && !media)
    throw ContainerFailure(ContainerError::unsupported);
  return media;
}

// Media in another file would have to be looked for there, wherever the index points.
void requireMediaInThisFile(const BoxList& information) {
  constexpr std::uint32_t inThisFile = 1;
  const Box* const data = information.find(fourCC("dinf"));
  if (data == nullptr)
    return;
  const BoxList list(data->content);
  const Box* const references = list.find(fourCC("dref"));
  if (references == nullptr)
    return;
  ByteCursor cursor(references->content);
  readVersionAndFlags(cursor, 1);
  cursor.skip(4);
  const BoxList entries(cursor.take(cursor.remaining()));
  for (const Box& entry : entries.all()) {
    ByteCursor content(entry.content);
    if ((content.u32() & inThisFile) == 0)
      throw ContainerFailure(ContainerError::unsupported);
  }
}

TrackIndex readTrack(std::span<const std::byte> content, SampleBudget& budget) {
  const BoxList boxes(content);
  TrackIndex index;
  Track& track = index.track;
  readTrackHeader(boxes.requireContent(fourCC("tkhd")), track);
  if (const Box* edits = boxes.find(fourCC("edts"))) {
    const BoxList list(edits->content);
    if (const Box* edit = list.find(fourCC("elst")))
      index.edit = readEditList(ByteCursor(edit->content));
  }
  const BoxList media(boxes.require(fourCC("mdia")).content);
  track.timescale = readHeaderTimescale(media.requireContent(fourCC("mdhd")));
  track.kind = readHandler(media.requireContent(fourCC("hdlr")));
  const BoxList information(media.require(fourCC("minf")).content);
  if (track.kind != TrackKind::other)
    requireMediaInThisFile(information);
  const BoxList table(information.require(fourCC("stbl")).content);
  track.descriptions = readDescriptions(table.require(fourCC("stsd")).content, track.kind);
  readSampleTable(table, index, budget);
  return index;
}

void readFragmentDefaults(ByteCursor cursor, MovieIndex& movie) {
  readVersionAndFlags(cursor, 0);
  const std::uint32_t id = cursor.u32();
  for (TrackIndex& index : movie.tracks) {
    if (index.track.id != id)
      continue;
    const std::uint32_t description = cursor.u32();
    if (description == 0 || description > index.track.descriptions.size() || index.fragmentDefaults)
      failDamaged();
    index.fragmentDefaults = SampleDefaults{description - 1, cursor.u32(), cursor.u32(), cursor.u32()};
    return;
  }
  failDamaged();
}

} // namespace

MovieIndex readMovieBox(std::span<const std::byte> content, SampleBudget& budget) {
  const BoxList boxes(content);
  MovieIndex movie;
  movie.timescale = readHeaderTimescale(boxes.requireContent(fourCC("mvhd")));
  for (const Box& box : boxes.all()) {
    if (box.type != fourCC("trak"))
      continue;
    if (movie.tracks.size() == maximumTracks)
      throw ContainerFailure(ContainerError::tooLarge);
    TrackIndex index = readTrack(box.content, budget);
    for (const TrackIndex& other : movie.tracks) {
      if (other.track.id == index.track.id)
        failDamaged();
    }
    movie.tracks.push_back(std::move(index));
  }
  if (movie.tracks.empty())
    throw ContainerFailure(ContainerError::notAMovie);
  if (const Box* extends = boxes.find(fourCC("mvex"))) {
    movie.hasFragments = true;
    const BoxList parts(extends->content);
    for (const Box& box : parts.all()) {
      if (box.type == fourCC("trex"))
        readFragmentDefaults(ByteCursor(box.content), movie);
    }
  }
  return movie;
}

} // namespace tessarin::container
