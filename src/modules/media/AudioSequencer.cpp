#include "modules/media/AudioSequencer.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace tessarin::media {

namespace {

// A packet spans two blocks, and the coder has looked at the third when it yields it.
constexpr std::int64_t blocksOfSilence = 3;
// What is played backwards behind the end fades away over so many frames.
constexpr std::size_t fadeFrames = 256;

bool isSilent(const SoundBlock& block) {
  return std::all_of(block.channels.begin(), block.channels.end(), [](const auto& channel) {
    return std::all_of(channel.begin(), channel.end(), [](float sample) { return sample == 0.0F; });
  });
}

// The coder gives up at what is no number.
float withinFullScale(float sample) {
  return std::isfinite(sample) ? std::clamp(sample, -1.0F, 1.0F) : 0.0F;
}

} // namespace

AudioSequencer::AudioSequencer(AudioCoder& coder, std::size_t channelCount)
    : coder_(coder), channelCount_(channelCount) {
  block_.channels.resize(channelCount);
  before_.channels.resize(channelCount);
}

void AudioSequencer::append(std::span<const float> frames) {
  std::size_t left = frames.size() / channelCount_;
  for (const float* from = frames.data(); left > 0;) {
    const std::size_t count = std::min(left, framesPerPacket - filled_);
    for (std::size_t frame = filled_; frame < filled_ + count; ++frame)
      for (auto& channel : block_.channels)
        channel[frame] = withinFullScale(*from++);
    filled_ += count;
    left -= count;
    if (filled_ == framesPerPacket)
      encodeBlock();
  }
}

void AudioSequencer::appendSilence(std::int64_t frames) {
  while (frames > 0) {
    const auto count =
        static_cast<std::size_t>(std::min(frames, static_cast<std::int64_t>(framesPerPacket - filled_)));
    for (auto& channel : block_.channels)
      std::fill_n(channel.begin() + static_cast<std::ptrdiff_t>(filled_), count, 0.0F);
    filled_ += count;
    frames -= static_cast<std::int64_t>(count);
    if (filled_ == framesPerPacket)
      encodeBlock();
  }
}

void AudioSequencer::encodeBlock() {
  if (!hasBegun_)
    leadIn();
  silentBlocks_ = isSilent(block_) ? silentBlocks_ + 1 : 0;
  // The coder would do nothing that it has not done for the block before.
  if (silentBlocks_ > blocksOfSilence)
    received({lastPacket_});
  else
    received(coder_.encode(block_));
  std::swap(block_, before_);
  filled_ = 0;
}

// The first block backwards, ahead of it.
void AudioSequencer::leadIn() {
  hasBegun_ = true;
  SoundBlock lead = block_;
  for (auto& channel : lead.channels)
    std::reverse(channel.begin(), channel.end());
  received(coder_.encode(lead));
}

void AudioSequencer::finish() {
  if (filled_ > 0) {
    fillLastBlock();
    encodeBlock();
  }
  if (hasBegun_)
    received(coder_.finish());
}

// What was last, backwards and fading.
void AudioSequencer::fillLastBlock() {
  for (std::size_t channel = 0; channel < channelCount_; ++channel) {
    auto& block = block_.channels[channel];
    for (std::size_t i = 0; filled_ + i < framesPerPacket; ++i) {
      const float part = i < fadeFrames ? 1 - static_cast<float>(i) / fadeFrames : 0;
      const float mirrored = i < filled_ ? block[filled_ - 1 - i]
                                         : before_.channels[channel][framesPerPacket - 1 - (i - filled_)];
      block[filled_ + i] = mirrored * part;
    }
  }
}

void AudioSequencer::received(const std::vector<Bytes>& packets) {
  for (const Bytes& packet : packets) {
    if (std::exchange(isDropping_, false))
      continue;
    coded_.data.insert(coded_.data.end(), packet.begin(), packet.end());
    coded_.sizes.push_back(static_cast<std::uint32_t>(packet.size()));
    lastPacket_ = packet;
  }
}

CodedSound AudioSequencer::take() {
  CodedSound next;
  next.firstPacket = coded_.firstPacket + static_cast<std::int64_t>(coded_.sizes.size());
  return std::exchange(coded_, std::move(next));
}

} // namespace tessarin::media
