#pragma once

#include "base/Failure.hpp"
#include "base/FileSystem.hpp"
#include "base/MediaTime.hpp"
#include "ports/MediaWriting.hpp"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tessarin {

enum class RecordingMergeError : std::uint8_t {
  noSegments,
  invalidSegment,
  missingVideo,
  compositionFailed,
  exportFailed
};

// One segment's place on the joined time line.
struct RecordingMergeInsertion {
  MediaTime start;
  MediaTime duration;

  bool operator==(const RecordingMergeInsertion&) const = default;
};

// The segments one after another without gaps: time spent paused is not on the time line, and a segment is
// as long as its own file says.
struct RecordingMergePlan {
  // Throws Failure<RecordingMergeError>: noSegments, or invalidSegment for a length that is not above zero.
  explicit RecordingMergePlan(std::span<const MediaTime> segmentDurations);

  std::vector<RecordingMergeInsertion> insertions; // in segment order
  MediaTime total;
};

// Turns a session's segments into its final files without decoding anything: coded samples are copied as
// they are, and a lone segment that already is what is asked for is cloned. Only sound that cannot be joined
// so is decoded and coded anew. Segments are only read.
//
// All operations return the output's size in bytes and throw Failure<RecordingMergeError>. An existing
// output is never replaced. The output appears whole under its name or not at all, and its bytes are on the
// disk by then. No state but the file system and the reencoder, which outlive it; any thread, any number at
// once as long as their outputs differ.
class RecordingMerger {
 public:
  RecordingMerger(FileSystem& files, AudioReencoder& reencoder) : files_(files), reencoder_(reencoder) {}

  // One video track of every segment, by its place among the video tracks of the file.
  std::int64_t mergeVideoTrack(const std::vector<std::string>& segmentPaths, const std::string& outputPath,
                               std::int64_t videoTrackIndex) const;

  // One audio track of every segment, likewise. Cut where it overruns its segment; where it falls short,
  // silence follows up to the next segment.
  std::int64_t mergeAudio(const std::vector<std::string>& segmentPaths, const std::string& outputPath,
                          std::int64_t audioTrackIndex) const;

  // The screen picture of every segment with the audio tracks asked for, at most two.
  std::int64_t mergeShareVideo(const std::vector<std::string>& segmentPaths,
                               const std::vector<std::int64_t>& audioTrackIndices,
                               const std::string& outputPath) const;

  // The same from files that hold one track each.
  std::int64_t mergeShareVideo(const std::string& screenPath, const std::vector<std::string>& audioPaths,
                               const std::string& outputPath) const;

 private:
  FileSystem& files_;
  AudioReencoder& reencoder_;
};

} // namespace tessarin
