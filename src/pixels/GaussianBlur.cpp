#include "pixels/GaussianBlur.hpp"

#include "pixels/Compose.hpp"
#include "pixels/Kernels.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

namespace tessarin::pixels {

namespace {

constexpr std::size_t channels = 4;
constexpr int wholeWeight = 1 << weightBits;
constexpr double reachInDeviations = 3.2;
constexpr double leastDeviationToShrink = 4; // pixels
constexpr double leastSmallDeviation = 3;    // of a picture that is more than halved, in its own pixels

// The power of two that the picture is made smaller by; 0 for what is to be blurred as it is. Two linear
// steps of two are the same at each pixel, so that they may be taken earlier.
int shrinkBitsFor(double deviation) {
  if (deviation < leastDeviationToShrink)
    return 0;
  int bits = 1;
  while (deviation / (2 << bits) >= leastSmallDeviation)
    ++bits;
  return bits;
}

// What is left of the Gaussian between shrinking and enlarging, in the smaller picture's pixels. Each of the
// two widens it by n^2 / 6 + 1 / 12.
double smallDeviation(double deviation, int bits) {
  const double side = 1 << bits;
  return std::sqrt((deviation * deviation - 1.0 / 6) / (side * side) - 1.0 / 3);
}

std::int32_t radiusFor(double deviation) {
  return std::max(static_cast<std::int32_t>(std::ceil(deviation * reachInDeviations)), 1);
}

bool isBlur(double deviation) {
  return deviation > 0;
}

// The last row and column again and again, around what is there.
void extendPixels(std::int16_t* pixels, std::int32_t before, std::int32_t there, std::int32_t after) {
  constexpr std::size_t size = channels * sizeof(std::int16_t);
  std::int16_t* const first = pixels + static_cast<std::ptrdiff_t>(before) * 4;
  std::int16_t* const last = first + static_cast<std::ptrdiff_t>(there - 1) * 4;
  for (std::int32_t i = 0; i < before; ++i)
    std::memcpy(pixels + static_cast<std::ptrdiff_t>(i) * 4, first, size);
  for (std::int32_t i = 1; i <= after; ++i)
    std::memcpy(last + static_cast<std::ptrdiff_t>(i) * 4, last, size);
}

std::int32_t floorDiv(std::int32_t value, int bits) {
  return value >> bits; // rounds down for negative ones too
}

} // namespace

// One direction of the smaller picture. The middle of its cell i is that of the n pixels from i * n on; the
// cell has its share of twice as many, the less the farther they are from there. All cells up to -2, and all
// from the first one on that is wholly beyond the last pixel, are alike.
struct GaussianBlur::Cells {
  std::int32_t length;     // of the source, in pixels
  std::int32_t from, to;   // of the target, in pixels
  int bits;                // n is 1 << bits
  std::int32_t radius;     // of the Gaussian, in cells
  std::int32_t first, end; // cells that the target is enlarged from
  std::int32_t firstMade, endMade;

  Cells(std::int32_t sourceLength, std::int32_t targetFrom, std::int32_t targetTo, int shrinkBits,
        std::int32_t cellRadius)
      : length(sourceLength), from(targetFrom), to(targetTo), bits(shrinkBits), radius(cellRadius),
        first(cellBefore(targetFrom)), end(cellBefore(targetTo - 1) + 2),
        firstMade(std::clamp(first - radius, -2, beyond())),
        endMade(std::clamp(end + radius, -1, beyond() + 1)) {}

  std::int32_t side() const { return 1 << bits; }
  std::int32_t beyond() const { return floorDiv(length + side() / 2 + side() - 1, bits); }
  // The first pixel that a cell has a share of.
  std::int32_t begin(std::int32_t cell) const { return cell * side() - side() / 2; }
  std::int32_t count() const { return end - first; }
  std::int32_t made() const { return endMade - firstMade; }
  std::int32_t nearestMade(std::int32_t cell) const { return std::clamp(cell, firstMade, endMade - 1); }
  // The cell whose middle is the last one before a pixel's, or at it.
  std::int32_t cellBefore(std::int32_t pixel) const { return floorDiv(pixel - side() / 2, bits); }
  // How near the next cell's middle is, as a weight: in halves of pixels the middles are n * 2 apart.
  std::int16_t placeOf(std::int32_t pixel) const {
    const std::int32_t halves = 2 * (pixel - cellBefore(pixel) * side()) + 1 - side();
    return static_cast<std::int16_t>((halves * wholeWeight) >> (bits + 1));
  }
};

std::int32_t GaussianBlur::reach(double deviation) {
  if (!isBlur(deviation))
    return 0;
  deviation = std::min(deviation, largestDeviation);
  const int bits = shrinkBitsFor(deviation);
  return bits == 0 ? radiusFor(deviation) : (radiusFor(smallDeviation(deviation, bits)) + 2) << bits;
}

void GaussianBlur::blur(const PictureView& source, const PixelArea& area, double deviation,
                        const Canvas& target) {
  if (area.isEmpty())
    return;
  deviation = std::min(deviation, largestDeviation);
  if (!isBlur(deviation)) {
    if (target.data != partOf(source, area).data)
      copyPixels(partOf(source, area), target, 0, 0);
  } else if (shrinkBitsFor(deviation) == 0) {
    blurDirectly(source, area, deviation, target);
  } else {
    blurSmall(source, area, deviation, target);
  }
}

// The middle one takes what rounding the others leaves, so that they are symmetric and their sum is whole.
void GaussianBlur::setWeights(double deviation) {
  const std::int32_t radius = radiusFor(deviation);
  const auto valueAt = [&](std::int32_t x) { return std::exp(-0.5 * x * x / (deviation * deviation)); };
  double sum = 1;
  for (std::int32_t x = 1; x <= radius; ++x)
    sum += 2 * valueAt(x);
  weights_.assign(2 * static_cast<std::size_t>(radius) + 2, 0);
  const auto middle = weights_.begin() + radius;
  int rest = wholeWeight;
  for (std::int32_t x = 1; x <= radius; ++x) {
    middle[x] = middle[-x] = static_cast<std::int16_t>(std::lround(valueAt(x) / sum * wholeWeight));
    rest -= 2 * middle[x];
  }
  *middle = static_cast<std::int16_t>(rest);
}

// Row by row across, into a ring of as many rows as are needed for one of the target. Those are read before
// anything is written over them.
void GaussianBlur::blurDirectly(const PictureView& source, const PixelArea& area, double deviation,
                                const Canvas& target) {
  setWeights(deviation);
  const std::int32_t reach = radius();
  const std::size_t taps = weights_.size();
  const std::int32_t from = std::max(area.left - reach, 0);
  const std::int32_t to = std::min(area.right + reach, source.width);
  const std::size_t words = static_cast<std::size_t>(area.width()) * channels;
  const auto ring = 2 * reach + 1;
  line_.resize((static_cast<std::size_t>(area.width()) + taps) * channels);
  words_.resize(words * static_cast<std::size_t>(ring));
  byteRows_.resize(taps);
  wordRows_.resize(taps);
  for (std::size_t tap = 0; tap < taps; ++tap)
    byteRows_[tap] = line_.data() + std::min(tap, taps - 2) * channels;
  const Canvas extended{line_.data(), area.width() + 2 * reach, 1, 0};
  const Borders borders{from - (area.left - reach), 0, area.right + reach - to, 0};
  const auto rowInRing = [&](std::int32_t y) {
    return words_.data() + static_cast<std::size_t>(y % ring) * words;
  };
  std::int32_t nextRow = std::max(area.top - reach, 0);
  for (std::int32_t y = area.top; y < area.bottom; ++y) {
    for (; nextRow <= std::min(y + reach, source.height - 1); ++nextRow) {
      std::memcpy(line_.data() + static_cast<std::size_t>(borders.left) * channels,
                  rowOf(source, nextRow) + static_cast<std::ptrdiff_t>(from) * 4,
                  static_cast<std::size_t>(to - from) * channels);
      extendEdges(extended, borders);
      kernels().combineRows(byteRows_.data(), weights_.data(), taps, words, rowInRing(nextRow));
    }
    for (std::size_t tap = 0; tap < taps; ++tap) {
      const std::int32_t row = y - reach + std::min(static_cast<std::int32_t>(tap), 2 * reach);
      wordRows_[tap] = rowInRing(std::clamp(row, 0, source.height - 1));
    }
    kernels().combineWordsToBytes(wordRows_.data(), weights_.data(), taps, words, target.row(y - area.top));
  }
}

void GaussianBlur::blurSmall(const PictureView& source, const PixelArea& area, double deviation,
                             const Canvas& target) {
  const int bits = shrinkBitsFor(deviation);
  setWeights(smallDeviation(deviation, bits));
  const Cells columns(source.width, area.left, area.right, bits, radius());
  const Cells lines(source.height, area.top, area.bottom, bits, radius());
  shrink(source, columns, lines);
  blurCells(columns, lines);
  enlarge(columns, lines, target);
}

// Makes the cells of each line, and blurs them across.
void GaussianBlur::shrink(const PictureView& source, const Cells& columns, const Cells& lines) {
  const std::size_t taps = weights_.size();
  const std::size_t words = static_cast<std::size_t>(columns.count()) * channels;
  const std::int32_t before = columns.firstMade - (columns.first - columns.radius);
  const std::int32_t after = columns.end + columns.radius - columns.endMade;
  small_.resize(words * static_cast<std::size_t>(lines.made()));
  blurred_.resize((static_cast<std::size_t>(before + columns.made() + after) + 1) * channels);
  wordRows_.resize(taps);
  for (std::size_t tap = 0; tap < taps; ++tap)
    wordRows_[tap] = blurred_.data() + std::min(tap, taps - 2) * channels;
  setCellWeights(columns);
  for (std::int32_t line = 0; line < lines.made(); ++line) {
    shrinkLine(source, columns, lines.firstMade + line,
               blurred_.data() + static_cast<std::size_t>(before) * channels);
    extendPixels(blurred_.data(), before, columns.made(), after);
    kernels().combineWords(wordRows_.data(), weights_.data(), taps, words,
                           small_.data() + static_cast<std::size_t>(line) * words);
  }
}

void GaussianBlur::shrinkLine(const PictureView& source, const Cells& columns, std::int32_t line,
                              std::int16_t* target) {
  const std::int32_t taps = 2 * columns.side();
  const std::int32_t begin = columns.begin(columns.firstMade);
  const std::int32_t end = columns.begin(columns.endMade - 1) + taps;
  const std::int32_t from = std::clamp(begin, 0, source.width - 1);
  const std::int32_t to = std::clamp(end, from + 1, source.width);
  const std::int32_t top = columns.begin(line);
  byteRows_.resize(static_cast<std::size_t>(taps));
  for (std::int32_t tap = 0; tap < taps; ++tap)
    byteRows_[static_cast<std::size_t>(tap)] =
        rowOf(source, std::clamp(top + tap, 0, source.height - 1)) + static_cast<std::ptrdiff_t>(from) * 4;
  words_.resize(static_cast<std::size_t>(end - begin) * channels);
  kernels().combineRows(byteRows_.data(), places_.data(), byteRows_.size(),
                        static_cast<std::size_t>(to - from) * channels,
                        words_.data() + static_cast<std::size_t>(from - begin) * channels);
  extendPixels(words_.data(), from - begin, to - from, end - to);
  kernels().resampleWords(words_.data(), {first_, places_, taps}, target);
}

// The same weights for each cell: how far a pixel is from the middle of the next one, as a running sum, whose
// rounding keeps the whole.
void GaussianBlur::setCellWeights(const Cells& columns) {
  const std::int32_t side = columns.side();
  const auto sumUpTo = [&](std::int32_t tap) {
    const double part = static_cast<double>(tap) / side;
    const double share = tap <= side ? part * part / 2 : 1 - (2 - part) * (2 - part) / 2;
    return static_cast<int>(std::lround(share * wholeWeight));
  };
  first_.clear();
  places_.clear();
  for (std::int32_t cell = 0; cell < columns.made(); ++cell) {
    first_.push_back(cell * side);
    for (std::int32_t tap = 0; tap < 2 * side; ++tap)
      places_.push_back(static_cast<std::int16_t>(sumUpTo(tap + 1) - sumUpTo(tap)));
  }
}

void GaussianBlur::blurCells(const Cells& columns, const Cells& lines) {
  const std::size_t taps = weights_.size();
  const std::size_t words = static_cast<std::size_t>(columns.count()) * channels;
  blurred_.resize(words * static_cast<std::size_t>(lines.count()));
  for (std::int32_t line = 0; line < lines.count(); ++line) {
    for (std::size_t tap = 0; tap < taps; ++tap) {
      const std::int32_t row =
          lines.first + line - lines.radius + std::min(static_cast<std::int32_t>(tap), 2 * lines.radius);
      wordRows_[tap] =
          small_.data() + static_cast<std::size_t>(lines.nearestMade(row) - lines.firstMade) * words;
    }
    kernels().combineWords(wordRows_.data(), weights_.data(), taps, words,
                           blurred_.data() + static_cast<std::size_t>(line) * words);
  }
}

void GaussianBlur::enlarge(const Cells& columns, const Cells& lines, const Canvas& target) {
  const std::size_t words = static_cast<std::size_t>(columns.count()) * channels;
  const auto width = static_cast<std::size_t>(target.width);
  first_.resize(width);
  places_.resize(2 * width);
  for (std::size_t x = 0; x < width; ++x) {
    const std::int32_t pixel = columns.from + static_cast<std::int32_t>(x);
    first_[x] = columns.cellBefore(pixel) - columns.first;
    places_[2 * x + 1] = columns.placeOf(pixel);
    places_[2 * x] = static_cast<std::int16_t>(wholeWeight - places_[2 * x + 1]);
  }
  words_.resize(words);
  for (std::int32_t y = 0; y < target.height; ++y) {
    const std::int32_t pixel = lines.from + y;
    const auto row = static_cast<std::size_t>(lines.cellBefore(pixel) - lines.first);
    const std::int16_t* const rows[2] = {blurred_.data() + row * words, blurred_.data() + (row + 1) * words};
    const std::int16_t place = lines.placeOf(pixel);
    const std::int16_t weights[2] = {static_cast<std::int16_t>(wholeWeight - place), place};
    kernels().combineWords(rows, weights, 2, words, words_.data());
    kernels().resampleRow(words_.data(), {first_, places_, 2}, target.row(y));
  }
}

} // namespace tessarin::pixels
