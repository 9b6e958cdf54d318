#include "backends/x11/PanelRaising.hpp"

#include <algorithm>

namespace tessarin::x11 {

PanelRaising::Duration PanelRaising::waitWhenCovered(Time now) {
  if (raises_ > 0 && now - latest_ >= calm + wait_) {
    raises_ = 0;
    wait_ = Duration::zero();
  }
  if (raises_ >= burst) {
    wait_ = std::clamp(wait_ * 2, shortestWait, longestWait);
  }
  return wait_;
}

void PanelRaising::noteRaised(Time now) {
  ++raises_;
  latest_ = now;
}

} // namespace tessarin::x11
