#pragma once

#include <cstdint>
#include <mutex>
#include <optional>

namespace tessarin::media {

// How hard a coder looks for ways to say the same with fewer bits. Every step costs a good deal less
// processor time than the one before it and some quality at the same bit rate; what a file says about its
// track is the same for all of them.
enum class CodingEffort : std::uint8_t { full, reduced, least };

enum class LoadVerdict : std::uint8_t {
  holds,
  tooSlow,   // for this effort
  farTooSlow // for any but the least
};

// Tells when the coder of a track cannot hold the rate of its pictures.
//
// Pictures that come in real time carry their own clock, so that no other is read: each stretch of half a
// second of their times is judged by how many of them found the line in front of the coder full. A machine
// that stalls once makes one stretch bad or two; three bad ones in a row are a machine that is too slow, and
// far too slow when half of their pictures found no room, since no effort but the least costs half of the
// full one. After a change of effort the coder is given two seconds to arrive at its next key picture and to
// work off its line. Confined to one thread.
class LoadJudge {
 public:
  // Units of the times in a second.
  explicit LoadJudge(std::int64_t timescale) : second_(timescale) {}

  // A picture was handed over; `gaveWay` tells whether one that waited gave way to it, and `effort` at what
  // effort the coder works or is about to. Times increase. A verdict against that effort is given once.
  LoadVerdict judge(std::int64_t time, bool gaveWay, CodingEffort effort);
  // How long all pictures have found room, from the last one that did not or the first one to the last one.
  std::int64_t calmTime() const { return lastTime_ - calmSince_; }

  static constexpr std::int64_t badStretches = 3;
  // A stretch is bad when one picture in so many gave way.
  static constexpr std::int64_t toleratedShare = 8;

 private:
  void begin(std::int64_t time);
  LoadVerdict endStretch();
  void endRun();

  const std::int64_t second_;
  std::optional<CodingEffort> effort_;
  std::int64_t stretchStart_ = 0;
  std::int64_t pictures_ = 0; // of the stretch
  std::int64_t gaveWay_ = 0;
  std::int64_t badRun_ = 0;
  std::int64_t runPictures_ = 0; // of the run of bad stretches
  std::int64_t runGaveWay_ = 0;
  std::int64_t calmSince_ = 0;
  std::int64_t lastTime_ = 0;
};

// The effort that the machine can hold, as the tracks of a session have found: all of them share the
// machine, so one that is too slow eases all. It outlives the segments. Within a segment it only goes down;
// a new segment begins one step higher when no track of the one before it has been strained for a minute at
// its end. Any thread.
class SharedEffort {
 public:
  CodingEffort current() const;
  // Nothing happens when another track has changed it meanwhile, or where there is nothing less.
  void stepDown(CodingEffort from, LoadVerdict verdict = LoadVerdict::tooSlow);

  // A track of the segment ends, having been calm for so long.
  void trackEnds(std::int64_t calmTime, std::int64_t timescale);
  void segmentBegins();

  static constexpr std::int64_t calmSeconds = 60;

 private:
  mutable std::mutex mutex_;
  CodingEffort effort_ = CodingEffort::full; // under the mutex
  std::optional<std::int64_t> shortestCalm_; // seconds; of the tracks that have ended; under the mutex
};

} // namespace tessarin::media
