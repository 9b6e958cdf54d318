#pragma once

#include <chrono>

namespace tessarin::x11 {

// How soon windows that have been covered come to the front again. At once, unless somebody else covers them
// each time: then they give way for longer and longer, so that two programs that both want to be in front
// don't fight for ever. Pure; times are of any steady clock.
class PanelRaising {
 public:
  using Time = std::chrono::steady_clock::time_point;
  using Duration = std::chrono::steady_clock::duration;

  // Raised at once so often in a row.
  static constexpr int burst = 12;
  // Raises are in a row when less than this, and what they waited, is between them.
  static constexpr Duration calm = std::chrono::seconds(2);
  static constexpr Duration shortestWait = std::chrono::seconds(1);
  static constexpr Duration longestWait = std::chrono::seconds(64);

  // To be asked once for each time they have been covered. How long to wait before they are raised.
  Duration waitWhenCovered(Time now);
  void noteRaised(Time now);

 private:
  int raises_ = 0; // in a row
  Time latest_;
  Duration wait_ = Duration::zero();
};

} // namespace tessarin::x11
