#include "editing/ExportProgress.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace tessarin {

namespace {

constexpr auto quietTime = MediaTime::milliseconds(1000);
constexpr auto interval = MediaTime::milliseconds(250);
constexpr int whole = 1000; // permille

// "\r[##########                    ]  33 %  0:12"
std::string bar(int permille, std::int64_t elapsedMs) {
  constexpr int width = 30;
  const auto filled = static_cast<std::size_t>(permille * width / 1000);
  std::string text = "\r[";
  text.append(filled, '#');
  text.append(width - filled, ' ');
  std::array<char, 48> figures{};
  const std::int64_t seconds = elapsedMs / 1000;
  std::snprintf(figures.data(), figures.size(), "] %3d %%  %lld:%02lld", permille / 10,
                static_cast<long long>(seconds / 60), static_cast<long long>(seconds % 60));
  return text.append(figures.data());
}

} // namespace

ExportProgress::ExportProgress(const HostClock& clock, ProgressOutput output)
    : clock_(clock), output_(std::move(output)), begin_(clock.now()), next_(begin_ + quietTime) {}

ExportProgress::~ExportProgress() {
  if (hasBar_)
    output_.terminal("\n");
}

void ExportProgress::report(int permille) {
  const MediaTime now = clock_.now();
  const int bounded = std::clamp(permille, 0, whole);
  // A bar that is there is filled when all is done, however soon that comes.
  const bool isLastOfBar = hasBar_ && bounded == whole;
  if ((now < next_ && !isLastOfBar) || bounded == lastPermille_)
    return;
  next_ = now + interval;
  lastPermille_ = bounded;
  const std::int64_t elapsedMs = (now - begin_).wholeMilliseconds();
  if (output_.terminal) {
    output_.terminal(bar(bounded, elapsedMs));
    hasBar_ = true;
  } else {
    output_.lines(DiagnosticsLine("tessarin-native export-progress")
                      .item("permille", bounded)
                      .item("elapsedMs", elapsedMs)
                      .text());
  }
}

} // namespace tessarin
