#include "modules/editing/SoundReader.hpp"

#include "modules/editing/SampleEntries.hpp"

#include <algorithm>
#include <cstdlib>

namespace tessarin::editing {

namespace {

// Packets that are decoded for what they leave to the next one.
constexpr std::size_t packetsAhead = 3;

[[noreturn]] void failUnreadable() {
  throw MovieEditingFailure(MovieEditingError::unreadable);
}

} // namespace

SoundReader::SoundReader(const SourceFile& file, const container::Track& track)
    : file_(file), track_(track), packet_(av_packet_alloc()), frame_(av_frame_alloc()) {
  if (!packet_ || !frame_)
    failUnreadable();
  if (!isDecodable(track))
    throw MovieEditingFailure(MovieEditingError::notComposable);
  seek(MediaTime::zero());
}

void SoundReader::seek(MediaTime fileTime) {
  from_ = fileTime.convertedTo(track_.timescale).value();
  const std::int64_t media = mediaTimeOf(track_, from_);
  const auto behind = std::upper_bound(
      track_.samples.begin(), track_.samples.end(), media,
      [](std::int64_t wanted, const container::Sample& sample) { return wanted < sample.decodeTime; });
  const auto sample = static_cast<std::size_t>(behind - track_.samples.begin());
  begin(sample - std::min(sample, packetsAhead + 1));
  end_.reset();
}

void SoundReader::begin(std::size_t sample) {
  nextSample_ = sample;
  if (sample == track_.samples.size())
    return;
  const std::size_t description = track_.samples[sample].description;
  if (!decoder_ || description != description_) {
    decoder_ = openDecoder(readSampleEntry(track_.descriptions.at(description), container::TrackKind::audio),
                           track_.timescale, 1);
    description_ = description;
  } else {
    avcodec_flush_buffers(decoder_.get());
  }
}

std::optional<SoundStretch> SoundReader::next() {
  while (decodeNext()) {
    if (auto stretch = placed())
      return stretch;
  }
  return std::nullopt;
}

// A packet yields one frame at once.
bool SoundReader::decodeNext() {
  if (nextSample_ == track_.samples.size())
    return false;
  const container::Sample& sample = track_.samples[nextSample_];
  if (sample.decodeTime >= track_.presentationStart + track_.presentationDuration)
    return false;
  if (sample.description != description_)
    begin(nextSample_);
  ++nextSample_;
  file_.load(*packet_, sample);
  if (avcodec_send_packet(decoder_.get(), packet_.get()) < 0 ||
      avcodec_receive_frame(decoder_.get(), frame_.get()) < 0 || frame_->format != AV_SAMPLE_FMT_FLTP ||
      frame_->sample_rate < 1)
    failUnreadable();
  return true;
}

// What of the frame is presented, from where the stretch before has ended.
std::optional<SoundStretch> SoundReader::placed() {
  const std::int32_t rate = frame_->sample_rate;
  const auto inFrames = [&](std::int64_t time) {
    return MediaTime(time, track_.timescale).convertedTo(rate).value();
  };
  std::int64_t start = inFrames(fileTimeOf(track_, frame_->pts));
  const std::int64_t tolerance = rate / 1000;
  if (end_ && std::abs(start - *end_) < tolerance)
    start = *end_;
  const std::int64_t trackStart = inFrames(fileTimeOf(track_, track_.presentationStart));
  const std::int64_t trackEnd =
      inFrames(fileTimeOf(track_, track_.presentationStart + track_.presentationDuration));
  const std::int64_t first = std::max({start, trackStart, end_.value_or(start)});
  const std::int64_t last = std::min(start + frame_->nb_samples, trackEnd);
  // Packets ahead of the place that was sought count for the row, and are not told.
  if (first >= last)
    return std::nullopt;
  end_ = last;
  if (last <= inFrames(from_))
    return std::nullopt;
  SoundStretch stretch{rate, first, last - first, &frame_->ch_layout, {}};
  stretch.channels.reserve(static_cast<std::size_t>(frame_->ch_layout.nb_channels));
  for (int channel = 0; channel < frame_->ch_layout.nb_channels; ++channel)
    stretch.channels.push_back(reinterpret_cast<const float*>(frame_->extended_data[channel]) +
                               (first - start));
  return stretch;
}

} // namespace tessarin::editing
