#pragma once

#include "modules/editing/StereoReader.hpp"
#include "ports/MovieEditing.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace soundtouch {
class SoundTouch;
}

namespace tessarin::editing {

// What a track of the source gives to the output, read from its beginning on: two channels at 48000 frames a
// second, each segment at its place to the frame, at its speed with the pitch kept, and at its volume. A
// change of volume takes five milliseconds. Confined to one thread. Failures are MovieEditingFailure.
class SoundLane {
 public:
  // File and segments outlive the lane. notComposable when there is not one volume for each segment.
  SoundLane(const SourceFile& file, const MovieAudioLane& lane, const std::vector<MovieSegment>& segments);
  ~SoundLane();
  SoundLane(const SoundLane&) = delete;
  SoundLane& operator=(const SoundLane&) = delete;

  // Adds the next frames to the span, interleaved; silence behind the last segment.
  void addTo(std::span<float> frames);

 private:
  void beginSegment();
  void readSegment(std::span<float> frames);
  void readStretched(std::span<float> frames);

  StereoReader reader_;
  const std::vector<MovieSegment>& segments_;
  const std::vector<float> volumes_;
  std::size_t next_ = 0;                              // segment
  std::int64_t segmentLeft_ = 0;                      // frames of the output
  std::int64_t sourceLeft_ = 0;                       // frames of the source, of a stretched segment
  std::int64_t sinceChange_ = 0;                      // frames since the segment has begun
  float volumeBefore_ = 0;                            // of the segment before
  float volume_ = 0;                                  // of the segment under way
  std::unique_ptr<soundtouch::SoundTouch> stretcher_; // of a segment at another speed
  std::vector<float> scratch_;
  std::vector<float> fed_;
};

} // namespace tessarin::editing
