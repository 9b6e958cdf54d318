#pragma once

#include "MediaWriterTesting.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tessarin {

// Sound by its time: the value of both channels at a frame.
using SoundSource = std::function<float(std::int64_t frame)>;

SoundSource tone(double hertz, float amplitude = 0.5F);
// A smooth pulse of a millisecond whose peak is at each of the frames, and silence elsewhere.
SoundSource clicks(std::vector<std::int64_t> frames);

// A stretch of a source, which tells the time given rather than its own.
AudioSample soundOf(const SoundSource& source, std::int64_t firstFrame, std::size_t frames, MediaTime told);

// Appends as soon as the input is ready for it. False when the writer has failed.
bool appendPatiently(MediaFileWriter& writer, AudioInput& input, const AudioSample& sample);

// The left channel of a file's sound as another program decodes it, at 48000 frames per second. By the
// times of the packets, or only one packet behind the other.
enum class Decoding { byTime, inARow };
std::vector<float> decoded(const std::string& path, std::size_t audioTrack,
                           Decoding decoding = Decoding::inARow);

// The frames of the peaks in a file of clicks.
std::vector<std::int64_t> peaks(const std::vector<float>& sound);

// The greatest absolute value in a stretch; 0 beyond the end.
float loudest(const std::vector<float>& sound, std::int64_t from, std::int64_t to);

// A segment with pictures at ten a second, and lanes of sound that are fed as the pictures come.
class SegmentRecording {
 public:
  explicit SegmentRecording(MediaModuleRig& rig, const std::string& name, std::size_t lanes,
                            std::size_t videoTracks = 1);

  bool appendPicture();
  // The source from one time to another in buffers of 256 frames, by its own times.
  bool appendSound(std::size_t lane, const SoundSource& source, std::int64_t from, std::int64_t to);
  void finish();

  MediaFileWriter& writer() { return *writer_; }
  AudioInput& lane(std::size_t index) { return *lanes_.at(index); }

 private:
  std::unique_ptr<MediaFileWriter> writer_;
  std::vector<VideoInput*> videos_;
  std::vector<AudioInput*> lanes_;
  std::vector<std::shared_ptr<const CodablePicture>> pictures_;
  int appended_ = 0;
};

// A whole segment: so many pictures, and each lane its source all along.
void recordSegment(MediaModuleRig& rig, const std::string& name, int pictures,
                   const std::vector<SoundSource>& lanes, std::size_t videoTracks = 1);

} // namespace tessarin
