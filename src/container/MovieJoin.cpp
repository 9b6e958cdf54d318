#include "container/MovieJoin.hpp"

#include "container/MovieBoxWriter.hpp"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

namespace tessarin::container {

namespace {

constexpr std::int32_t maximumCommonTimescale = 10'000'000;

// Consecutive samples of one source that end up in one chunk of the output.
struct PlannedChunk {
  const OpenFile* file = nullptr;
  std::int64_t decodeTime = 0;   // in the output
  std::uint32_t description = 0; // index in the output
  std::span<const Sample> samples;
  std::vector<std::uint32_t> durations;         // in the output
  std::vector<std::int32_t> compositionOffsets; // in the output
};

// One track of the output: its samples with their times, before they have a place in the file.
class JoinedTrack {
 public:
  explicit JoinedTrack(const JoinTrack& track);

  const std::vector<PlannedChunk>& chunks() const { return chunks_; }
  std::int32_t timescale() const { return timescale_; }
  TrackToWrite describe(const SampleTable& table) const;

 private:
  struct Placed {
    const JoinPiece* piece = nullptr;
    std::int64_t start = 0;      // on the output's time line, of what is presented
    std::int64_t end = 0;        // likewise
    std::int64_t mediaStart = 0; // of the first sample, ahead of the start by what is primed
    std::int64_t mediaEnd = 0;   // ahead of the end by how much pictures are decoded before they are shown
    std::size_t sampleCount = 0; // that are taken
  };

  void chooseTimescale(const JoinTrack& track);
  Placed place(const JoinPiece& piece) const;
  std::int64_t rescaled(std::int64_t time, std::int32_t timescale) const;
  std::int64_t decodeTime(const Placed& placed, std::size_t sample) const;
  std::size_t samplesBefore(const Placed& placed, std::int64_t mediaEnd) const;
  std::size_t fittingSound(const Placed& placed, std::int64_t mediaEnd);
  void plan(const Placed& placed, std::int64_t mediaEnd, bool isLastPiece);
  PlannedChunk& chunkFor(const Placed& placed, std::size_t sample, std::int64_t time,
                         std::uint32_t description);
  std::uint32_t descriptionIndex(const SampleDescription& description);

  const Track& model_; // the first piece's
  std::int32_t timescale_ = 1;
  std::int64_t start_ = 0;             // of the presentation
  std::int64_t presentationStart_ = 0; // in the media
  std::int64_t end_ = 0;
  std::int64_t soundEnd_ = 0; // of all packets so far for a decoder that puts them in a row
  std::vector<const SampleDescription*> descriptions_;
  std::vector<PlannedChunk> chunks_;
};

const Track& firstTrack(const JoinTrack& track) {
  if (track.pieces.empty() || track.pieces.front().track == nullptr)
    throw ContainerFailure(ContainerError::unsupported);
  return *track.pieces.front().track;
}

void requireJoinable(const JoinTrack& track, TrackKind kind) {
  MediaTime last = MediaTime::zero();
  for (const JoinPiece& piece : track.pieces) {
    if (piece.file == nullptr || piece.track == nullptr || kind == TrackKind::other ||
        piece.track->kind != kind || piece.start < last || !(piece.duration > MediaTime::zero()))
      throw ContainerFailure(ContainerError::unsupported);
    last = piece.start;
  }
}

JoinedTrack::JoinedTrack(const JoinTrack& track) : model_(firstTrack(track)) {
  requireJoinable(track, model_.kind);
  chooseTimescale(track);
  std::vector<Placed> placed;
  for (const JoinPiece& piece : track.pieces)
    placed.push_back(place(piece));

  end_ = placed.back().end;
  // Where each piece's samples give way to those of the pieces behind it. A short piece may vanish whole
  // below the priming of the next one.
  std::vector<std::int64_t> mediaEnds(placed.size(), placed.back().mediaEnd);
  for (std::size_t i = placed.size() - 1; i > 0; --i)
    mediaEnds[i - 1] = std::min(mediaEnds[i], placed[i].mediaStart);
  for (std::size_t i = 0; i < placed.size(); ++i)
    plan(placed[i], mediaEnds[i], i + 1 == placed.size());
  if (chunks_.empty())
    throw ContainerFailure(ContainerError::damaged);
  const std::int64_t mediaStart = chunks_.front().decodeTime;
  start_ = std::max(placed.front().start, mediaStart);
  presentationStart_ = start_ - mediaStart;
}

void JoinedTrack::chooseTimescale(const JoinTrack& track) {
  std::int32_t finest = model_.timescale;
  std::optional<std::int32_t> common = model_.timescale;
  for (const JoinPiece& piece : track.pieces) {
    finest = std::max(finest, piece.track->timescale);
    if (common && *common != piece.track->timescale)
      common = commonTimescale(*common, piece.track->timescale, maximumCommonTimescale);
  }
  timescale_ = common.value_or(finest);
}

std::int64_t JoinedTrack::rescaled(std::int64_t time, std::int32_t timescale) const {
  const MediaTime converted = MediaTime(time, timescale).convertedTo(timescale_);
  if (!converted.isNumeric())
    throw ContainerFailure(ContainerError::tooLarge);
  return converted.value();
}

std::int64_t JoinedTrack::decodeTime(const Placed& placed, std::size_t sample) const {
  const Track& source = *placed.piece->track;
  return placed.start +
         rescaled(source.samples[sample].decodeTime - source.presentationStart, source.timescale);
}

JoinedTrack::Placed JoinedTrack::place(const JoinPiece& piece) const {
  Placed placed;
  placed.piece = &piece;
  placed.start = rescaled(piece.start.value(), piece.start.timescale());
  const MediaTime end = piece.start + piece.duration;
  placed.end = rescaled(end.value(), end.timescale());
  const std::vector<Sample>& samples = piece.track->samples;
  if (samples.empty())
    throw ContainerFailure(ContainerError::damaged);
  const std::int32_t delay = std::max(samples.front().compositionOffset, 0);
  placed.mediaStart = decodeTime(placed, 0);
  placed.mediaEnd = placed.end - rescaled(delay, piece.track->timescale);
  if (placed.mediaStart >= placed.mediaEnd)
    throw ContainerFailure(ContainerError::damaged);
  const auto firstBeyond = std::partition_point(samples.begin(), samples.end(), [&](const Sample& sample) {
    return decodeTime(placed, static_cast<std::size_t>(&sample - samples.data())) < placed.mediaEnd;
  });
  placed.sampleCount = static_cast<std::size_t>(firstBeyond - samples.begin());
  return placed;
}

// Samples that begin at the media's end or later are left out.
std::size_t JoinedTrack::samplesBefore(const Placed& placed, std::int64_t mediaEnd) const {
  std::size_t count = placed.sampleCount;
  while (count > 0 && decodeTime(placed, count - 1) >= mediaEnd)
    --count;
  return count;
}

// Ahead of another piece, whose packets do not lie on the same grid, the last packet is the one with which
// the sound ends nearest to where it should.
std::size_t JoinedTrack::fittingSound(const Placed& placed, std::int64_t mediaEnd) {
  const Track& source = *placed.piece->track;
  const std::int64_t packet = rescaled(source.samples.front().duration, source.timescale);
  if (std::abs(soundEnd_ - placed.mediaStart) * 2 > packet)
    soundEnd_ = placed.mediaStart; // it begins the track or lies behind a pause
  const std::size_t available = samplesBefore(placed, mediaEnd);
  std::size_t count = 0;
  for (; count < available; ++count) {
    if (count > 0 && (mediaEnd - soundEnd_) * 2 < packet)
      break;
    soundEnd_ += packet;
  }
  return count;
}

void JoinedTrack::plan(const Placed& placed, std::int64_t mediaEnd, bool isLastPiece) {
  const Track& source = *placed.piece->track;
  const bool isFitted = source.kind == TrackKind::audio && !isLastPiece && !placed.piece->keepsPackets;
  const std::size_t count = isFitted ? fittingSound(placed, mediaEnd) : samplesBefore(placed, mediaEnd);
  std::int64_t time = placed.mediaStart;
  for (std::size_t i = 0; i < count; ++i) {
    const Sample& sample = source.samples[i];
    const std::int64_t next = i + 1 == count ? mediaEnd : decodeTime(placed, i + 1);
    const std::int64_t duration = next - time;
    if (duration > std::numeric_limits<std::uint32_t>::max())
      throw ContainerFailure(ContainerError::tooLarge);
    // From the two absolute times, so that the picture's time is exact too.
    const std::int64_t composition =
        placed.start +
        rescaled(sample.decodeTime + sample.compositionOffset - source.presentationStart, source.timescale);
    const std::int64_t offset = composition - time;
    if (offset != static_cast<std::int32_t>(offset))
      throw ContainerFailure(ContainerError::tooLarge);
    PlannedChunk& chunk =
        chunkFor(placed, i, time, descriptionIndex(source.descriptions.at(sample.description)));
    chunk.durations.push_back(static_cast<std::uint32_t>(duration));
    chunk.compositionOffsets.push_back(static_cast<std::int32_t>(offset));
    time = next;
  }
}

// The chunk under way with one sample more, or a new one after about a second.
PlannedChunk& JoinedTrack::chunkFor(const Placed& placed, std::size_t index, std::int64_t time,
                                    std::uint32_t description) {
  const Sample* const sample = &placed.piece->track->samples[index];
  if (!chunks_.empty()) {
    PlannedChunk& last = chunks_.back();
    const Sample* const end = last.samples.data() + last.samples.size();
    if (last.file == placed.piece->file && end == sample && last.description == description &&
        time - last.decodeTime < timescale_) {
      last.samples = {last.samples.data(), last.samples.size() + 1};
      return last;
    }
  }
  PlannedChunk chunk;
  chunk.file = placed.piece->file;
  chunk.decodeTime = time;
  chunk.description = description;
  chunk.samples = {sample, 1};
  return chunks_.emplace_back(std::move(chunk));
}

std::uint32_t JoinedTrack::descriptionIndex(const SampleDescription& description) {
  // Mostly the one used last.
  if (!chunks_.empty() && descriptions_[chunks_.back().description]->box == description.box)
    return chunks_.back().description;
  const auto found = std::find_if(descriptions_.begin(), descriptions_.end(),
                                  [&](const auto* known) { return known->box == description.box; });
  if (found == descriptions_.end())
    return static_cast<std::uint32_t>((descriptions_.push_back(&description), descriptions_.size() - 1));
  return static_cast<std::uint32_t>(found - descriptions_.begin());
}

TrackToWrite JoinedTrack::describe(const SampleTable& table) const {
  TrackToWrite written;
  written.kind = model_.kind;
  written.timescale = timescale_;
  written.width = descriptions_.front()->width;
  written.height = descriptions_.front()->height;
  written.matrix = model_.matrix;
  written.descriptions = descriptions_;
  written.samples = &table;
  written.start = start_;
  written.presentationStart = presentationStart_;
  written.presentationDuration = end_ - start_;
  return written;
}

// Copies ranges, those that lie side by side in both files as one.
class RangeCopier {
 public:
  using Progress = std::function<void(std::uint64_t copied)>;

  RangeCopier(OpenFile& output, std::uint64_t offset, Progress progress)
      : output_(output), start_(offset), end_(offset), progress_(std::move(progress)) {}

  std::uint64_t end() const { return end_; }
  void add(const OpenFile& file, std::uint64_t offset, std::uint32_t size) {
    constexpr std::uint64_t most = std::uint64_t{64} << 20; // so that progress can be told
    if (file_ != &file || offset_ + length_ != offset || length_ >= most) {
      flush();
      file_ = &file;
      offset_ = offset;
    }
    length_ += size;
    end_ += size;
  }
  void flush() {
    if (length_ == 0)
      return;
    output_.copyFrom(*file_, offset_, end_ - length_, length_);
    length_ = 0;
    progress_(end_ - start_);
  }

 private:
  OpenFile& output_;
  const OpenFile* file_ = nullptr;
  std::uint64_t offset_ = 0; // of the range in the source
  std::uint64_t length_ = 0;
  const std::uint64_t start_; // of the output
  std::uint64_t end_;
  const Progress progress_;
};

// The chunk that begins first among those not laid out yet.
std::optional<std::size_t> earliestTrack(const std::vector<JoinedTrack>& tracks,
                                         const std::vector<std::size_t>& next) {
  std::optional<std::size_t> earliest;
  MediaTime earliestTime;
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    if (next[i] == tracks[i].chunks().size())
      continue;
    const MediaTime time(tracks[i].chunks()[next[i]].decodeTime, tracks[i].timescale());
    if (!earliest || time < earliestTime) {
      earliest = i;
      earliestTime = time;
    }
  }
  return earliest;
}

// All tracks of the output with the place of everything in it.
class Layout {
 public:
  explicit Layout(const std::vector<JoinTrack>& tracks);

  std::uint64_t mediaBytes() const { return mediaBytes_; }
  // The media begin at the offset, which only grows.
  void moveTo(std::uint64_t offset);
  BoxWriter index() const;
  // Yields where the copies end.
  std::uint64_t copy(OpenFile& output, const RangeCopier::Progress& progress) const;

 private:
  std::vector<JoinedTrack> tracks_;
  std::vector<SampleTable> tables_;         // of the tracks
  std::vector<const PlannedChunk*> chunks_; // in the order of the file
  std::uint64_t mediaStart_ = 0;
  std::uint64_t mediaBytes_ = 0;
};

Layout::Layout(const std::vector<JoinTrack>& tracks) {
  tracks_.reserve(tracks.size());
  for (const JoinTrack& track : tracks)
    tracks_.emplace_back(track);
  tables_.resize(tracks_.size());
  std::vector<std::size_t> next(tracks_.size(), 0);
  while (const auto track = earliestTrack(tracks_, next)) {
    const PlannedChunk& chunk = tracks_[*track].chunks()[next[*track]++];
    SampleTable& table = tables_[*track];
    table.beginChunk(mediaBytes_, chunk.description);
    for (std::size_t i = 0; i < chunk.samples.size(); ++i) {
      const Sample& sample = chunk.samples[i];
      table.add(sample.size, chunk.durations[i], chunk.compositionOffsets[i], sample.isSync);
      mediaBytes_ += sample.size;
    }
    chunks_.push_back(&chunk);
  }
}

void Layout::moveTo(std::uint64_t offset) {
  for (SampleTable& table : tables_)
    table.moveChunks(offset - mediaStart_);
  mediaStart_ = offset;
}

BoxWriter Layout::index() const {
  std::vector<TrackToWrite> written;
  written.reserve(tracks_.size());
  for (std::size_t i = 0; i < tracks_.size(); ++i)
    written.push_back(tracks_[i].describe(tables_[i]));
  BoxWriter box;
  writeMovieBox(box, MovieForm::ordinary, written);
  return box;
}

std::uint64_t Layout::copy(OpenFile& output, const RangeCopier::Progress& progress) const {
  RangeCopier copier(output, mediaStart_, progress);
  for (const PlannedChunk* chunk : chunks_) {
    for (const Sample& sample : chunk->samples)
      copier.add(*chunk->file, sample.offset, sample.size);
  }
  copier.flush();
  return copier.end();
}

// Where the index lies ahead of the media its size tells their offsets, which may in turn make it larger.
BoxWriter indexAhead(Layout& layout, std::uint64_t headBytes) {
  std::uint64_t start = headBytes;
  for (;;) {
    layout.moveTo(start);
    BoxWriter index = layout.index();
    if (headBytes + index.size() == start)
      return index;
    start = headBytes + index.size();
  }
}

} // namespace

void writeJoinedMovie(OpenFile& output, const std::vector<JoinTrack>& tracks, const std::string& brand,
                      const JoinOptions& options) {
  constexpr std::size_t mediaHeaderBytes = 16;
  if (tracks.empty() || brand.size() != 4)
    throw ContainerFailure(ContainerError::unsupported);
  Layout layout(tracks);
  BoxWriter head;
  writeFileType(head, brand);
  if (options.index == IndexPlace::first)
    head.append(indexAhead(layout, head.size() + mediaHeaderBytes).bytes());
  else
    layout.moveTo(head.size() + mediaHeaderBytes);
  writeWideMediaHeader(head, layout.mediaBytes());
  output.write(0, head.bytes());

  const std::uint64_t end = layout.copy(output, [&](std::uint64_t copied) {
    if (options.progress)
      options.progress(copied, layout.mediaBytes());
  });
  if (options.index == IndexPlace::last)
    output.write(end, layout.index().bytes());
  output.sync();
}

} // namespace tessarin::container
