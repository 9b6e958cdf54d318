#pragma once

#include "container/Movie.hpp"

#include <string>
#include <vector>

namespace tessarin::container {

// A stretch of a source track to be placed on the joined time line.
struct JoinPiece {
  const OpenFile* file = nullptr; // outlives the call
  const Track* track = nullptr;   // of that file's index
  MediaTime start;                // where it begins on the joined time line
  MediaTime duration;             // how much of it, from its presentation start; later samples are left out
};

struct JoinTrack {
  std::vector<JoinPiece> pieces; // in order of start; sample descriptions may differ between pieces
};

// Writes a new ordinary MPEG-4 file whose tracks are the pieces one after another, copying coded samples
// untouched by the file layer's own copy, index last. A piece's last sample is stretched or cut to the
// piece's end; room between pieces of an audio track stays silent. `brand` is "mp42" or "M4A ". The output
// is an empty file; it is durable on return. Throws FileFailure, and ContainerFailure for pieces that
// cannot be joined. Any thread.
void writeJoinedMovie(OpenFile& output, const std::vector<JoinTrack>& tracks, const std::string& brand);

} // namespace tessarin::container
