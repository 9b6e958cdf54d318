#include "container/IndexFirstWriter.hpp"

#include <algorithm>
#include <utility>

namespace tessarin::container {

namespace {

constexpr std::size_t pendingBytes = std::size_t{1} << 20;
constexpr std::uint64_t wideMediaHeaderBytes = 16;
constexpr std::uint64_t freeHeaderBytes = 8;
constexpr std::uint64_t mostIndexBytes = std::uint64_t{1} << 30;

} // namespace

IndexFirstWriter::IndexFirstWriter(OpenFile& file, std::vector<IndexedTrack> tracks, std::uint64_t indexBytes,
                                   const std::string& brand)
    : file_(file) {
  if (tracks.empty() || brand.size() != 4 || indexBytes > mostIndexBytes)
    throw ContainerFailure(ContainerError::unsupported);
  tracks_.reserve(tracks.size());
  for (IndexedTrack& track : tracks) {
    if (track.descriptions.empty() || track.timescale < 1 || track.start < 0 || track.presentationStart < 0)
      throw ContainerFailure(ContainerError::unsupported);
    tracks_.push_back({std::move(track), {}, 0, 0});
  }
  writeFileType(head_, brand);
  mediaStart_ = head_.size() + indexBytes + freeHeaderBytes + wideMediaHeaderBytes;
  end_ = mediaStart_;
  lastTrack_ = tracks_.size();
  pending_.reserve(pendingBytes);
}

void IndexFirstWriter::append(std::size_t track, std::span<const std::byte> data, std::uint32_t duration,
                              std::int32_t compositionOffset, bool isSync, std::uint32_t description) {
  if (track >= tracks_.size() || description >= tracks_[track].setup.descriptions.size() ||
      data.size() > UINT32_MAX)
    throw ContainerFailure(ContainerError::unsupported);
  Growing& growing = tracks_[track];
  // A chunk is what lies side by side, for about a second.
  if (lastTrack_ != track || growing.description != description ||
      growing.chunkDuration >= static_cast<std::uint64_t>(growing.setup.timescale)) {
    growing.table.beginChunk(end_, description);
    growing.description = description;
    growing.chunkDuration = 0;
    lastTrack_ = track;
  }
  growing.table.add(static_cast<std::uint32_t>(data.size()), duration, compositionOffset, isSync);
  growing.chunkDuration += duration;
  if (pending_.size() + data.size() > pendingBytes)
    flush();
  pending_.insert(pending_.end(), data.begin(), data.end());
  end_ += data.size();
  if (pending_.size() >= pendingBytes)
    flush();
}

void IndexFirstWriter::flush() {
  if (pending_.empty())
    return;
  file_.write(end_ - pending_.size(), pending_);
  pending_.clear();
}

BoxWriter IndexFirstWriter::index(std::span<const std::int64_t> presentationDurations) const {
  std::vector<TrackToWrite> written;
  written.reserve(tracks_.size());
  for (std::size_t i = 0; i < tracks_.size(); ++i) {
    const IndexedTrack& setup = tracks_[i].setup;
    TrackToWrite track;
    track.kind = setup.kind;
    track.timescale = setup.timescale;
    track.width = setup.width;
    track.height = setup.height;
    track.matrix = setup.matrix;
    for (const SampleDescription& description : setup.descriptions)
      track.descriptions.push_back(&description);
    track.samples = &tracks_[i].table;
    track.start = setup.start;
    track.presentationStart = setup.presentationStart;
    track.presentationDuration = presentationDurations[i];
    written.push_back(std::move(track));
  }
  BoxWriter writer;
  writeMovieBox(writer, MovieForm::ordinary, written);
  return writer;
}

// From the end on, so that nothing is overwritten before it has been read.
void IndexFirstWriter::moveMedia(std::uint64_t by) {
  constexpr std::uint64_t most = std::uint64_t{4} << 20;
  std::vector<std::byte> bytes;
  for (std::uint64_t left = end_ - mediaStart_; left > 0;) {
    const std::uint64_t step = std::min(left, most);
    left -= step;
    bytes.resize(static_cast<std::size_t>(step));
    if (file_.read(mediaStart_ + left, bytes) != bytes.size())
      throw ContainerFailure(ContainerError::damaged);
    file_.write(mediaStart_ + left + by, bytes);
  }
  for (Growing& track : tracks_)
    track.table.moveChunks(by);
  mediaStart_ += by;
  end_ += by;
}

void IndexFirstWriter::finish(std::span<const std::int64_t> presentationDurations) {
  if (presentationDurations.size() != tracks_.size())
    throw ContainerFailure(ContainerError::unsupported);
  flush();
  BoxWriter box = index(presentationDurations);
  const std::uint64_t room = mediaStart_ - wideMediaHeaderBytes - freeHeaderBytes - head_.size();
  if (box.size() > room) {
    // Offsets beyond 4 GiB may need more room than before.
    const std::uint64_t slack = box.size() / 2;
    moveMedia(box.size() + slack - room);
    box = index(presentationDurations);
  }
  head_.append(box.bytes());
  const std::uint64_t left = mediaStart_ - wideMediaHeaderBytes - head_.size();
  head_.box(fourCC("free"), [&] { head_.zeros(static_cast<std::size_t>(left - freeHeaderBytes)); });
  writeWideMediaHeader(head_, end_ - mediaStart_);
  file_.write(0, head_.bytes());
  file_.sync();
}

} // namespace tessarin::container
