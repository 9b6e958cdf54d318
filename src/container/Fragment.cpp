#include "container/Fragment.hpp"

#include <algorithm>
#include <utility>

namespace tessarin::container {

namespace {

constexpr std::size_t mediaHeaderSize = 8;

// Yields where the offset of the data is to be filled in.
std::size_t writeRun(BoxWriter& writer, const FragmentChunk& chunk) {
  constexpr std::uint32_t dataOffset = 0x1, durations = 0x100, sizes = 0x200, sampleFlags = 0x400,
                          compositionOffsets = 0x800;
  constexpr std::uint32_t syncFlags = 0x02000000;    // depends on no other
  constexpr std::uint32_t notSyncFlags = 0x01010000; // depends on others
  const bool hasOffsets = std::any_of(chunk.samples.begin(), chunk.samples.end(),
                                      [](const FragmentSample& s) { return s.compositionOffset != 0; });
  const std::uint32_t flags =
      dataOffset | durations | sizes | sampleFlags | (hasOffsets ? compositionOffsets : 0);
  std::size_t offsetPosition = 0;
  writer.fullBox(fourCC("trun"), 1, flags, [&] {
    writer.u32(static_cast<std::uint32_t>(chunk.samples.size()));
    offsetPosition = writer.size();
    writer.u32(0);
    for (const FragmentSample& sample : chunk.samples) {
      writer.u32(sample.duration);
      writer.u32(sample.size);
      writer.u32(sample.isSync ? syncFlags : notSyncFlags);
      if (hasOffsets)
        writer.i32(sample.compositionOffset);
    }
  });
  return offsetPosition;
}

} // namespace

void Fragment::add(FragmentChunk chunk, std::span<const std::byte> data) {
  if (chunk.samples.empty())
    return;
  chunk.dataOffset = dataSize();
  body_.insert(body_.end(), data.begin(), data.end());
  chunks_.push_back(std::move(chunk));
}

Fragment::Bytes Fragment::assemble(std::uint32_t sequenceNumber) {
  BoxWriter writer;
  std::size_t trackCount = 0;
  for (const FragmentChunk& chunk : chunks_)
    trackCount = std::max(trackCount, chunk.track + 1);
  std::vector<std::pair<std::size_t, const FragmentChunk*>> offsets;
  writer.box(fourCC("moof"), [&] {
    writer.fullBox(fourCC("mfhd"), 0, 0, [&] { writer.u32(sequenceNumber); });
    for (std::size_t track = 0; track < trackCount; ++track) {
      const auto isOfTrack = [&](const FragmentChunk& chunk) { return chunk.track == track; };
      const auto first = std::find_if(chunks_.begin(), chunks_.end(), isOfTrack);
      if (first == chunks_.end())
        continue;
      writer.box(fourCC("traf"), [&] {
        constexpr std::uint32_t baseIsFragment = 0x20000;
        writer.fullBox(fourCC("tfhd"), 0, baseIsFragment,
                       [&] { writer.u32(static_cast<std::uint32_t>(track + 1)); });
        writer.fullBox(fourCC("tfdt"), 1, 0,
                       [&] { writer.u64(static_cast<std::uint64_t>(first->decodeTime)); });
        for (const FragmentChunk& chunk : chunks_) {
          if (isOfTrack(chunk))
            offsets.emplace_back(writeRun(writer, chunk), &chunk);
        }
      });
    }
  });
  const std::uint64_t dataStart = writer.size() + mediaHeaderSize;
  for (const auto& [position, chunk] : offsets)
    writer.setU32(position, static_cast<std::uint32_t>(dataStart + chunk->dataOffset));
  writer.u32(static_cast<std::uint32_t>(mediaHeaderSize + dataSize()));
  writer.code(fourCC("mdat"));

  if (writer.size() > headroom_) {
    // The next fragment will be about as large.
    const std::size_t room = writer.size() + writer.size() / 4 - headroom_;
    body_.insert(body_.begin(), room, std::byte{0});
    headroom_ += room;
  }
  const std::size_t start = headroom_ - writer.size();
  std::copy(writer.bytes().begin(), writer.bytes().end(), body_.begin() + static_cast<std::ptrdiff_t>(start));
  return {std::span<const std::byte>(body_).subspan(start), dataStart};
}

void Fragment::clear() {
  body_.resize(headroom_);
  chunks_.clear();
}

} // namespace tessarin::container
