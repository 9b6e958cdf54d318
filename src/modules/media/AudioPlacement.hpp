#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace tessarin::media {

// Where one stretch of sound goes in its track.
struct PlacedSound {
  std::int64_t silence = 0; // frames of silence ahead of it
  std::int64_t skipped = 0; // frames at its beginning that are left out
  std::int64_t length = 0;  // frames which the rest of it is to last; 0 when nothing is left

  bool operator==(const PlacedSound&) const = default;
};

// Makes one continuous stream of frames, beginning at time 0, from stretches of sound that each come with a
// time of their own.
//
// The times of a device jitter by some milliseconds from stretch to stretch, and its clock does not run
// exactly like the one that counts the times. So a stretch is put right behind the one before it as long as
// its time is near, without a gap or a cut that could be heard; but when the stretches of half a second were
// early or late on average, the next ones are made a little longer or shorter, until that much is made up
// for. The track is never off by more than the jitter and a few milliseconds. A time that is further away is
// believed at once: silence fills the hole, and what overlaps the sound before is left out.
//
// Plain arithmetic; confined to one thread.
class AudioPlacement {
 public:
  // Frames per second.
  explicit AudioPlacement(std::int32_t sampleRate);

  // For a stretch of `frames` that begins at the frame `start`, which may lie before 0.
  PlacedSound place(std::int64_t start, std::int64_t frames);
  // The silence that is missing up to a frame; none when the stream is there already.
  std::int64_t fillTo(std::int64_t frame);
  // How many frames have been placed, with the silence.
  std::int64_t end() const { return end_; }

 private:
  PlacedSound placeAway(std::int64_t offset, std::int64_t frames);
  void judge(std::int64_t offset, std::int64_t frames);
  std::int64_t instalment(std::int64_t frames);
  void forget();

  const std::int64_t rate_;
  std::int64_t end_ = 0;
  bool hasSound_ = false; // right at the end

  // Of the stretches since the last judgement: their frames, and the sum over frames of how late they were.
  std::int64_t judgedFrames_ = 0;
  std::int64_t lateness_ = 0;

  // The correction under way: frames in all, those still to be added (or, below 0, taken away), and the
  // part of the next one that has gathered, in units of 1 / rate.
  std::int64_t correction_ = 0;
  std::int64_t owed_ = 0;
  std::int64_t gathered_ = 0;
};

// Interleaved sound at another length, by drawing straight lines between its frames; the first and the last
// frame stay. Replaces what `into` holds.
void stretchSound(std::span<const float> sound, std::size_t channelCount, std::size_t frames,
                  std::vector<float>& into);

} // namespace tessarin::media
