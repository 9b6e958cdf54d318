#include "container/MovieIndex.hpp"

#include <limits>

namespace tessarin::container {

namespace {

constexpr std::uint32_t maximumDescriptions = 1024;

std::string text(FourCC code) {
  std::string characters;
  for (int shift = 24; shift >= 0; shift -= 8)
    characters += static_cast<char>(code >> shift & 0xff);
  return characters;
}

void readSizes(const BoxList& table, std::vector<Sample>& samples, SampleBudget& budget) {
  if (const Box* box = table.find(fourCC("stsz"))) {
    ByteCursor cursor(box->content);
    readVersionAndFlags(cursor, 0);
    const std::uint32_t size = cursor.u32();
    const std::uint32_t count = cursor.u32();
    budget.takeSamples(count);
    if (count == 0)
      return;
    if (size != 0) {
      budget.takeBytes(count, size);
      samples.assign(count, Sample{.size = size});
      return;
    }
    ByteCursor sizes(cursor.take(std::size_t{count} * 4));
    samples.resize(count);
    for (Sample& sample : samples) {
      sample.size = sizes.u32();
      budget.takeBytes(sample.size);
    }
    return;
  }
  ByteCursor cursor = table.requireContent(fourCC("stz2"));
  readVersionAndFlags(cursor, 0);
  const std::uint32_t bits = cursor.u32() & 0xff;
  const std::uint32_t count = cursor.u32();
  if (bits != 4 && bits != 8 && bits != 16)
    failDamaged();
  budget.takeSamples(count);
  ByteCursor sizes(cursor.take((std::size_t{count} * bits + 7) / 8));
  samples.resize(count);
  std::uint32_t pair = 0;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    if (bits == 4) {
      pair = i % 2 == 0 ? sizes.u8() : pair << 4;
      samples[i].size = pair >> 4 & 0xf;
    } else {
      samples[i].size = bits == 8 ? sizes.u8() : sizes.u16();
    }
    budget.takeBytes(samples[i].size);
  }
}

// Walks over a table of runs, which must tell as much as there are samples.
template<class Apply> void forEachRun(ByteCursor cursor, std::size_t sampleCount, Apply apply) {
  const std::uint32_t count = cursor.u32();
  ByteCursor entries(cursor.take(std::size_t{count} * 8));
  std::size_t sample = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint32_t length = entries.u32();
    const std::uint32_t value = entries.u32();
    if (length > sampleCount - sample)
      failDamaged();
    for (const std::size_t end = sample + length; sample < end; ++sample)
      apply(sample, value);
  }
  if (sample != sampleCount)
    failDamaged();
}

void readTimes(const BoxList& table, TrackIndex& index) {
  std::vector<Sample>& samples = index.track.samples;
  ByteCursor durations = table.requireContent(fourCC("stts"));
  readVersionAndFlags(durations, 0);
  std::int64_t time = 0;
  // At most 20 million times 2^32: far below the greatest decode time.
  forEachRun(durations, samples.size(), [&](std::size_t i, std::uint32_t duration) {
    samples[i].decodeTime = time;
    samples[i].duration = duration;
    time += duration;
  });
  if (time >= maximumDecodeTime)
    throw ContainerFailure(ContainerError::tooLarge);
  index.endTime = time;

  if (const Box* box = table.find(fourCC("ctts"))) {
    ByteCursor offsets(box->content);
    const auto head = readVersionAndFlags(offsets, 1);
    forEachRun(offsets, samples.size(), [&](std::size_t i, std::uint32_t offset) {
      if (head.version == 0 && offset > std::uint32_t{std::numeric_limits<std::int32_t>::max()})
        failDamaged();
      samples[i].compositionOffset = static_cast<std::int32_t>(offset);
    });
  }
}

void readSyncSamples(const BoxList& table, std::vector<Sample>& samples) {
  const Box* box = table.find(fourCC("stss"));
  if (box == nullptr) {
    for (Sample& sample : samples)
      sample.isSync = true;
    return;
  }
  ByteCursor cursor(box->content);
  readVersionAndFlags(cursor, 0);
  const std::uint32_t count = cursor.u32();
  ByteCursor numbers(cursor.take(std::size_t{count} * 4));
  std::uint32_t last = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint32_t number = numbers.u32();
    if (number <= last || number > samples.size())
      failDamaged();
    samples[number - 1].isSync = true;
    last = number;
  }
}

// Reads the chunk offsets one after another, in either width.
class ChunkOffsets {
 public:
  explicit ChunkOffsets(const BoxList& table) : wide_(table.find(fourCC("stco")) == nullptr) {
    ByteCursor cursor = table.requireContent(wide_ ? fourCC("co64") : fourCC("stco"));
    readVersionAndFlags(cursor, 0);
    count_ = cursor.u32();
    offsets_ = ByteCursor(cursor.take(std::size_t{count_} * (wide_ ? 8 : 4)));
  }
  std::uint32_t count() const { return count_; }
  std::uint64_t next() { return wide_ ? offsets_.u64() : offsets_.u32(); }

 private:
  bool wide_;
  std::uint32_t count_ = 0;
  ByteCursor offsets_{std::span<const std::byte>{}};
};

// The samples must fill the chunks exactly.
void readChunks(const BoxList& table, Track& track) {
  ChunkOffsets offsets(table);
  ByteCursor cursor = table.requireContent(fourCC("stsc"));
  readVersionAndFlags(cursor, 0);
  const std::uint32_t runCount = cursor.u32();
  ByteCursor runs(cursor.take(std::size_t{runCount} * 12));
  auto sample = track.samples.begin();
  std::uint32_t nextFirst = runCount > 0 ? runs.u32() : 0;
  if (runCount > 0 ? nextFirst != 1 : offsets.count() > 0)
    failDamaged();
  for (std::uint32_t run = 0; run < runCount; ++run) {
    const std::uint32_t first = nextFirst;
    const std::uint32_t length = runs.u32();
    const std::uint32_t description = runs.u32();
    const bool isLast = run + 1 == runCount;
    nextFirst = isLast ? offsets.count() + 1 : runs.u32();
    if (nextFirst < first || nextFirst - 1 > offsets.count() || (!isLast && nextFirst == first) ||
        description == 0 || description > track.descriptions.size())
      failDamaged();
    for (std::uint32_t chunk = first; chunk < nextFirst; ++chunk) {
      std::uint64_t offset = offsets.next();
      if (length > static_cast<std::size_t>(track.samples.end() - sample) || offset > std::uint64_t{1} << 62)
        failDamaged();
      for (const auto end = sample + length; sample != end; ++sample) {
        sample->offset = offset;
        sample->description = static_cast<std::uint16_t>(description - 1);
        offset += sample->size;
      }
    }
  }
  if (sample != track.samples.end())
    failDamaged();
}

SampleDescription readDescription(const Box& box, TrackKind kind) {
  SampleDescription description;
  description.codec = text(box.type);
  description.box.assign(box.whole.begin(), box.whole.end());
  ByteCursor cursor(box.content);
  cursor.skip(8); // reserved, data reference
  if (kind == TrackKind::video) {
    cursor.skip(16);
    description.width = cursor.u16();
    description.height = cursor.u16();
    cursor.skip(50); // resolutions, compressor name, depth
  } else if (kind == TrackKind::audio) {
    cursor.skip(8);
    description.channelCount = cursor.u16();
    cursor.skip(6);
    description.sampleRate = cursor.u32() / 65536.0;
  }
  return description;
}

} // namespace

std::vector<SampleDescription> readDescriptions(std::span<const std::byte> content, TrackKind kind) {
  ByteCursor cursor(content);
  readVersionAndFlags(cursor, 1);
  const std::uint32_t count = cursor.u32();
  if (count > maximumDescriptions)
    throw ContainerFailure(ContainerError::tooLarge);
  const BoxList boxes(cursor.take(cursor.remaining()));
  if (count == 0 || boxes.all().size() != count)
    failDamaged();
  std::vector<SampleDescription> descriptions;
  for (const Box& box : boxes.all())
    descriptions.push_back(readDescription(box, kind));
  return descriptions;
}

void readSampleTable(const BoxList& table, TrackIndex& index, SampleBudget& budget) {
  readSizes(table, index.track.samples, budget);
  readTimes(table, index);
  readSyncSamples(table, index.track.samples);
  readChunks(table, index.track);
}

} // namespace tessarin::container
