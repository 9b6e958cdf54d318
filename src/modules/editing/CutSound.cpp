#include "modules/editing/CutSound.hpp"

#include "modules/editing/SampleEntries.hpp"
#include "modules/media/AudioSequencer.hpp"

#include <algorithm>
#include <cstdlib>

namespace tessarin::editing {

namespace {

constexpr std::int32_t rate = 48000;
constexpr std::int64_t framesPerMs = 48;
constexpr auto packetFrames = static_cast<std::int64_t>(media::framesPerPacket);
// A packet is heard over two packets' lengths.
constexpr std::int64_t windowFrames = 2 * packetFrames;
constexpr std::size_t channels = 2;
// Packets' lengths that the coder hears before the first packet that is kept, so that it has found its way.
constexpr std::int64_t settlingPackets = 4;

std::int64_t packetsIn(std::int64_t frames) {
  return (frames + packetFrames - 1) / packetFrames;
}

// Whether the descriptions tell decoders the same.
bool isAlike(const container::SampleDescription& a, const container::SampleDescription& b) {
  // What follows the first two bytes of a plain configuration tells of extensions that are not there.
  constexpr std::size_t plainBytes = 2;
  const SampleEntry first = readSampleEntry(a, container::TrackKind::audio);
  const SampleEntry second = readSampleEntry(b, container::TrackKind::audio);
  return first.subtype == "aac " && second.subtype == "aac " && first.configuration.size() >= plainBytes &&
         second.configuration.size() >= plainBytes &&
         std::equal(first.configuration.begin(), first.configuration.begin() + plainBytes,
                    second.configuration.begin());
}

} // namespace

CutSound::CutSound(const SourceFile& file, const container::Track& track, const std::vector<CutClip>& clips,
                   CutStore& store)
    : file_(file), track_(track), clips_(clips), store_(store), sound_(file, track, clips) {
  if (!canCopy())
    return;
  plans_.reserve(clips.size());
  for (std::size_t i = 0; i < clips.size(); ++i)
    plans_.push_back(planned(clips[i], i == 0, i + 1 == clips.size()));
  fit();
}

bool CutSound::canCopy() const {
  if (track_.timescale != rate)
    return false;
  const auto coder = media::makeAacCoder(AudioSettings{});
  return std::all_of(track_.descriptions.begin(), track_.descriptions.end(),
                     [&](const auto& description) { return isAlike(description, coder->description()); });
}

CutSound::Plan CutSound::planned(const CutClip& clip, bool isFirst, bool isLast) const {
  Plan plan;
  plan.start = mediaTimeOf(track_, clip.sourceStart * framesPerMs);
  plan.end = mediaTimeOf(track_, clip.sourceEnd * framesPerMs);
  plan.shift = clip.outputStart * framesPerMs - plan.start;
  // What the source itself does not present is in no packet that is copied.
  const std::int64_t presented = track_.presentationStart;
  const std::int64_t presentedEnd = presented + track_.presentationDuration;
  const bool hasBeginning = isFirst && plan.start <= presented;
  const bool hasEnd = isLast && plan.end >= presentedEnd;
  const auto& samples = track_.samples;
  const auto at = [&](std::int64_t time) {
    return static_cast<std::size_t>(std::upper_bound(samples.begin(), samples.end(), time,
                                                     [](std::int64_t wanted, const container::Sample& each) {
                                                       return wanted < each.decodeTime;
                                                     }) -
                                    samples.begin());
  };
  plan.copied = hasBeginning ? 0 : at(std::max(plan.start, presented));
  plan.behind = at(hasEnd ? presentedEnd - 1 : std::min(plan.end, presentedEnd) - windowFrames);
  // Too little, or nothing of it is heard.
  if (plan.copied >= plan.behind || samples[plan.copied].decodeTime >= plan.end ||
      samples[plan.behind - 1].decodeTime + packetFrames <= plan.start) {
    planWithoutCopies(plan);
    return plan;
  }
  if (!hasBeginning) {
    // One more than what is heard, for the first one is heard only together with the one before it.
    const std::int64_t time = samples[plan.copied].decodeTime;
    plan.headCount = packetsIn(time - plan.start) + 1;
    plan.headTime = time - plan.headCount * packetFrames;
  }
  if (!hasEnd) {
    plan.tailTime = samples[plan.behind - 1].decodeTime + packetFrames;
    plan.tailCount = packetsIn(plan.end - plan.tailTime);
  }
  return plan;
}

void CutSound::planWithoutCopies(Plan& plan) const {
  plan.copied = 0;
  plan.behind = 0;
  plan.headTime = plan.start - packetFrames;
  plan.headCount = packetsIn(plan.end - plan.start) + 1;
}

std::int64_t CutSound::firstTime(const Plan& plan) const {
  return plan.headCount > 0 ? plan.headTime : track_.samples[plan.copied].decodeTime;
}

std::int64_t CutSound::packets(const Plan& plan) const {
  return plan.headCount + static_cast<std::int64_t>(plan.behind - plan.copied) + plan.tailCount;
}

std::int64_t CutSound::timeOf(const Plan& plan, std::int64_t packet) const {
  if (packet < plan.headCount)
    return plan.headTime + packet * packetFrames;
  packet -= plan.headCount;
  const auto copies = static_cast<std::int64_t>(plan.behind - plan.copied);
  if (packet < copies)
    return track_.samples[plan.copied + static_cast<std::size_t>(packet)].decodeTime;
  return plan.tailTime + (packet - copies) * packetFrames;
}

// Leaves out what lies behind the first ones.
void CutSound::keep(Plan& plan, std::int64_t count) const {
  plan.headCount = std::min(plan.headCount, count);
  count -= plan.headCount;
  plan.behind = std::min(plan.behind, plan.copied + static_cast<std::size_t>(count));
  count -= static_cast<std::int64_t>(plan.behind - plan.copied);
  plan.tailCount = std::min(plan.tailCount, count);
}

// The packets of a clip end with the one that ends nearest to where those of the next clip begin, counted as
// they are in a row.
void CutSound::fit() {
  std::int64_t rowEnd = 0; // of the output
  for (std::size_t i = 0; i + 1 < plans_.size(); ++i) {
    Plan& plan = plans_[i];
    const std::int64_t begin = firstTime(plan) + plan.shift;
    const std::int64_t next = firstTime(plans_[i + 1]) + plans_[i + 1].shift;
    if (i == 0 || 2 * std::abs(rowEnd - begin) > packetFrames)
      rowEnd = begin;
    std::int64_t count = 0;
    while (count < packets(plan) && timeOf(plan, count) + plan.shift < next &&
           2 * (next - rowEnd) >= packetFrames) {
      rowEnd += packetFrames;
      ++count;
    }
    keep(plan, count);
  }
}

container::JoinTrack CutSound::make(const std::function<void()>& checkpoint) {
  if (plans_.empty())
    return makeWhole(checkpoint);
  container::JoinTrack joined;
  for (const Plan& plan : plans_) {
    const bool hasCopies = plan.copied < plan.behind;
    const std::int64_t copiesTime = hasCopies ? track_.samples[plan.copied].decodeTime : plan.end;
    addCoded(joined, plan, plan.headTime, plan.headCount, copiesTime, checkpoint);
    if (hasCopies)
      addCopied(joined, plan);
    addCoded(joined, plan, plan.tailTime, plan.tailCount, plan.end, checkpoint);
  }
  return joined;
}

void CutSound::addCoded(container::JoinTrack& joined, const Plan& plan, std::int64_t time, std::int64_t count,
                        std::int64_t end, const std::function<void()>& checkpoint) {
  if (count == 0)
    return;
  container::Track& track = newTrack();
  track.descriptions.push_back(track_.descriptions.front());
  track.samples = coded(time + plan.shift, count, checkpoint);
  for (container::Sample& sample : track.samples)
    sample.decodeTime -= plan.shift;
  addPiece(joined, store_.file(), track, plan, std::max(time, plan.start), end);
}

void CutSound::addCopied(container::JoinTrack& joined, const Plan& plan) {
  container::Track& track = newTrack();
  track.descriptions = track_.descriptions;
  track.samples.assign(track_.samples.begin() + static_cast<std::ptrdiff_t>(plan.copied),
                       track_.samples.begin() + static_cast<std::ptrdiff_t>(plan.behind));
  std::int64_t start = track.samples.front().decodeTime;
  if (plan.headCount == 0)
    start = std::max(start, track_.presentationStart);
  // As long as the source itself, where nothing follows.
  const std::int64_t end = plan.tailCount > 0
                               ? plan.tailTime
                               : std::min(plan.end, track_.presentationStart + track_.presentationDuration);
  addPiece(joined, file_.file(), track, plan, start, end);
}

// What is presented of the packets, by times of the media.
void CutSound::addPiece(container::JoinTrack& joined, const OpenFile& file, const container::Track& track,
                        const Plan& plan, std::int64_t start, std::int64_t end) {
  tracks_.back().presentationStart = start;
  joined.pieces.push_back(
      {&file, &track, MediaTime(start + plan.shift, rate), MediaTime(end - start, rate), true});
}

container::Track& CutSound::newTrack() {
  container::Track& track = tracks_.emplace_back();
  track.kind = container::TrackKind::audio;
  track.timescale = rate;
  return track;
}

container::JoinTrack CutSound::makeWhole(const std::function<void()>& checkpoint) {
  const auto coder = media::makeAacCoder(AudioSettings{});
  Plan plan;
  container::Track& track = newTrack();
  track.descriptions.push_back(coder->description());
  track.samples = coded(-packetFrames, packetsIn(sound_.frames()) + 1, checkpoint);
  container::JoinTrack joined;
  addPiece(joined, store_.file(), track, plan, 0, sound_.frames());
  return joined;
}

// The packets at and behind a time of the output, from what is heard there.
std::vector<container::Sample> CutSound::coded(std::int64_t outputTime, std::int64_t count,
                                               const std::function<void()>& checkpoint) {
  constexpr std::int64_t blockPackets = 32;
  const auto coder = media::makeAacCoder(AudioSettings{});
  media::AudioSequencer sequencer(*coder, channels);
  std::vector<container::Sample> samples;
  samples.reserve(static_cast<std::size_t>(count));
  // The sequencer's first packet leads into the first length; the next one is heard over the first two.
  const std::int64_t skipped = settlingPackets + 1;
  const auto take = [&] {
    const media::CodedSound sound = sequencer.take();
    std::span<const std::byte> rest = sound.data;
    for (std::size_t i = 0; i < sound.sizes.size(); ++i) {
      const std::int64_t packet = sound.firstPacket + static_cast<std::int64_t>(i) - skipped;
      const auto bytes = rest.first(sound.sizes[i]);
      rest = rest.subspan(sound.sizes[i]);
      if (packet < 0 || packet >= count)
        continue;
      container::Sample sample;
      sample.offset = store_.append(bytes);
      sample.size = sound.sizes[i];
      sample.duration = static_cast<std::uint32_t>(packetFrames);
      sample.decodeTime = outputTime + packet * packetFrames;
      sample.isSync = true;
      samples.push_back(sample);
    }
  };
  std::vector<float> frames;
  std::int64_t time = outputTime - settlingPackets * packetFrames;
  for (std::int64_t left = settlingPackets + count + 1; left > 0;) {
    const std::int64_t packets = std::min(left, blockPackets);
    frames.resize(static_cast<std::size_t>(packets * packetFrames) * channels);
    sound_.read(time, frames);
    sequencer.append(frames);
    time += packets * packetFrames;
    left -= packets;
    take();
    checkpoint();
  }
  sequencer.finish();
  take();
  if (std::ssize(samples) != count)
    throw MovieEditingFailure(MovieEditingError::notWritten);
  return samples;
}

} // namespace tessarin::editing
