#pragma once

#include "container/MovieJoin.hpp"
#include "modules/editing/ClipSound.hpp"
#include "modules/editing/CutStore.hpp"
#include "modules/editing/SourceFile.hpp"
#include "modules/media/AudioCoder.hpp"

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <vector>

namespace tessarin::editing {

// What becomes of a track of sound of a cut. Packets are copied, at their exact times. Each overlaps the ones
// beside it, so those around a cut are coded anew from what is heard there in the end: the sound up to the
// cut, and from there on that of the next clip. Packets of two clips do not lie on one grid; in the one
// packet before a cut in which the grids meet, the end of the clip is heard a little shifted. A player that
// puts packets in a row, whatever their times, is off by half a packet at most.
//
// A track that the recorder's coder could not go on with is coded anew whole.
//
// Confined to one thread. Throws MovieEditingFailure, media::CoderFailure and FileFailure.
class CutSound {
 public:
  // All outlive this.
  CutSound(const SourceFile& file, const container::Track& track, const std::vector<CutClip>& clips,
           CutStore& store);

  // Calls the checkpoint now and then; what that throws passes through. The track refers to this and to the
  // store.
  container::JoinTrack make(const std::function<void()>& checkpoint);

 private:
  // The packets of one clip: ones coded anew on the grid of the copied ones, those, and again ones coded
  // anew. Times are of the media of the source, in frames; the output's are by `shift` more.
  struct Plan {
    std::int64_t start = 0;
    std::int64_t end = 0;
    std::int64_t shift = 0;
    std::int64_t headTime = 0; // of the first packet of the head
    std::int64_t headCount = 0;
    std::size_t copied = 0; // samples of the source
    std::size_t behind = 0;
    std::int64_t tailTime = 0;
    std::int64_t tailCount = 0;
  };

  bool canCopy() const;
  Plan planned(const CutClip& clip, bool isFirst, bool isLast) const;
  void planWithoutCopies(Plan& plan) const;
  void fit();
  std::int64_t firstTime(const Plan& plan) const;
  std::int64_t packets(const Plan& plan) const;
  std::int64_t timeOf(const Plan& plan, std::int64_t packet) const;
  void keep(Plan& plan, std::int64_t count) const;

  container::JoinTrack makeWhole(const std::function<void()>& checkpoint);
  void addCoded(container::JoinTrack& joined, const Plan& plan, std::int64_t time, std::int64_t count,
                std::int64_t end, const std::function<void()>& checkpoint);
  void addCopied(container::JoinTrack& joined, const Plan& plan);
  void addPiece(container::JoinTrack& joined, const OpenFile& file, const container::Track& track,
                const Plan& plan, std::int64_t start, std::int64_t end);
  container::Track& newTrack();
  std::vector<container::Sample> coded(std::int64_t outputTime, std::int64_t count,
                                       const std::function<void()>& checkpoint);

  const SourceFile& file_;
  const container::Track& track_;
  const std::vector<CutClip>& clips_;
  CutStore& store_;
  ClipSound sound_;
  std::vector<Plan> plans_;
  std::deque<container::Track> tracks_; // what the pieces refer to
};

} // namespace tessarin::editing
