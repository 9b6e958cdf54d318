#include "modules/media/MovieFile.hpp"

#include "base/SafeFile.hpp"

#include <algorithm>
#include <utility>

namespace tessarin::media {

namespace {

std::size_t firstVideoTrack(const std::vector<MovieTrack>& tracks) {
  const auto found = std::find_if(tracks.begin(), tracks.end(), [](const MovieTrack& track) {
    return track.setup.kind == container::TrackKind::video;
  });
  return static_cast<std::size_t>(found - tracks.begin());
}

// What the files of a session may differ by; tracks that end further apart cannot be recovered from a crash.
constexpr std::int64_t toleratedLag = videoTimescale / 4;
// A coder that hangs must not keep the others' pictures from the disk.
constexpr std::int64_t longestWait = std::int64_t{3} * videoTimescale;

// What is held of the track.
template<class Held> Held& heldOf(std::vector<Held>& all, std::size_t track) {
  return *std::find_if(all.begin(), all.end(), [&](const Held& each) { return each.track == track; });
}

} // namespace

MovieTrack videoTrack(const container::SampleDescription& description) {
  return {{.kind = container::TrackKind::video,
           .timescale = videoTimescale,
           .width = description.width,
           .height = description.height},
          description};
}

MovieTrack audioTrack(const container::SampleDescription& description, std::int32_t sampleRate) {
  return {{.kind = container::TrackKind::audio, .timescale = sampleRate, .presentationStart = primingFrames},
          description};
}

MovieFile::MovieFile(FileSystem& files, std::string path, const FragmentIntervals& intervals,
                     const std::vector<MovieTrack>& tracks)
    : files_(files), path_(std::move(path)), intervals_(intervals),
      file_(files.open(path_, OpenMode::createExclusive)), fragmentDue_(intervals.initial),
      leadingTrack_(firstVideoTrack(tracks)) {
  std::vector<container::TrackSetup> setups;
  setups.reserve(tracks.size());
  for (const MovieTrack& track : tracks) {
    if (track.setup.kind == container::TrackKind::audio)
      sounds_.push_back({setups.size(), track.setup, {}, 0, 0});
    else if (setups.size() != leadingTrack_)
      otherPictures_.push_back({.track = setups.size(), .held = {}});
    setups.push_back(track.setup);
  }
  writer_.emplace(*file_, setups);
  for (std::size_t track = 0; track < tracks.size(); ++track)
    writer_->setDescription(track, tracks[track].description);
}

void MovieFile::append(std::size_t track, CodedPicture picture, std::int64_t time) {
  if (track != leadingTrack_) {
    HeldPictures& pictures = heldOf(otherPictures_, track);
    pictures.newestTime = time;
    pictures.held.push_back({std::move(picture), time});
    return;
  }
  writer_->append(track, picture.sample, time, 0, picture.isKey);
  leadingTime_ = time;
  releaseAll(time);
  // The writer holds the key back, so what it flushes ends before it.
  if (!picture.isKey || time < fragmentDue_ || isWaitingForOthers(time))
    return;
  writer_->flushFragment();
  fragmentDue_ = time + intervals_.further;
}

// Whether another video track has still to bring pictures of the fragment that ends at the time.
bool MovieFile::isWaitingForOthers(std::int64_t time) const {
  return time < fragmentDue_ + longestWait &&
         std::any_of(otherPictures_.begin(), otherPictures_.end(),
                     [&](const HeldPictures& pictures) { return pictures.newestTime < time - toleratedLag; });
}

void MovieFile::append(std::size_t track, CodedSound sound) {
  if (sound.sizes.empty())
    return;
  heldOf(sounds_, track).held.push_back(std::move(sound));
}

// Lets the packets into the file that begin before the frame.
void MovieFile::release(HeldSound& sound, std::int64_t frame) {
  constexpr auto duration = static_cast<std::int64_t>(framesPerPacket);
  while (!sound.held.empty()) {
    const CodedSound& packets = sound.held.front();
    for (; sound.released < packets.sizes.size(); ++sound.released) {
      const std::int64_t packet = packets.firstPacket + static_cast<std::int64_t>(sound.released);
      const std::int64_t time = packet * duration;
      if (time - sound.setup.presentationStart >= frame)
        return;
      const std::uint32_t size = packets.sizes[sound.released];
      writer_->append(sound.track, std::span(packets.data).subspan(sound.releasedBytes, size), time, 0, true);
      sound.releasedBytes += size;
    }
    sound.held.pop_front();
    sound.released = sound.releasedBytes = 0;
  }
}

// Lets the pictures into the file that are shown no later than the time.
void MovieFile::release(HeldPictures& pictures, std::int64_t time) {
  for (auto& held = pictures.held; !held.empty() && held.front().time <= time; held.pop_front())
    writer_->append(pictures.track, held.front().picture.sample, held.front().time, 0,
                    held.front().picture.isKey);
}

void MovieFile::releaseAll(std::int64_t time) {
  for (HeldPictures& pictures : otherPictures_)
    release(pictures, time);
  for (HeldSound& sound : sounds_)
    release(sound, MediaTime(time, videoTimescale).convertedTo(sound.setup.timescale).value());
}

void MovieFile::flush() {
  releaseAll(leadingTime_);
  writer_->flushFragment();
}

void MovieFile::finish(const std::vector<std::int64_t>& endTimes) {
  std::vector<std::int64_t> mediaEnds = endTimes;
  for (HeldPictures& pictures : otherPictures_)
    release(pictures, endTimes[pictures.track]);
  for (HeldSound& sound : sounds_) {
    release(sound, endTimes[sound.track]);
    mediaEnds[sound.track] += sound.setup.presentationStart;
  }
  writer_->finish(mediaEnds);
  writer_.reset();
  file_.reset();
  files_.syncDirectory(directoryOf(path_));
}

} // namespace tessarin::media
