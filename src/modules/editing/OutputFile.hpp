#pragma once

#include "container/IndexFirstWriter.hpp"
#include "modules/editing/FrameSchedule.hpp"
#include "modules/editing/PictureCoder.hpp"
#include "modules/media/AudioSequencer.hpp"

#include <cstdint>
#include <optional>

namespace tessarin::editing {

// The file that an export makes: one track of pictures on the grid, and one of sound or none. Confined to one
// thread. Throws FileFailure and container::ContainerFailure.
class OutputFile {
 public:
  // The file is empty; file and schedule outlive this.
  OutputFile(OpenFile& file, const FrameSchedule& schedule, PixelSize size,
             std::optional<container::SampleDescription> sound);

  // In the order of decoding.
  void append(const CodedFrame& frame, const container::SampleDescription& description);
  // Whether sound is still to be laid between the pictures so far.
  bool wantsSound() const;
  void append(const media::CodedSound& sound);
  // Once all has been appended.
  void finish();

 private:
  void begin(std::int64_t delay, const container::SampleDescription& description);
  std::uint64_t expectedIndexBytes() const;

  OpenFile& file_;
  const FrameSchedule& schedule_;
  const PixelSize size_;
  const std::optional<container::SampleDescription> sound_;
  std::int32_t timescale_ = 0;     // of the pictures
  std::int64_t frameDuration_ = 0; // in that scale
  std::int64_t delay_ = 0;         // frames between the first decoding and the first picture
  std::int64_t decodeTime_ = 0;    // of the next picture, in that scale
  std::int64_t packets_ = 0;       // of sound, appended
  std::optional<container::IndexFirstWriter> writer_; // from the first picture on
};

} // namespace tessarin::editing
