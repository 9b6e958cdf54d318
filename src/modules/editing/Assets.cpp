#include "modules/editing/Assets.hpp"

#include "modules/editing/FrameConversion.hpp"
#include "modules/editing/MonoSound.hpp"
#include "modules/editing/PictureReader.hpp"
#include "modules/editing/SampleEntries.hpp"
#include "modules/editing/SoundReader.hpp"

#include <limits>

namespace tessarin::editing {

namespace {

std::vector<std::string> subtypesOf(const container::Track& track) {
  std::vector<std::string> subtypes;
  subtypes.reserve(track.descriptions.size());
  for (const container::SampleDescription& description : track.descriptions)
    subtypes.push_back(readSampleEntry(description, track.kind).subtype);
  return subtypes;
}

AssetVideoTrack videoTrackOf(const container::Track& track) {
  AssetVideoTrack video;
  const container::SampleDescription& first = track.descriptions.front();
  video.naturalWidth = first.width * readSampleEntry(first, track.kind).pixelAspect;
  video.naturalHeight = first.height;
  video.preferredTransform = transformOf(track);
  video.timeRange = {track.start, track.duration};
  video.subtypes = subtypesOf(track);
  if (!track.samples.empty()) {
    const container::Sample& last = track.samples.back();
    const std::int64_t length = last.decodeTime + last.duration - track.samples.front().decodeTime;
    if (length > 0)
      video.nominalFrameRate = static_cast<double>(track.samples.size()) * track.timescale / length;
  }
  return video;
}

// Rounded down, as the picture on show is the last one that has begun; before all pictures for a time that is
// no time.
std::int64_t flooredAt(MediaTime time, std::int32_t timescale) {
  if (!time.isNumeric() || time < MediaTime::zero())
    return std::numeric_limits<std::int64_t>::min() / 2;
  return static_cast<std::int64_t>(static_cast<__int128>(time.value()) * timescale / time.timescale());
}

// At least one picture or some sound, and all of it decodable.
bool isComposable(const container::Movie& movie) {
  bool hasMedia = false;
  for (const container::Track& track : movie.tracks) {
    if (track.kind == container::TrackKind::other)
      continue;
    if (!isDecodable(track))
      return false;
    hasMedia = hasMedia || !track.samples.empty();
  }
  return hasMedia;
}

} // namespace

MediaAsset Assets::asset(const std::string& path) {
  MediaAsset asset;
  try {
    const SourceFile file(files_, path);
    const container::Movie& movie = file.movie();
    asset.isComposable = isComposable(movie);
    asset.duration = movie.duration;
    for (const container::Track* track : movie.tracksOf(container::TrackKind::video))
      asset.videoTracks.push_back(videoTrackOf(*track));
    for (const container::Track* track : movie.tracksOf(container::TrackKind::audio))
      asset.audioTracks.push_back({{track->start, track->duration}, subtypesOf(*track)});
  } catch (const MovieEditingFailure& failure) {
    if (failure.error() != MovieEditingError::notComposable)
      throw;
    return {}; // a movie, in a form that is not read here
  }
  return asset;
}

Picture Assets::picture(const std::string& path, MediaTime time) {
  const SourceFile file(files_, path);
  const container::Track& track = file.video();
  PictureReader reader(file, track);
  const auto place = reader.pictureAt(flooredAt(time, track.timescale));
  if (!place)
    throw MovieEditingFailure(MovieEditingError::unreadable);
  PictureMemory memory;
  return bgrxPicture(*reader.picture(*place), naturalSizeOf(track), memory);
}

void Assets::decodeSound(const std::string& path, std::size_t audioTrackIndex,
                         const std::function<void(const DecodedSound&)>& handler) {
  const SourceFile file(files_, path);
  SoundReader reader(file, file.sound(audioTrackIndex));
  MonoSound mono(handler);
  while (const auto stretch = reader.next())
    mono.take(*stretch);
  mono.finish();
}

} // namespace tessarin::editing
