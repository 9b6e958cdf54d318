#include "container/Movie.hpp"

#include "container/MovieIndex.hpp"

#include <algorithm>
#include <utility>

namespace tessarin::container {

namespace {

// When the last picture or sound ends, which with reordering lies behind the last decode time.
std::int64_t presentationEnd(const Track& track) {
  std::int64_t end = 0;
  for (const Sample& sample : track.samples)
    end = std::max(end, sample.decodeTime + sample.compositionOffset + sample.duration);
  return end;
}

void place(TrackIndex& index, std::int32_t movieTimescale) {
  Track& track = index.track;
  const std::int64_t first = track.samples.empty() ? 0 : track.samples.front().decodeTime;
  const std::int64_t end = presentationEnd(track);
  const Edit edit = index.edit.value_or(Edit{});

  // What the edit presents ahead of the first sample is a pause before the track.
  const std::int64_t pause = std::max<std::int64_t>(first - edit.mediaTime, 0);
  track.presentationStart = edit.mediaTime + pause;
  const std::int64_t available = std::max<std::int64_t>(end - track.presentationStart, 0);
  track.presentationDuration = available;
  if (edit.duration != 0) {
    const MediaTime length(static_cast<std::int64_t>(edit.duration), movieTimescale);
    const MediaTime told = length.convertedTo(track.timescale);
    const std::int64_t unit =
        movieTimescale % track.timescale == 0 ? 0 : track.timescale / movieTimescale + 1;
    if (told.isNumeric() && told.value() - pause < available - unit)
      track.presentationDuration = std::max<std::int64_t>(told.value() - pause, 0);
  }
  track.start = MediaTime(static_cast<std::int64_t>(edit.emptyDuration), movieTimescale) +
                MediaTime(pause, track.timescale);
  track.duration = MediaTime(track.presentationDuration, track.timescale);
  if (!track.start.isNumeric())
    throw ContainerFailure(ContainerError::tooLarge);
}

} // namespace

std::vector<const Track*> Movie::tracksOf(TrackKind kind) const {
  std::vector<const Track*> found;
  for (const Track& track : tracks) {
    if (track.kind == kind)
      found.push_back(&track);
  }
  return found;
}

Movie placeTracks(MovieIndex index) {
  Movie movie;
  movie.duration = MediaTime::zero();
  for (TrackIndex& track : index.tracks) {
    place(track, index.timescale);
    const MediaTime end = track.track.start + track.track.duration;
    if (!end.isNumeric())
      throw ContainerFailure(ContainerError::tooLarge);
    movie.duration = std::max(movie.duration, end);
    movie.tracks.push_back(std::move(track.track));
  }
  return movie;
}

} // namespace tessarin::container
