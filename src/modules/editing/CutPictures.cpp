#include "modules/editing/CutPictures.hpp"

#include "modules/editing/FrameConversion.hpp"
#include "modules/editing/SampleEntries.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <utility>

namespace tessarin::editing {

namespace {

constexpr std::int64_t finestScale = 10'000'000;

std::int32_t scaleFor(std::int32_t timescale) {
  const std::int64_t common = std::lcm(std::int64_t{timescale}, std::int64_t{1000});
  return common <= finestScale ? static_cast<std::int32_t>(common) : timescale;
}

// Rounded up, of numbers of any sign.
std::int64_t ceilQuotient(std::int64_t value, std::int64_t by) {
  return value / by + (value % by > 0 ? 1 : 0);
}
std::int64_t floorQuotient(std::int64_t value, std::int64_t by) {
  return value / by - (value % by < 0 ? 1 : 0);
}

// Of the track's pictures, a second.
double averageRate(const container::Track& track) {
  const double seconds = MediaTime(track.presentationDuration, track.timescale).seconds();
  return seconds > 0 ? static_cast<double>(track.samples.size()) / seconds : 1;
}

} // namespace

CutPictures::CutPictures(const SourceFile& file, const std::vector<CutClip>& clips, RecordingCodec codec,
                         CutStore& store)
    : file_(file), store_(store), reader_(file, file.video()), track_(file.video()),
      scale_(scaleFor(track_.timescale)), factor_(scale_ / track_.timescale) {
  for (std::size_t place = 1; place < track_.samples.size() && isInOrder_; ++place)
    isInOrder_ = reader_.sample(place) == place;
  if (!isInOrder_)
    delay_ = std::max(track_.samples.front().compositionOffset, 0) * factor_;
  plans_.reserve(clips.size());
  for (const CutClip& clip : clips)
    plans_.push_back(planned(clip));
  avoidEqualKeys();
  decideCoding(codec);
}

std::int64_t CutPictures::scaled(std::int64_t milliseconds) const {
  return MediaTime::milliseconds(milliseconds).convertedTo(scale_).value();
}

// When the picture begins to be shown in the clip.
std::int64_t CutPictures::timeOf(const Plan& plan, std::size_t place) const {
  return place == plan.first ? plan.start : reader_.mediaTime(place) * factor_;
}

const container::SampleDescription& CutPictures::descriptionAt(std::size_t place) const {
  return track_.descriptions.at(track_.samples[reader_.sample(place)].description);
}

CutPictures::Plan CutPictures::planned(const CutClip& clip) const {
  Plan plan;
  const std::int64_t shift = mediaTimeOf(track_, 0);
  plan.start = scaled(clip.sourceStart) + shift * factor_;
  plan.end = scaled(clip.sourceEnd) + shift * factor_;
  plan.outputStart = scaled(clip.outputStart);
  plan.first = reader_.nearestPicture(floorQuotient(plan.start, factor_) - shift);
  plan.behind = std::max(reader_.nearestPicture(ceilQuotient(plan.end, factor_) - 1 - shift), plan.first) + 1;
  plan.copied = plan.first;
  while (plan.copied < plan.behind && !mayCopy(plan, plan.copied))
    ++plan.copied;
  return plan;
}

// Whether the pictures from here to the end of the clip can be decoded and shown by themselves, and nothing
// with them.
bool CutPictures::mayCopy(const Plan& plan, std::size_t from) const {
  const std::size_t sample = reader_.sample(from);
  if (!track_.samples[sample].isSync)
    return false;
  if (!isInOrder_) {
    // The picture is shown when the source shows it, at the delay of all.
    if (timeOf(plan, from) != reader_.mediaTime(from) * factor_ ||
        track_.samples[sample].compositionOffset * factor_ != delay_)
      return false;
    std::size_t last = sample;
    for (std::size_t place = from; place < plan.behind; ++place) {
      if (reader_.sample(place) < sample)
        return false;
      last = std::max(last, reader_.sample(place));
    }
    if (last - sample != plan.behind - from - 1)
      return false;
  }
  return isRefresh(from);
}

std::vector<std::byte> CutPictures::bytesAt(std::size_t place) const {
  const container::Sample& sample = track_.samples[reader_.sample(place)];
  std::vector<std::byte> bytes(sample.size);
  try {
    if (file_.file().read(sample.offset, bytes) == bytes.size())
      return bytes;
  } catch (const FileFailure&) {
  }
  throw MovieEditingFailure(MovieEditingError::unreadable);
}

bool CutPictures::isRefresh(std::size_t place) const {
  return isWholeRefresh(readSampleEntry(descriptionAt(place), container::TrackKind::video), bytesAt(place));
}

// Nothing where the sample is no key.
std::optional<std::uint32_t> CutPictures::keyNumberAt(std::size_t place) const {
  if (!track_.samples[reader_.sample(place)].isSync)
    return std::nullopt;
  return keyNumber(descriptionAt(place), bytesAt(place));
}

// Two keys of one number that follow each other may be taken for one picture: then the second is coded anew,
// with what follows up to the next key.
void CutPictures::avoidEqualKeys() {
  for (std::size_t i = 1; i < plans_.size(); ++i) {
    Plan& plan = plans_[i];
    const Plan& before = plans_[i - 1];
    if (plan.copied != plan.first || before.copied == before.behind)
      continue;
    const auto number = keyNumberAt(before.behind - 1);
    if (!number || number != keyNumberAt(plan.copied))
      continue;
    do
      ++plan.copied;
    while (plan.copied < plan.behind && !mayCopy(plan, plan.copied));
  }
}

const std::optional<VideoSettings>& CutPictures::likeSource(std::size_t description) {
  const auto known = likeSource_.find(description);
  if (known != likeSource_.end())
    return known->second;
  return likeSource_
      .emplace(description, settingsLike(track_.descriptions.at(description), averageRate(track_)))
      .first->second;
}

void CutPictures::decideCoding(RecordingCodec codec) {
  const bool isOneKind = std::all_of(plans_.begin(), plans_.end(), [&](const Plan& plan) {
    return plan.copied == plan.first || likeSource(track_.samples[reader_.sample(plan.first)].description);
  });
  // Copies of an odd size would not be of the size that is expected of every export.
  if (isOneKind && hasEvenSize(track_))
    return;
  const std::string subtype = descriptionAt(plans_.front().first).codec;
  if (subtype.starts_with("avc"))
    codec = RecordingCodec::h264;
  else if (subtype == "hvc1" || subtype == "hev1")
    codec = RecordingCodec::hevc;
  const PixelSize size = evenSizeOf(track_);
  constexpr std::int64_t highestRate = 120;
  const std::int64_t rate = std::clamp<std::int64_t>(std::llround(averageRate(track_)), 1, highestRate);
  wholeSettings_ = richSettings(codec, size.width, size.height, rate);
  if (!media::areCodable(*wholeSettings_))
    throw MovieEditingFailure(MovieEditingError::notComposable);
  delay_ = 0;
  for (Plan& plan : plans_)
    plan.copied = plan.behind;
}

std::int64_t CutPictures::codedPictures() const {
  return std::accumulate(plans_.begin(), plans_.end(), std::int64_t{0},
                         [](std::int64_t sum, const Plan& plan) {
                           return sum + static_cast<std::int64_t>(plan.copied - plan.first);
                         });
}

container::JoinTrack CutPictures::make(const std::function<void(std::int64_t done)>& progress) {
  container::JoinTrack joined;
  for (const Plan& plan : plans_) {
    if (plan.copied > plan.first)
      joined.pieces.push_back(codedPiece(plan, progress));
    if (plan.copied < plan.behind)
      joined.pieces.push_back(copiedPiece(plan));
  }
  return joined;
}

container::Track& CutPictures::newTrack(const container::SampleDescription* description) {
  container::Track& track = tracks_.emplace_back();
  track.kind = container::TrackKind::video;
  track.timescale = scale_;
  track.matrix = track_.matrix;
  if (description != nullptr)
    track.descriptions.push_back(*description);
  else
    track.descriptions = track_.descriptions;
  return track;
}

// From the track's presentation start to the time of the media.
container::JoinPiece CutPictures::piece(const OpenFile& file, const container::Track& track, const Plan& plan,
                                        std::int64_t end) const {
  return {&file, &track, MediaTime(plan.outputStart + track.presentationStart - plan.start, scale_),
          MediaTime(end - track.presentationStart, scale_)};
}

container::JoinPiece CutPictures::codedPiece(const Plan& plan,
                                             const std::function<void(std::int64_t)>& progress) {
  const std::size_t description = track_.samples[reader_.sample(plan.first)].description;
  const VideoSettings& settings = wholeSettings_ ? *wholeSettings_ : *likeSource(description);
  // Other than the number of a key right before, and right behind.
  bool isNumberedOne = lastKey_ == 0U;
  if (plan.copied == plan.first + 1 && plan.copied < plan.behind)
    isNumberedOne = isNumberedOne || keyNumberAt(plan.copied) == 0U;
  CutCoder coder(settings, store_, isNumberedOne);
  container::Track& track =
      newTrack(wholeSettings_ ? &coder.description() : &track_.descriptions[description]);
  for (std::size_t place = plan.first; place < plan.copied; ++place) {
    coder.append(reader_.picture(place), timeOf(plan, place) - delay_);
    progress(++done_);
  }
  track.samples = coder.finish();
  for (container::Sample& sample : track.samples)
    sample.compositionOffset = static_cast<std::int32_t>(delay_);
  track.presentationStart = plan.start;
  lastKey_.reset();
  if (track.samples.back().isSync) {
    const auto keys = std::count_if(track.samples.begin(), track.samples.end(),
                                    [](const container::Sample& sample) { return sample.isSync; });
    lastKey_ = static_cast<std::uint32_t>((keys + (isNumberedOne ? 0 : 1)) % 2);
  }
  const std::int64_t end = plan.copied < plan.behind ? timeOf(plan, plan.copied) : plan.end;
  return piece(store_.file(), track, plan, end);
}

container::JoinPiece CutPictures::copiedPiece(const Plan& plan) {
  container::Track& track = newTrack(nullptr);
  const std::size_t begin = reader_.sample(plan.copied);
  track.samples.assign(track_.samples.begin() + static_cast<std::ptrdiff_t>(begin),
                       track_.samples.begin() +
                           static_cast<std::ptrdiff_t>(begin + plan.behind - plan.copied));
  for (std::size_t i = 0; i < track.samples.size(); ++i) {
    container::Sample& sample = track.samples[i];
    // What is coded in order needs no delay.
    sample.decodeTime = isInOrder_ ? timeOf(plan, plan.copied + i) : sample.decodeTime * factor_;
    const std::int64_t offset = isInOrder_ ? 0 : sample.compositionOffset * factor_;
    if (offset != static_cast<std::int32_t>(offset))
      throw MovieEditingFailure(MovieEditingError::notComposable);
    sample.compositionOffset = static_cast<std::int32_t>(offset);
  }
  track.presentationStart = timeOf(plan, plan.copied);
  lastKey_ = keyNumberAt(plan.behind - 1);
  return piece(file_.file(), track, plan, plan.end);
}

} // namespace tessarin::editing
