#pragma once

#include "container/ContainerTesting.hpp"
#include "container/FragmentedMovieWriter.hpp"
#include "container/MovieJoin.hpp"

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

// Sources in memory, and what a join makes of them.
namespace tessarin::container {

// A source file with its index.
struct Source {
  MemoryFile file;
  Movie movie;

  const Track& track(std::size_t index = 0) const { return movie.tracks.at(index); }
};

// A track of a source: so many samples, an interval of its timescale apart.
struct SourceTrack {
  TrackSetup setup;
  SampleDescription description;
  std::int64_t interval = 1;
  std::size_t count = 0;
};

// Samples at equal distance, written by time; the first of every `keyInterval` is a key frame.
inline std::unique_ptr<Source> makeSource(const std::vector<SourceTrack>& tracks, std::uint32_t seed = 0,
                                          bool isFinished = true, std::size_t keyInterval = 5) {
  auto source = std::make_unique<Source>();
  std::vector<TrackSetup> setups;
  for (const SourceTrack& track : tracks)
    setups.push_back(track.setup);
  FragmentedMovieWriter writer(source->file, setups);
  std::vector<std::size_t> next(tracks.size(), 0);
  for (std::size_t i = 0; i < tracks.size(); ++i)
    writer.setDescription(i, tracks[i].description);
  for (;;) {
    std::size_t earliest = tracks.size();
    MediaTime earliestTime;
    for (std::size_t i = 0; i < tracks.size(); ++i) {
      const MediaTime time(static_cast<std::int64_t>(next[i]) * tracks[i].interval,
                           tracks[i].setup.timescale);
      if (next[i] < tracks[i].count && (earliest == tracks.size() || time < earliestTime)) {
        earliest = i;
        earliestTime = time;
      }
    }
    if (earliest == tracks.size())
      break;
    const std::size_t n = next[earliest]++;
    const bool isSync = tracks[earliest].setup.kind == TrackKind::audio || n % keyInterval == 0;
    writer.append(earliest, randomBytes(5 + n % 3, seed + static_cast<std::uint32_t>(n)),
                  earliestTime.value(), 0, isSync);
    if (earliest == 0 && isSync && n > 0)
      writer.flushFragment();
  }
  std::vector<std::int64_t> ends;
  for (const SourceTrack& track : tracks)
    ends.push_back(static_cast<std::int64_t>(track.count) * track.interval);
  if (isFinished)
    writer.finish(ends);
  source->movie = readMovie(source->file);
  return source;
}

inline SourceTrack video(std::int32_t timescale, std::int64_t interval, std::size_t count,
                         std::uint8_t variant = 0) {
  return {{TrackKind::video, timescale, 64, 48, 0}, videoDescription(64, 48, variant), interval, count};
}

inline SourceTrack audio(std::size_t count) {
  return {{TrackKind::audio, 48000, 0, 0, 1024}, audioDescription(), 1024, count};
}

inline JoinPiece piece(const Source& source, MediaTime start, MediaTime duration, std::size_t track = 0) {
  return {&source.file, &source.track(track), start, duration};
}

// The whole sources one behind another.
inline JoinTrack inARow(const std::vector<const Source*>& sources, std::size_t track = 0) {
  JoinTrack joined;
  MediaTime start = MediaTime::zero();
  for (const Source* source : sources) {
    joined.pieces.push_back(piece(*source, start, source->movie.duration, track));
    start = start + source->movie.duration;
  }
  return joined;
}

// The bytes of every sample.
inline std::vector<Bytes> contents(const OpenFile& file, const Track& track) {
  std::vector<Bytes> found;
  for (const Sample& sample : track.samples)
    found.push_back(bytesAt(file, sample));
  return found;
}

inline std::vector<Bytes> contents(const std::vector<const Source*>& sources, std::size_t track = 0) {
  std::vector<Bytes> found;
  for (const Source* source : sources) {
    for (Bytes& bytes : contents(source->file, source->track(track)))
      found.push_back(std::move(bytes));
  }
  return found;
}

inline std::vector<std::int64_t> times(const Track& track) {
  std::vector<std::int64_t> found;
  for (const Sample& sample : track.samples)
    found.push_back(sample.decodeTime);
  return found;
}

inline std::vector<std::uint32_t> durations(const Track& track) {
  std::vector<std::uint32_t> found;
  for (const Sample& sample : track.samples)
    found.push_back(sample.duration);
  return found;
}

// A joined file, read back.
struct Joined {
  MemoryFile file;
  Movie movie;
};

inline std::unique_ptr<Joined> join(const std::vector<JoinTrack>& tracks) {
  auto joined = std::make_unique<Joined>();
  writeJoinedMovie(joined->file, tracks, "mp42");
  joined->movie = readMovie(joined->file);
  return joined;
}

} // namespace tessarin::container
