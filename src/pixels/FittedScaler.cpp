#include "pixels/FittedScaler.hpp"

#include "pixels/Kernels.hpp"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace tessarin::pixels {

namespace {

constexpr std::size_t pixelBytes = 4;
constexpr int wholeWeight = 1 << weightBits;

// One direction of a fitted scaling, as the kernels take it.
struct Direction {
  std::vector<std::int32_t> first;
  std::vector<std::int16_t> weights;
  std::int32_t taps = 2;

  ScaleTaps view() const { return {first, weights, taps}; }
};

// The part of the source that target pixel `index` shows, in source pixels.
struct Span {
  double from, to;
};

// Weights by the share that each source pixel has in the span. Rounding the running sum, not each share,
// keeps the sum whole.
void addAreaWeights(const Span& span, std::int32_t sourceLength, Direction& direction) {
  const double from = std::clamp(span.from, 0.0, static_cast<double>(sourceLength));
  const double to = std::clamp(span.to, from, static_cast<double>(sourceLength));
  const auto first = std::min(static_cast<std::int32_t>(std::floor(from + 1e-9)), sourceLength - 1);
  direction.first.push_back(first);
  int before = 0;
  for (std::int32_t tap = 0; tap < direction.taps; ++tap) {
    const double covered = std::clamp(first + tap + 1.0, from, to) - from;
    const int sum = tap + 1 == direction.taps
                        ? wholeWeight
                        : static_cast<int>(std::lround(covered / (to - from) * wholeWeight));
    direction.weights.push_back(static_cast<std::int16_t>(sum - before));
    before = sum;
  }
}

void addBilinearWeights(const Span& span, std::int32_t sourceLength, Direction& direction) {
  const double center = std::clamp((span.from + span.to) / 2 - 0.5, 0.0, sourceLength - 1.0);
  const auto first = static_cast<std::int32_t>(std::floor(center));
  const auto second = static_cast<int>(std::lround((center - first) * wholeWeight));
  direction.first.push_back(first);
  direction.weights.push_back(static_cast<std::int16_t>(wholeWeight - second));
  direction.weights.push_back(static_cast<std::int16_t>(second));
}

// Leaves out the last taps, two by two, where no target pixel needs them.
void trim(Direction& direction) {
  const auto taps = static_cast<std::size_t>(direction.taps);
  std::size_t needed = 2;
  for (std::size_t i = 0; i < direction.weights.size(); ++i)
    if (direction.weights[i] != 0)
      needed = std::max(needed, (i % taps + 2) / 2 * 2);
  std::vector<std::int16_t> kept;
  for (std::size_t i = 0; i < direction.weights.size(); ++i)
    if (i % taps < needed)
      kept.push_back(direction.weights[i]);
  direction.weights = std::move(kept);
  direction.taps = static_cast<std::int32_t>(needed);
}

// One direction of a FittedArea.
struct Extent {
  std::int32_t pixels;
  double from, to;
  bool isMirrored;

  bool isWhole() const { return from == 0 && to == pixels; }
};

Direction makeDirection(std::int32_t sourceLength, const Extent& target, double scale) {
  Direction direction;
  const double step = 1 / scale;
  // Of the source, or of its mirror image: what the target's first pixel would begin with, were it whole.
  double start = (sourceLength - (target.from + target.to) * step) / 2;
  if (scale == 1 && target.isWhole())
    start = std::floor(start);
  if (scale < 1) {
    const auto touched = std::min(static_cast<std::int32_t>(std::ceil(step - 1e-9)) + 1, sourceLength);
    direction.taps = touched + touched % 2;
  }
  for (std::int32_t i = 0; i < target.pixels; ++i) {
    Span span{start + std::max<double>(i, target.from) * step,
              start + std::min<double>(i + 1, target.to) * step};
    if (target.isMirrored)
      span = {sourceLength - span.to, sourceLength - span.from};
    if (scale < 1)
      addAreaWeights(span, sourceLength, direction);
    else
      addBilinearWeights(span, sourceLength, direction);
  }
  trim(direction);
  return direction;
}

} // namespace

struct FittedScaler::Plan {
  std::int32_t sourceWidth, sourceHeight, targetWidth, targetHeight;
  bool isCopy;                  // factor one: a crop
  Direction columns{}, lines{}; // columns from the first one that is needed
  std::int32_t firstColumn = 0; // of the source's columns that are needed
  std::int32_t columnCount = 0;
  std::vector<std::int16_t> combined{};          // one row of these, and room for the last taps
  std::vector<std::uint8_t> band{};              // two target rows on their way to be converted
  std::vector<const std::uint8_t*> sourceRows{}; // the taps of one target row

  PictureView cropped(const PictureView& source) const {
    PictureView view = source;
    view.data += (sourceHeight - targetHeight) / 2 * source.stride +
                 (sourceWidth - targetWidth) / 2 * static_cast<std::ptrdiff_t>(pixelBytes);
    view.width = targetWidth;
    view.height = targetHeight;
    return view;
  }

  void leaveOutColumns() {
    const auto [first, last] = std::minmax_element(columns.first.begin(), columns.first.end());
    firstColumn = *first;
    columnCount = std::min(*last + columns.taps, sourceWidth) - firstColumn;
    for (std::int32_t& column : columns.first)
      column -= firstColumn;
  }

  void scaleRow(const PictureView& source, std::int32_t y, std::uint8_t* target) {
    const auto taps = static_cast<std::size_t>(lines.taps);
    const auto line = static_cast<std::size_t>(y);
    for (std::size_t tap = 0; tap < taps; ++tap)
      sourceRows[tap] =
          rowOf(source, std::min(lines.first[line] + static_cast<std::int32_t>(tap), sourceHeight - 1)) +
          firstColumn * static_cast<std::ptrdiff_t>(pixelBytes);
    kernels().combineRows(sourceRows.data(), lines.weights.data() + line * taps, taps,
                          static_cast<std::size_t>(columnCount) * pixelBytes, combined.data());
    kernels().resampleRow(combined.data(), columns.view(), target);
  }
};

FittedScaler::FittedScaler(std::int32_t sourceWidth, std::int32_t sourceHeight, std::int32_t targetWidth,
                           std::int32_t targetHeight)
    : FittedScaler(sourceWidth, sourceHeight, FittedArea::whole(targetWidth, targetHeight)) {}

FittedScaler::FittedScaler(std::int32_t sourceWidth, std::int32_t sourceHeight, const FittedArea& area) {
  const Extent across{area.width, area.left, area.right, area.isMirrored};
  const Extent along{area.height, area.top, area.bottom, false};
  const double scale =
      std::max((area.right - area.left) / sourceWidth, (area.bottom - area.top) / sourceHeight);
  const bool isCopy = scale == 1 && across.isWhole() && along.isWhole() && !area.isMirrored;
  plan_ = std::make_unique<Plan>(Plan{sourceWidth, sourceHeight, area.width, area.height, isCopy});
  if (plan_->isCopy)
    return;
  plan_->columns = makeDirection(sourceWidth, across, scale);
  plan_->lines = makeDirection(sourceHeight, along, scale);
  plan_->leaveOutColumns();
  const std::size_t room =
      static_cast<std::size_t>(plan_->columnCount) + static_cast<std::size_t>(plan_->columns.taps);
  plan_->combined.assign(room * pixelBytes, 0);
  plan_->band.resize(2 * static_cast<std::size_t>(area.width) * pixelBytes);
  plan_->sourceRows.resize(static_cast<std::size_t>(plan_->lines.taps));
}

FittedScaler::~FittedScaler() = default;
FittedScaler::FittedScaler(FittedScaler&&) noexcept = default;
FittedScaler& FittedScaler::operator=(FittedScaler&&) noexcept = default;

bool FittedScaler::takes(const PictureView& source) const {
  return source.width == plan_->sourceWidth && source.height == plan_->sourceHeight;
}

void FittedScaler::scale(const PictureView& source, const Canvas& target) {
  const PictureView cropped = plan_->cropped(source);
  for (std::int32_t y = 0; y < plan_->targetHeight; ++y) {
    if (plan_->isCopy)
      std::copy_n(rowOf(cropped, y), static_cast<std::size_t>(plan_->targetWidth) * pixelBytes,
                  target.row(y));
    else
      plan_->scaleRow(source, y, target.row(y));
  }
}

void FittedScaler::scaleToI420(const PictureView& source, const I420Planes& target) {
  if (plan_->isCopy) {
    convertToI420(plan_->cropped(source), target);
    return;
  }
  const auto stride = static_cast<std::ptrdiff_t>(plan_->band.size() / 2);
  const PictureView band{plan_->band.data(), plan_->targetWidth, 2, stride, source.format};
  for (std::int32_t y = 0; y + 1 < plan_->targetHeight; y += 2) {
    plan_->scaleRow(source, y, plan_->band.data());
    plan_->scaleRow(source, y + 1, plan_->band.data() + stride);
    convertToI420(band, {target.y + y * target.yStride, target.u + y / 2 * target.uStride,
                         target.v + y / 2 * target.vStride, target.yStride, target.uStride, target.vStride});
  }
}

} // namespace tessarin::pixels
