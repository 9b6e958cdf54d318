#include "modules/editing/PictureReader.hpp"

#include <algorithm>

namespace tessarin::editing {

namespace {

// Enough to decode one picture while another one is being used; more would cost memory.
constexpr int decodingThreads = 2;

[[noreturn]] void failUnreadable() {
  throw MovieEditingFailure(MovieEditingError::unreadable);
}

} // namespace

PictureReader::PictureReader(const SourceFile& file, const container::Track& track)
    : file_(file), track_(track), packet_(av_packet_alloc()) {
  if (!packet_)
    failUnreadable();
  if (!isDecodable(track))
    throw MovieEditingFailure(MovieEditingError::notComposable);
  if (track.samples.empty() || track.presentationDuration <= 0)
    failUnreadable();
  shown_.reserve(track.samples.size());
  for (std::size_t i = 0; i < track.samples.size(); ++i) {
    shown_.push_back({timeOf(i), static_cast<std::uint32_t>(i)});
    if (track.samples[i].isSync) {
      keys_.push_back(static_cast<std::uint32_t>(i));
      keyTimes_.push_back(shown_.back().time);
    }
  }
  std::stable_sort(shown_.begin(), shown_.end(),
                   [](const Shown& a, const Shown& b) { return a.time < b.time; });
  if (keys_.empty() || keys_.front() != 0)
    failUnreadable(); // nothing to begin at
}

std::optional<std::size_t> PictureReader::pictureAt(std::int64_t fileTime) const {
  const std::int64_t time = mediaTimeOf(track_, fileTime) - track_.presentationStart;
  if (time < 0 || time >= track_.presentationDuration)
    return std::nullopt;
  return nearestPicture(fileTime);
}

std::size_t PictureReader::nearestPicture(std::int64_t fileTime) const {
  const std::int64_t first = track_.presentationStart;
  const std::int64_t time =
      std::clamp(mediaTimeOf(track_, fileTime), first, first + track_.presentationDuration - 1);
  const auto behind =
      std::upper_bound(shown_.begin(), shown_.end(), time,
                       [](std::int64_t wanted, const Shown& each) { return wanted < each.time; });
  return behind == shown_.begin() ? 0 : static_cast<std::size_t>(behind - shown_.begin() - 1);
}

// The last key that is fed no later than the picture and shown no later either: what is fed behind a key and
// shown before it may depend on what lies before the key.
std::size_t PictureReader::keyBefore(std::size_t place) const {
  const Shown& wanted = shown_[place];
  auto key =
      static_cast<std::size_t>(std::upper_bound(keys_.begin(), keys_.end(), wanted.sample) - keys_.begin());
  while (key > 1 && keyTimes_[key - 1] > wanted.time)
    --key;
  return keys_[key - 1];
}

SharedFrame PictureReader::picture(std::size_t place) {
  const std::size_t key = keyBefore(place);
  if (!hasBegun_ || place < nextPlace_ || key > nextSample_)
    beginAt(key);
  for (;;) {
    SharedFrame frame = received();
    if (!frame) {
      feed();
      continue;
    }
    const std::size_t at = placeOf(*frame);
    nextPlace_ = std::max(nextPlace_, at + 1);
    if (at == place)
      return frame;
    if (at > place)
      failUnreadable(); // it was left out
  }
}

std::int64_t PictureReader::timeOf(std::size_t sample) const {
  return track_.samples[sample].decodeTime + track_.samples[sample].compositionOffset;
}

void PictureReader::beginAt(std::size_t sample) {
  const std::size_t description = track_.samples[sample].description;
  const SampleEntry entry = readSampleEntry(track_.descriptions.at(description), container::TrackKind::video);
  file_.load(*packet_, track_.samples[sample]);
  const auto bytes = std::as_bytes(std::span(packet_->data, static_cast<std::size_t>(packet_->size)));
  const Strictness strictness = isWholeRefresh(entry, bytes) ? Strictness::full : Strictness::missingPast;
  if (!decoder_ || description != description_ || strictness != strictness_) {
    decoder_ = openDecoder(entry, track_.timescale, decodingThreads, strictness);
    description_ = description;
    strictness_ = strictness;
  } else {
    avcodec_flush_buffers(decoder_.get());
  }
  nextSample_ = sample;
  beginning_ = timeOf(sample);
  nextPlace_ = 0;
  hasBegun_ = true;
  isDrained_ = false;
}

void PictureReader::feed() {
  const bool isEnd = nextSample_ == track_.samples.size();
  if (isDrained_) {
    if (isEnd)
      failUnreadable(); // it never came
    const std::size_t place = nextPlace_;
    beginAt(nextSample_); // under another description
    nextPlace_ = place;
    return;
  }
  if (isEnd || track_.samples[nextSample_].description != description_) {
    isDrained_ = true;
    avcodec_send_packet(decoder_.get(), nullptr);
    return;
  }
  const std::size_t sample = nextSample_++;
  if (timeOf(sample) < beginning_)
    return; // it depends on what lies before the key, and nobody has asked for it
  file_.load(*packet_, track_.samples[sample]);
  if (avcodec_send_packet(decoder_.get(), packet_.get()) < 0)
    failUnreadable();
}

// Null when the decoder wants more first.
SharedFrame PictureReader::received() {
  std::unique_ptr<AVFrame, media::FreeFrame> frame(av_frame_alloc());
  if (!frame)
    failUnreadable();
  const int result = avcodec_receive_frame(decoder_.get(), frame.get());
  if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
    return nullptr;
  if (result < 0 || (frame->flags & AV_FRAME_FLAG_CORRUPT) != 0 || frame->decode_error_flags != 0)
    failUnreadable();
  return SharedFrame(frame.release(), [](const AVFrame* each) {
    auto* owned = const_cast<AVFrame*>(each);
    av_frame_free(&owned);
  });
}

std::size_t PictureReader::placeOf(const AVFrame& frame) const {
  const auto at = std::lower_bound(shown_.begin(), shown_.end(), frame.pts,
                                   [](const Shown& each, std::int64_t time) { return each.time < time; });
  if (at == shown_.end() || at->time != frame.pts)
    failUnreadable();
  return static_cast<std::size_t>(at - shown_.begin());
}

} // namespace tessarin::editing
