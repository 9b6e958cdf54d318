#pragma once

#include "modules/media/AudioCoder.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tessarin::media {

// Consecutive packets of a track, one behind the other.
struct CodedSound {
  Bytes data;
  std::vector<std::uint32_t> sizes; // of each packet
  std::int64_t firstPacket = 0;     // counted from the beginning of the track
};

// Puts a continuous stream of frames through a coder.
//
// A packet overlaps its neighbours, so what surrounds the stream is heard where a track is joined to
// another one: the beginning and the end are led out of and into the sound itself, played backwards, rather
// than cut at a step to silence. Silence that lasts is coded once and its packet repeated.
//
// Confined to one thread. Failures are those of the coder.
class AudioSequencer {
 public:
  AudioSequencer(AudioCoder& coder, std::size_t channelCount);

  // Interleaved. What is beyond full scale is cut, and what is no number is silent.
  void append(std::span<const float> frames);
  void appendSilence(std::int64_t frames);
  // Codes what is left. Nothing may be appended any more.
  void finish();
  // The packets that are ready, which are then the caller's.
  CodedSound take();

 private:
  void encodeBlock();
  void leadIn();
  void fillLastBlock();
  void received(const std::vector<Bytes>& packets);

  AudioCoder& coder_;
  const std::size_t channelCount_;
  SoundBlock block_;              // being filled
  SoundBlock before_;             // the one before, once there is one
  std::size_t filled_ = 0;        // frames of the block
  bool hasBegun_ = false;         // the coder has been handed something
  std::int64_t silentBlocks_ = 0; // handed over or repeated last, in a row
  bool isDropping_ = true;        // of the first packet, which lies before the lead-in
  Bytes lastPacket_;
  CodedSound coded_;
};

} // namespace tessarin::media
