#pragma once

#include "base/FileSystem.hpp"
#include "ports/MediaWriting.hpp"
#include "recording/RecordingRecoveryModels.hpp"

namespace tessarin {

// Makes of a session's segments, which a crash or a failed stop has left behind, what a normal stop makes:
// the tracks and the video to share. What is on disk already is checked and kept, so that a recovery that
// failed or was killed can be run again. Segments are only read, also those that a crash has torn: they count
// up to their last whole fragment. The manifest is neither read nor written; the request names the segments.
// An output appears whole under its name or not at all; hidden files that a killed process was making outputs
// in are removed. One recovery of a session at a time, and none while the session is being recorded.
class RecordingRecoveryService {
 public:
  // Both outlive the service.
  RecordingRecoveryService(FileSystem& files, AudioReencoder& reencoder)
      : files_(files), reencoder_(reencoder) {}

  // On the calling thread; takes about as long as copying the segments. Throws
  // Failure<RecordingRecoveryError>: invalidRequest for a request that breaks a rule, a session directory
  // that is none and a segment that is not there; invalidMedia for a file, old or new, that is not what it
  // should be; mergeFailed for segments that cannot be joined. Throws FileFailure when the session directory
  // cannot be looked at.
  RecordingRecoveryPayload recovery(const RecordingRecoveryRequestDTO& request) const;

 private:
  FileSystem& files_;
  AudioReencoder& reencoder_;
};

} // namespace tessarin
