#pragma once

#include "container/Movie.hpp"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tessarin::container {

// A stretch of a source track to be placed on the joined time line. Both times are numeric, the start not
// negative and the duration above zero.
struct JoinPiece {
  const OpenFile* file = nullptr; // outlives the call
  const Track* track = nullptr;   // of that file's index
  MediaTime start;                // where it begins on the joined time line
  MediaTime duration;             // how much of it, from its presentation start; later samples are left out
  // Its packets have been chosen with those of the next piece in mind: all that begin before those are taken.
  bool keepsPackets = false;
};

// At least one piece, in order of start, all of one kind; sample descriptions and timescales may differ.
struct JoinTrack {
  std::vector<JoinPiece> pieces;
};

enum class IndexPlace : std::uint8_t { last, first };

struct JoinOptions {
  IndexPlace index = IndexPlace::last;
  // Told now and then how many bytes of how many have been copied; what it throws passes through.
  std::function<void(std::uint64_t copied, std::uint64_t all)> progress;
};

// Writes a new ordinary MPEG-4 file whose tracks are the pieces one after another, copying coded samples
// untouched by the file layer's own copy. `brand` is "mp42" or "M4A ". The output is an empty file; it is
// durable on return.
//
// Every time is computed from absolute ones, so nothing drifts however many pieces there are; a track takes
// the least common timescale of its pieces where that is at most 10 million, else the finest. What a later
// piece holds before its presentation start (the priming of its coder) is kept and takes the place of the
// end of the piece before it. A piece's last sample is stretched or cut to where the next piece's samples
// begin, the last piece's to its end: room between pieces shows the last picture, and is silent in an audio
// track. Ahead of another piece of sound the packets end with the one that ends nearest to where the sound
// should, so that players which put packets in a row, whatever their times, are never off by more than half
// a packet, unless the piece keeps its packets.
//
// Throws FileFailure; ContainerFailure for pieces that cannot be joined: unsupported where they break the
// conditions above, damaged without any sample, tooLarge where a time does not fit the form. Any thread.
void writeJoinedMovie(OpenFile& output, const std::vector<JoinTrack>& tracks, const std::string& brand,
                      const JoinOptions& options = {});

} // namespace tessarin::container
