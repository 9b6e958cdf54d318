#pragma once

#include "live/PanelWindow.hpp"
#include "live/StreamFixture.hpp"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <thread>

namespace tessarin {

constexpr int steps = 120; // of motion
// A window over the whole screen that never stands still.
inline const Arguments animation = {"--style", "override", "--paint", "counter", "--size", "640x481"};

inline bool isOfPanel(std::uint32_t value) {
  return value == (PanelWindow::colour & 0xFFFFFFU) || value == (PanelWindow::otherColour & 0xFFFFFFU);
}

class StreamExclusion : public Stream {
 protected:
  void exclude(std::int32_t process = PanelWindow::process()) {
    filter.excludedApplications.push_back({"", process, ""});
  }

  // Shows the panel and begins a stream that leaves it out. Whether that many pictures have come.
  bool beginsWithout(PanelWindow& panel, std::size_t pictures = 1) {
    panel.show();
    exclude();
    beginStream();
    return receiver->hasCome(pictures);
  }

  // Runs the motion, a step of it at a time, about 60 a second: all of them take about two seconds.
  static void during(const std::function<void(int)>& motion, int count = steps) {
    constexpr std::chrono::milliseconds step(16);
    auto next = std::chrono::steady_clock::now();
    for (int i = 0; i < count; ++i) {
      motion(i);
      next += step;
      std::this_thread::sleep_until(next);
    }
  }

  // To and fro, to every side, and over the screen's edges.
  static void wander(PanelWindow& panel, int i) {
    const auto swing = [](int position, int range) { return std::abs(position % (2 * range) - range); };
    panel.move(swing(i * 11, 560) - 30, swing(i * 7 + 130, 420) - 25);
  }

  void expectNoPanelAnywhere() const {
    std::size_t index = 0;
    for (const auto& delivery : receiver->deliveries()) {
      const auto& values = delivery.pixels.values;
      ASSERT_TRUE(std::none_of(values.begin(), values.end(), isOfPanel)) << "picture " << index;
      ++index;
    }
  }

  // Also while a panel moves, pictures keep coming; the machine may be busy with other work.
  void expectNoLongGap() const {
    const auto deliveries = receiver->deliveries();
    for (std::size_t i = 1; i < deliveries.size(); ++i) {
      EXPECT_LT((deliveries[i].time - deliveries[i - 1].time).wholeMilliseconds(), 400) << "picture " << i;
    }
  }

  // A panel that changes, too; the stream is stopped.
  void dragOverAnAnimation() {
    PanelWindow panel(desktop->display(), {-30, 100, 192, 144});
    ASSERT_TRUE(beginsWithout(panel, 2));
    during([&](int i) {
      wander(panel, i);
      panel.repaint();
    });
    stream->stopCapture();
    expectNoLongGap();
    expectNoPanelAnywhere();
  }

  // The pictures of a still desktop are all the same one.
  void expectOnly(const Pixels& plain) const {
    std::size_t index = 0;
    for (const auto& delivery : receiver->deliveries()) {
      ASSERT_TRUE(areSame(delivery.pixels, plain)) << "picture " << index;
      ++index;
    }
    EXPECT_TRUE(receiver->isUnchangedAlike());
  }
};

} // namespace tessarin
