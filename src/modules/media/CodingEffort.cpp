#include "modules/media/CodingEffort.hpp"

#include <algorithm>

namespace tessarin::media {

bool LoadJudge::findsTooSlow(std::int64_t time, bool gaveWay, CodingEffort effort) {
  constexpr std::int64_t settlingSeconds = 2;
  const std::int64_t stretch = second_ / 2;
  if (!effort_) {
    calmSince_ = time;
    begin(time);
  } else if (effort != *effort_) {
    badRun_ = 0;
    begin(time + settlingSeconds * second_);
  }
  effort_ = effort;
  lastTime_ = time;
  if (gaveWay)
    calmSince_ = time;
  if (time < stretchStart_)
    return false; // the coder is settling
  if (time >= stretchStart_ + stretch) {
    endStretch();
    // Behind a hole in time nothing follows on anything.
    if (time >= stretchStart_ + 2 * stretch)
      badRun_ = 0;
    begin(time);
  }
  ++pictures_;
  if (gaveWay)
    ++gaveWay_;
  if (badRun_ < badStretches)
    return false;
  badRun_ = 0;
  return true;
}

void LoadJudge::begin(std::int64_t time) {
  stretchStart_ = time;
  pictures_ = 0;
  gaveWay_ = 0;
}

void LoadJudge::endStretch() {
  const bool isBad = gaveWay_ > 0 && gaveWay_ * toleratedShare >= pictures_;
  badRun_ = isBad ? badRun_ + 1 : 0;
}

CodingEffort SharedEffort::current() const {
  const std::lock_guard lock(mutex_);
  return effort_;
}

void SharedEffort::stepDown(CodingEffort from) {
  const std::lock_guard lock(mutex_);
  if (effort_ == from && effort_ != CodingEffort::least)
    effort_ = effort_ == CodingEffort::full ? CodingEffort::reduced : CodingEffort::least;
}

void SharedEffort::trackEnds(std::int64_t calmTime, std::int64_t timescale) {
  const std::lock_guard lock(mutex_);
  const std::int64_t seconds = calmTime / timescale;
  shortestCalm_ = std::min(shortestCalm_.value_or(seconds), seconds);
}

void SharedEffort::segmentBegins() {
  const std::lock_guard lock(mutex_);
  if (shortestCalm_ && *shortestCalm_ >= calmSeconds && effort_ != CodingEffort::full)
    effort_ = effort_ == CodingEffort::least ? CodingEffort::reduced : CodingEffort::full;
  shortestCalm_.reset();
}

} // namespace tessarin::media
