#include "container/MovieBoxWriter.hpp"

#include <algorithm>

namespace tessarin::container {

void SampleTable::beginChunk(std::uint64_t offset, std::uint32_t description) {
  chunks_.push_back({offset, 0, description});
}

void SampleTable::add(std::uint32_t size, std::uint32_t duration, std::int32_t compositionOffset,
                      bool isSync) {
  sizes_.push_back(size);
  addToRuns(durations_, duration);
  addToRuns(compositionOffsets_, static_cast<std::uint32_t>(compositionOffset));
  if (isSync)
    syncSamples_.push_back(static_cast<std::uint32_t>(sizes_.size()));
  ++chunks_.back().sampleCount;
  duration_ += duration;
  presentationEnd_ = std::max(presentationEnd_, static_cast<std::int64_t>(duration_) + compositionOffset);
}

void SampleTable::moveChunks(std::uint64_t by) {
  for (Chunk& chunk : chunks_)
    chunk.offset += by;
}

void SampleTable::addToRuns(std::vector<Run>& runs, std::uint32_t value) {
  if (runs.empty() || runs.back().value != value)
    runs.push_back({0, value});
  ++runs.back().count;
}

void SampleTable::writeRuns(BoxWriter& writer, FourCC type, std::uint8_t version,
                            const std::vector<Run>& runs) {
  writer.fullBox(type, version, 0, [&] {
    writer.u32(static_cast<std::uint32_t>(runs.size()));
    for (const Run& run : runs) {
      writer.u32(run.count);
      writer.u32(run.value);
    }
  });
}

void SampleTable::writeChunks(BoxWriter& writer) const {
  struct ChunkRun {
    std::uint32_t first = 0;
    std::uint32_t sampleCount = 0;
    std::uint32_t description = 0;
  };
  std::vector<ChunkRun> runs;
  bool isWide = false;
  for (std::size_t i = 0; i < chunks_.size(); ++i) {
    const Chunk& chunk = chunks_[i];
    isWide = isWide || chunk.offset > UINT32_MAX;
    if (runs.empty() || runs.back().sampleCount != chunk.sampleCount ||
        runs.back().description != chunk.description)
      runs.push_back({static_cast<std::uint32_t>(i + 1), chunk.sampleCount, chunk.description});
  }
  writer.fullBox(fourCC("stsc"), 0, 0, [&] {
    writer.u32(static_cast<std::uint32_t>(runs.size()));
    for (const ChunkRun& run : runs) {
      writer.u32(run.first);
      writer.u32(run.sampleCount);
      writer.u32(run.description + 1);
    }
  });
  writer.fullBox(fourCC("stsz"), 0, 0, [&] {
    writer.u32(0);
    writer.u32(static_cast<std::uint32_t>(sizes_.size()));
    for (const std::uint32_t size : sizes_)
      writer.u32(size);
  });
  writer.fullBox(isWide ? fourCC("co64") : fourCC("stco"), 0, 0, [&] {
    writer.u32(static_cast<std::uint32_t>(chunks_.size()));
    for (const Chunk& chunk : chunks_) {
      if (isWide)
        writer.u64(chunk.offset);
      else
        writer.u32(static_cast<std::uint32_t>(chunk.offset));
    }
  });
}

void SampleTable::write(BoxWriter& writer) const {
  writeRuns(writer, fourCC("stts"), 0, durations_);
  const bool hasOffsets = std::any_of(compositionOffsets_.begin(), compositionOffsets_.end(),
                                      [](const Run& run) { return run.value != 0; });
  if (hasOffsets) {
    const bool hasNegative =
        std::any_of(compositionOffsets_.begin(), compositionOffsets_.end(),
                    [](const Run& run) { return static_cast<std::int32_t>(run.value) < 0; });
    writeRuns(writer, fourCC("ctts"), hasNegative ? 1 : 0, compositionOffsets_);
  }
  if (syncSamples_.size() != sizes_.size()) {
    writer.fullBox(fourCC("stss"), 0, 0, [&] {
      writer.u32(static_cast<std::uint32_t>(syncSamples_.size()));
      for (const std::uint32_t number : syncSamples_)
        writer.u32(number);
    });
  }
  writeChunks(writer);
}

} // namespace tessarin::container
