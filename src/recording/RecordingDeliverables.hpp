#pragma once

#include "recording/RecordingMediaValidator.hpp"
#include "recording/RecordingModels.hpp"
#include "recording/RecordingProtocol.hpp"
#include "recording/RecordingSegmentStore.hpp"
#include "recording/RecordingService.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tessarin {

// What a stop makes of a session's segments: one file for each recorded track, and one to share. merge() and
// then validate(); each runs its parts at the same time, on queues of their own, and throws the first
// failure in the order in which they are named. By then none of them runs any more: those that had not
// begun are left out, those under way were waited for. No file is removed, since all of them can be made
// again from the segments. How long it takes is up to the disk alone. For one thread.
class RecordingDeliverables {
 public:
  // Everything is referred to and outlives this.
  RecordingDeliverables(const RecordingEnvironment& environment, const RecordingSettingsDTO& settings,
                        const RecordingSegmentStore& store);

  // Joins the screen, the camera, the computer's sound, the microphone's, and what is to be shared.
  void merge();

  // Opens every file again and checks it: the screen, the camera, what is to be shared; then the sound,
  // against the screen's length. The fallback counts where a file tells no duration.
  void validate(MediaTime fallbackDuration);

  // Throws NativeServiceError unless the pictures of all files are as long as the screen's.
  void requireMatchingLengths() const;

  // Behind validate(). Milliseconds of the finished program.
  std::int64_t programDurationMs() const { return screen_.durationMs; }
  // As a completed event lists them; sizes in pixels.
  std::vector<CaptureTrackPayload> tracks(SizeDTO screenPixelSize,
                                          const std::optional<SizeDTO>& cameraPixelSize) const;
  CaptureDeliverablePayload shareVideo(SizeDTO screenPixelSize) const;

 private:
  ValidatedMedia validated(const std::string& path, MediaTime fallbackDuration,
                           std::size_t audioTrackCount) const;
  void requireAudio(const std::string& path) const;

  const RecordingEnvironment& environment_;
  const RecordingSettingsDTO& settings_;
  const RecordingSegmentStore& store_;

  // As the checks have found them.
  ValidatedMedia screen_;
  std::optional<ValidatedMedia> camera_;
  ValidatedMedia share_;
  // Bytes, as the merges have told.
  std::int64_t systemAudioBytes_ = 0;
  std::int64_t microphoneBytes_ = 0;
};

// The places of the sound among the audio tracks of a segment, by what was recorded: the computer's before
// the microphone's.
struct RecordingAudioTracks {
  explicit RecordingAudioTracks(const RecordingSettingsDTO& settings);

  std::optional<std::int64_t> systemAudio;
  std::optional<std::int64_t> microphone;
  std::vector<std::int64_t> all; // ascending
};

} // namespace tessarin
