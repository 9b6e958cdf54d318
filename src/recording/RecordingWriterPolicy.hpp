#pragma once

#include "base/MediaTime.hpp"

#include <cstddef>

// The named constants of the segment writer and of the check of what it wrote.
namespace tessarin::RecordingWriterPolicy {

// How much a crash can lose: at first little, then seldom enough to cost nothing.
inline constexpr MediaTime initialFragmentInterval{600, 600};
inline constexpr MediaTime fragmentInterval{6000, 600};

// A hole in the stream is plugged with at most so many copies of the picture before it.
inline constexpr std::size_t maximumFillerFrames = 3;

} // namespace tessarin::RecordingWriterPolicy

namespace tessarin::RecordingAudioQueuePolicy {

// How much sound may wait for a busy coder; a lane with more ends the segment.
inline constexpr MediaTime maximumQueuedDuration{24000, 48000};

} // namespace tessarin::RecordingAudioQueuePolicy

namespace tessarin::RecordingEncodedSampleTimeline {

// How far the tracks of one file may begin or end apart.
inline constexpr MediaTime maximumInitialLead{250, 1000};

} // namespace tessarin::RecordingEncodedSampleTimeline
