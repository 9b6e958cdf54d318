#pragma once

#include "base/FileSystem.hpp"
#include "base/MediaTime.hpp"
#include "container/Movie.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace tessarin {

struct ValidatedMedia {
  std::int64_t durationMs = 0;
  std::int64_t sizeBytes = 0;

  bool operator==(const ValidatedMedia&) const = default;
};

// The checks that every finished media file of a session must pass before anybody is told of it. A file is
// judged by its index, and every sample's bytes must lie inside the file; the coded bytes themselves are not
// read, so a check costs the size of the index however long the recording is. No state, any thread.
namespace RecordingMediaValidator {

// The length and size of a recording with exactly these numbers of tracks, all in step with its first video
// track. The fallback counts where the file tells no duration. Any failed check throws
// serviceErrors::recordingFailed().
ValidatedMedia validateRecording(FileSystem& files, const std::string& path, MediaTime fallbackDuration,
                                 std::size_t expectedVideoTrackCount, std::size_t expectedAudioTrackCount,
                                 std::int64_t frameRate);

// Whether the file is one audio track of the house format and within 250 ms of the expected length. Throws
// serviceErrors::recordingFailed() only for a regular file that cannot be read as media.
bool validateAudio(FileSystem& files, const std::string& path, std::int64_t expectedDurationMs);

// Whether every track has samples with data, and neither their presentation nor their decode times ever
// step back.
bool samplesAreMonotonic(std::span<const container::Track* const> tracks);

// 48000 Hz to within 0.5 Hz and 2 channels in every description.
bool hasCanonicalAudioFormat(const container::Track& track);

} // namespace RecordingMediaValidator

} // namespace tessarin
