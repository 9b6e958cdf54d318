#include "container/FragmentedMovieWriter.hpp"

#include "container/Fragment.hpp"
#include "container/MovieBoxWriter.hpp"
#include "container/MovieIndex.hpp"

#include <algorithm>
#include <limits>
#include <optional>
#include <utility>

namespace tessarin::container {

namespace {

constexpr std::uint64_t maximumFragmentBytes = std::uint64_t{128} << 20;
constexpr std::uint64_t reservedBytes = 16; // of `free`, the size of the wide media header

// The last sample of a track, whose duration is not known yet.
struct HeldSample {
  std::vector<std::byte> data;
  std::int64_t decodeTime = 0;
  std::int32_t compositionOffset = 0;
  bool isSync = false;
};

struct GrowingTrack {
  TrackSetup setup;
  std::optional<SampleDescription> description;
  std::int64_t firstDecodeTime = 0;
  std::optional<HeldSample> held;
  // Samples whose durations are known, not yet in the fragment.
  FragmentChunk open;
  std::vector<std::byte> openData;
  SampleTable table; // of what the file holds
};

[[noreturn]] void failUnsupported() {
  throw ContainerFailure(ContainerError::unsupported);
}

void writeReservedBox(BoxWriter& writer) {
  writer.box(fourCC("free"), [&] { writer.zeros(reservedBytes - 8); });
}

// All but what the samples decide.
TrackToWrite describe(const GrowingTrack& track) {
  TrackToWrite written;
  written.kind = track.setup.kind;
  written.timescale = track.setup.timescale;
  written.width = track.setup.width;
  written.height = track.setup.height;
  written.descriptions = {&*track.description};
  return written;
}

} // namespace

struct FragmentedMovieWriter::State {
  State(OpenFile& fileIn, const std::vector<TrackSetup>& setups, std::string brandIn);

  // Runs work on the file; once it has failed, it stays failed.
  template<class Work> void onFile(Work work);
  void requireOpen() const;
  GrowingTrack& at(std::size_t track);
  void releaseHeld(std::size_t track, std::int64_t nextDecodeTime);
  void closeChunk(GrowingTrack& track);
  void requireDescriptions() const;
  void writeAtEnd(std::span<const std::byte> bytes);
  void writeFragment();
  void writeHead();
  void closeMediaBox();
  std::vector<std::byte> ordinaryMovieBox() const;

  OpenFile& file;
  const std::string brand;
  std::vector<GrowingTrack> tracks;
  Fragment fragment;
  std::uint32_t fragmentCount = 0;
  std::uint64_t reservedOffset = 0; // of the 16 bytes
  std::uint64_t fileEnd = 0;        // 0 until the head is written
  std::optional<FileFailure> failure;
  bool isFinished = false;
};

FragmentedMovieWriter::State::State(OpenFile& fileIn, const std::vector<TrackSetup>& setups,
                                    std::string brandIn)
    : file(fileIn), brand(std::move(brandIn)) {
  if (setups.empty() || brand.size() != 4)
    failUnsupported();
  for (const TrackSetup& setup : setups) {
    if (setup.kind == TrackKind::other || setup.timescale <= 0 || setup.presentationStart < 0)
      failUnsupported();
    tracks.emplace_back().setup = setup;
    tracks.back().open.track = tracks.size() - 1;
  }
}

template<class Work> void FragmentedMovieWriter::State::onFile(Work work) {
  try {
    work();
  } catch (const FileFailure& fileFailure) {
    failure = fileFailure;
    throw;
  }
}

void FragmentedMovieWriter::State::requireOpen() const {
  if (failure)
    throw FileFailure(*failure);
  if (isFinished)
    failUnsupported();
}

GrowingTrack& FragmentedMovieWriter::State::at(std::size_t track) {
  requireOpen();
  if (track >= tracks.size())
    failUnsupported();
  return tracks[track];
}

// Gives the held sample its duration and adds it to the chunk under way, which ends after about a second.
void FragmentedMovieWriter::State::releaseHeld(std::size_t index, std::int64_t nextDecodeTime) {
  GrowingTrack& track = tracks[index];
  HeldSample& held = *track.held;
  if (!track.open.samples.empty() && held.decodeTime - track.open.decodeTime >= track.setup.timescale)
    closeChunk(track);
  if (track.open.samples.empty())
    track.open.decodeTime = held.decodeTime;
  track.open.samples.push_back({static_cast<std::uint32_t>(held.data.size()),
                                static_cast<std::uint32_t>(nextDecodeTime - held.decodeTime),
                                held.compositionOffset, held.isSync});
  track.openData.insert(track.openData.end(), held.data.begin(), held.data.end());
}

void FragmentedMovieWriter::State::closeChunk(GrowingTrack& track) {
  FragmentChunk next;
  next.track = track.open.track;
  fragment.add(std::exchange(track.open, std::move(next)), track.openData);
  track.openData.clear();
}

void FragmentedMovieWriter::State::requireDescriptions() const {
  for (const GrowingTrack& track : tracks) {
    if (!track.description)
      failUnsupported();
  }
}

// What a failed write has left behind is cut off: players refuse a file that ends within an index.
void FragmentedMovieWriter::State::writeAtEnd(std::span<const std::byte> bytes) {
  try {
    file.write(fileEnd, bytes);
  } catch (const FileFailure&) {
    try {
      file.truncate(fileEnd);
    } catch (const FileFailure&) {
      // The write's failure is the one to report; readMovie passes over a torn end.
    }
    throw;
  }
}

// The file type, the bytes kept for the finish and the index of the fragmented form.
void FragmentedMovieWriter::State::writeHead() {
  BoxWriter head;
  writeFileType(head, brand);
  reservedOffset = head.size();
  writeReservedBox(head);
  std::vector<TrackToWrite> described;
  for (const GrowingTrack& track : tracks) {
    described.push_back(describe(track));
    described.back().presentationStart = track.setup.presentationStart;
  }
  writeMovieBox(head, MovieForm::fragmented, described);
  writeAtEnd(head.bytes());
  fileEnd = head.size();
}

// Makes the fragments the content of one box of media. A head that was written in part would hide them all,
// so that a failure puts back what stood there.
void FragmentedMovieWriter::State::closeMediaBox() {
  BoxWriter header;
  writeWideMediaHeader(header, fileEnd - reservedOffset - reservedBytes);
  try {
    file.write(reservedOffset, header.bytes());
  } catch (const FileFailure&) {
    BoxWriter reserved;
    writeReservedBox(reserved);
    try {
      file.write(reservedOffset, reserved.bytes());
    } catch (const FileFailure&) {
      // The first failure is the one to report.
    }
    throw;
  }
}

// Writes what was gathered as one fragment, without making it durable.
void FragmentedMovieWriter::State::writeFragment() {
  for (GrowingTrack& track : tracks)
    closeChunk(track);
  if (fileEnd == 0)
    writeHead();
  if (fragment.isEmpty())
    return;
  const auto [bytes, dataStart] = fragment.assemble(++fragmentCount);
  writeAtEnd(bytes);
  for (const FragmentChunk& chunk : fragment.chunks()) {
    GrowingTrack& track = tracks[chunk.track];
    if (track.table.sampleCount() == 0)
      track.firstDecodeTime = chunk.decodeTime;
    track.table.beginChunk(fileEnd + dataStart + chunk.dataOffset, 0);
    for (const FragmentSample& sample : chunk.samples)
      track.table.add(sample.size, sample.duration, sample.compositionOffset, sample.isSync);
  }
  fileEnd += bytes.size();
  fragment.clear();
}

// The tables count from the first sample's decode time: what is presented ahead of it becomes a pause.
std::vector<std::byte> FragmentedMovieWriter::State::ordinaryMovieBox() const {
  std::vector<TrackToWrite> tracksToWrite;
  for (const GrowingTrack& track : tracks) {
    const std::int64_t before = track.firstDecodeTime - track.setup.presentationStart;
    const std::int64_t length = track.table.presentationEnd();
    TrackToWrite next = describe(track);
    next.samples = &track.table;
    if (length > 0) {
      next.start = std::max<std::int64_t>(before, 0);
      next.presentationStart = std::min(std::max<std::int64_t>(-before, 0), length);
      next.presentationDuration = length - next.presentationStart;
    }
    tracksToWrite.push_back(std::move(next));
  }
  BoxWriter writer;
  writeMovieBox(writer, MovieForm::ordinary, tracksToWrite);
  return writer.bytes();
}

FragmentedMovieWriter::FragmentedMovieWriter(OpenFile& file, const std::vector<TrackSetup>& tracks,
                                             std::string brand)
    : state_(std::make_unique<State>(file, tracks, std::move(brand))) {}

FragmentedMovieWriter::~FragmentedMovieWriter() = default;

void FragmentedMovieWriter::setDescription(std::size_t track, SampleDescription description) {
  GrowingTrack& target = state_->at(track);
  if (state_->fileEnd != 0 || description.box.size() < 16)
    failUnsupported();
  target.description = std::move(description);
}

void FragmentedMovieWriter::append(std::size_t index, std::span<const std::byte> data,
                                   std::int64_t decodeTime, std::int32_t compositionOffset, bool isSync) {
  GrowingTrack& track = state_->at(index);
  const std::int64_t last = track.held ? track.held->decodeTime : -1;
  if (decodeTime <= last || decodeTime >= maximumDecodeTime)
    failDamaged();
  if (data.size() > maximumFragmentBytes ||
      (track.held && decodeTime - last > std::numeric_limits<std::uint32_t>::max()))
    throw ContainerFailure(ContainerError::tooLarge);
  if (track.held)
    state_->releaseHeld(index, decodeTime);
  else
    track.held.emplace();
  HeldSample& held = *track.held;
  held.data.assign(data.begin(), data.end());
  held.decodeTime = decodeTime;
  held.compositionOffset = compositionOffset;
  held.isSync = isSync;

  std::uint64_t gathered = state_->fragment.dataSize();
  for (const GrowingTrack& each : state_->tracks)
    gathered += each.openData.size();
  if (gathered > maximumFragmentBytes)
    flushFragment();
}

void FragmentedMovieWriter::flushFragment() {
  state_->requireOpen();
  const bool isEmpty = state_->fragment.isEmpty() &&
                       std::all_of(state_->tracks.begin(), state_->tracks.end(),
                                   [](const GrowingTrack& track) { return track.open.samples.empty(); });
  if (isEmpty)
    return;
  state_->requireDescriptions();
  state_->onFile([&] {
    state_->writeFragment();
    state_->file.sync();
  });
}

void FragmentedMovieWriter::finish(std::span<const std::int64_t> endTimes) {
  State& state = *state_;
  state.requireOpen();
  if (endTimes.size() != state.tracks.size())
    failUnsupported();
  state.requireDescriptions();
  for (std::size_t i = 0; i < endTimes.size(); ++i) {
    GrowingTrack& track = state.tracks[i];
    if (track.held && endTimes[i] - track.held->decodeTime > std::numeric_limits<std::uint32_t>::max())
      throw ContainerFailure(ContainerError::tooLarge);
  }
  for (std::size_t i = 0; i < endTimes.size(); ++i) {
    GrowingTrack& track = state.tracks[i];
    if (track.held)
      state.releaseHeld(i, std::max(endTimes[i], track.held->decodeTime + 1));
    track.held.reset();
  }
  state.onFile([&] {
    state.writeFragment();
    state.writeAtEnd(state.ordinaryMovieBox());
    state.file.sync();
    state.closeMediaBox();
    state.file.sync();
  });
  state.isFinished = true;
}

} // namespace tessarin::container
