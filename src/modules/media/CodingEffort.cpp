#include "modules/media/CodingEffort.hpp"

#include <algorithm>

namespace tessarin::media {

LoadVerdict LoadJudge::judge(std::int64_t time, bool gaveWay, CodingEffort effort) {
  constexpr std::int64_t settlingSeconds = 2;
  const std::int64_t stretch = second_ / 2;
  if (!effort_) {
    calmSince_ = time;
    begin(time);
  } else if (effort != *effort_) {
    endRun();
    begin(time + settlingSeconds * second_);
  }
  effort_ = effort;
  lastTime_ = time;
  if (gaveWay)
    calmSince_ = time;
  if (time < stretchStart_)
    return LoadVerdict::holds; // the coder is settling
  LoadVerdict verdict = LoadVerdict::holds;
  if (time >= stretchStart_ + stretch) {
    verdict = endStretch();
    // Behind a hole in time nothing follows on anything.
    if (time >= stretchStart_ + 2 * stretch)
      endRun();
    begin(time);
  }
  ++pictures_;
  if (gaveWay)
    ++gaveWay_;
  return verdict;
}

void LoadJudge::begin(std::int64_t time) {
  stretchStart_ = time;
  pictures_ = 0;
  gaveWay_ = 0;
}

void LoadJudge::endRun() {
  badRun_ = 0;
  runPictures_ = 0;
  runGaveWay_ = 0;
}

LoadVerdict LoadJudge::endStretch() {
  if (gaveWay_ == 0 || gaveWay_ * toleratedShare < pictures_) {
    endRun();
    return LoadVerdict::holds;
  }
  runPictures_ += pictures_;
  runGaveWay_ += gaveWay_;
  if (++badRun_ < badStretches)
    return LoadVerdict::holds;
  const bool isFar = runGaveWay_ * 2 >= runPictures_;
  endRun();
  return isFar ? LoadVerdict::farTooSlow : LoadVerdict::tooSlow;
}

CodingEffort SharedEffort::current() const {
  const std::lock_guard lock(mutex_);
  return effort_;
}

void SharedEffort::stepDown(CodingEffort from, LoadVerdict verdict) {
  const std::lock_guard lock(mutex_);
  if (effort_ != from || verdict == LoadVerdict::holds)
    return;
  const bool isOneStep = effort_ == CodingEffort::full && verdict == LoadVerdict::tooSlow;
  effort_ = isOneStep ? CodingEffort::reduced : CodingEffort::least;
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
