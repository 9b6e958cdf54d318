#include "pixels/AffineResampler.hpp"

#include "pixels/Compose.hpp"
#include "pixels/Kernels.hpp"
#include "pixels/PixelArea.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>
#include <utility>

namespace tessarin::pixels {

namespace {

constexpr std::size_t pixelBytes = 4;
constexpr double little = 1.0 / 1024; // of a pixel

double determinantOf(const AffineTransform& transform) {
  return transform.a * transform.d - transform.b * transform.c;
}

bool canBeDrawn(const AffineTransform& transform) {
  const double determinant = determinantOf(transform);
  const double inverse = 1 / determinant;
  return std::isfinite(transform.tx) && std::isfinite(transform.ty) && std::isfinite(determinant) &&
         std::isfinite(inverse) && determinant != 0;
}

void clear(const Canvas& target) {
  for (std::int32_t y = 0; y < target.height; ++y)
    std::memset(target.row(y), 0, static_cast<std::size_t>(target.width) * pixelBytes);
}

void makeFourthsOpaque(const Canvas& target) {
  for (std::int32_t y = 0; y < target.height; ++y)
    for (std::int32_t x = 0; x < target.width; ++x)
      target.row(y)[static_cast<std::size_t>(x) * pixelBytes + 3] = 255;
}

// Where an image begins whose points are scaled by `sign` and then moved; nothing unless at a whole pixel.
std::optional<std::int64_t> firstPixelOf(double offset, bool isReversed, std::int32_t length) {
  const double nearest = std::round(offset);
  if (std::abs(offset - nearest) > little || std::abs(nearest) > 1e9)
    return std::nullopt;
  return static_cast<std::int64_t>(nearest) - (isReversed ? length : 0);
}

// The part of 0 to `length` of a target that an image of so many pixels covers, which begins at `first`.
struct Covered {
  std::int64_t first, from, to;

  Covered(std::int64_t begin, std::int32_t image, std::int32_t length)
      : first(begin), from(std::clamp<std::int64_t>(begin, 0, length)),
        to(std::clamp<std::int64_t>(begin + image, 0, length)) {}
  bool isEmpty() const { return from >= to; }
};

bool needsOpaque(const PictureView& source, const Canvas& target) {
  return source.format == PixelFormat::bgrx8 && target.format == PixelFormat::bgra8Premultiplied;
}

// The inverse, to be asked for places in the source.
AffineTransform inverseOf(const AffineTransform& transform) {
  const double determinant = determinantOf(transform);
  const AffineTransform linear{transform.d / determinant,
                               -transform.b / determinant,
                               -transform.c / determinant,
                               transform.a / determinant,
                               0,
                               0};
  return {linear.a,
          linear.b,
          linear.c,
          linear.d,
          -(linear.a * transform.tx + linear.c * transform.ty),
          -(linear.b * transform.tx + linear.d * transform.ty)};
}

// As the kernels count; what is farther than any picture is as far as that.
constexpr double farthest = 1 << 28;
constexpr double longestStep = 1 << 16;

std::int64_t fixed(double place, double most) {
  constexpr double one = 4294967296.0;
  return std::llround(std::clamp(place, -most, most) * one);
}

Canvas canvasOf(std::vector<std::uint8_t>& bytes, std::int32_t width, std::int32_t height,
                PixelFormat format) {
  const std::size_t stride = static_cast<std::size_t>(width) * pixelBytes;
  bytes.resize(stride * static_cast<std::size_t>(height));
  return {bytes.data(), width, height, static_cast<std::ptrdiff_t>(stride), format};
}

} // namespace

AffineTransform coveringPlacement(std::int32_t width, std::int32_t height, const RectDTO& rect) {
  const double scale = std::max(rect.width / width, rect.height / height);
  return {scale,
          0,
          0,
          scale,
          rect.x + (rect.width - width * scale) / 2,
          rect.y + (rect.height - height * scale) / 2};
}

AffineResampler::AffineResampler() = default;
AffineResampler::~AffineResampler() = default;
AffineResampler::AffineResampler(AffineResampler&&) noexcept = default;
AffineResampler& AffineResampler::operator=(AffineResampler&&) noexcept = default;

void AffineResampler::draw(const PictureView& source, const AffineTransform& placement, Edges edges,
                           const Canvas& target) {
  if (!canBeDrawn(placement)) {
    clear(target);
    return;
  }
  const double longest = std::max({source.width, source.height, target.width, target.height});
  if (const auto orientation = orientationOf(placement, longest))
    copy(source, placement, *orientation, edges, target);
  else if (std::max(std::abs(placement.b), std::abs(placement.c)) * longest < little)
    drawUpright(source, placement, edges, target);
  else if (std::max(std::abs(placement.a), std::abs(placement.d)) * longest < little)
    drawTurned(source, placement, edges, target);
  else
    drawSampled(source, placement, edges, target);
}

// Falls back on resampling where the image lies between pixels, or beside the target.
void AffineResampler::copy(const PictureView& source, const AffineTransform& placement,
                           const Orientation& orientation, Edges edges, const Canvas& target) {
  const std::int32_t width = orientation.isTransposed ? source.height : source.width;
  const std::int32_t height = orientation.isTransposed ? source.width : source.height;
  const auto left = firstPixelOf(placement.tx, orientation.isMirrored, width);
  const auto top = firstPixelOf(placement.ty, orientation.isFlipped, height);
  const Covered across(left.value_or(0), width, target.width);
  const Covered along(top.value_or(0), height, target.height);
  if (!left || !top || across.isEmpty() || along.isEmpty()) {
    AffineTransform settled =
        orientation.isTransposed ? AffineTransform{0, 1, 1, 0, 0, 0} : AffineTransform{};
    (orientation.isTransposed ? settled.c : settled.a) = orientation.isMirrored ? -1 : 1;
    (orientation.isTransposed ? settled.b : settled.d) = orientation.isFlipped ? -1 : 1;
    settled.tx = placement.tx;
    settled.ty = placement.ty;
    orientation.isTransposed ? drawTurned(source, settled, edges, target)
                             : drawUpright(source, settled, edges, target);
    return;
  }
  // The same parts of the image, and, backwards, of the source.
  const auto part = [](const Covered& covered, bool isReversed, std::int32_t length) {
    const auto from = static_cast<std::int32_t>(covered.from - covered.first);
    const auto to = static_cast<std::int32_t>(covered.to - covered.first);
    return isReversed ? std::pair(length - to, length - from) : std::pair(from, to);
  };
  const auto columns = part(across, orientation.isMirrored, width);
  const auto lines = part(along, orientation.isFlipped, height);
  const PixelArea from = orientation.isTransposed
                             ? PixelArea{lines.first, columns.first, lines.second, columns.second}
                             : PixelArea{columns.first, lines.first, columns.second, lines.second};
  const PixelArea to{static_cast<std::int32_t>(across.from), static_cast<std::int32_t>(along.from),
                     static_cast<std::int32_t>(across.to), static_cast<std::int32_t>(along.to)};
  const bool isWhole = to == areaOf(target);
  if (!isWhole && edges == Edges::transparent)
    clear(target);
  orientPixels(partOf(source, from), orientation, partOf(target, to));
  if (needsOpaque(source, target))
    makeFourthsOpaque(partOf(target, to));
  if (!isWhole && edges == Edges::clamped)
    extendEdges(target, {to.left, to.top, target.width - to.right, target.height - to.bottom});
}

void AffineResampler::drawUpright(const PictureView& source, const AffineTransform& placement, Edges edges,
                                  const Canvas& target) {
  columns_.fill({source.width, target.width, placement.a, placement.tx}, edges);
  lines_.fill({source.height, target.height, placement.d, placement.ty}, edges);
  const ScaleTaps columns = columns_.taps();
  const ScaleTaps lines = lines_.taps();
  const auto taps = static_cast<std::size_t>(lines.taps);
  rows_.resize(taps);
  const std::size_t needed = static_cast<std::size_t>(columns_.neededCount()) * pixelBytes;
  combined_.resize(needed + static_cast<std::size_t>(columns.taps) * pixelBytes);
  std::fill(combined_.begin() + static_cast<std::ptrdiff_t>(needed), combined_.end(), std::int16_t{0});
  for (std::size_t line = 0; line < lines.first.size(); ++line) {
    std::uint8_t* row = target.row(static_cast<std::int32_t>(line));
    for (std::size_t tap = 0; tap < taps; ++tap) {
      const std::int32_t y = lines_.firstNeeded() + lines.first[line] + static_cast<std::int32_t>(tap);
      rows_[tap] = rowOf(source, std::min(y, source.height - 1)) +
                   static_cast<std::ptrdiff_t>(columns_.firstNeeded()) * 4;
    }
    kernels().combineRows(rows_.data(), lines.weights.data() + line * taps, taps, needed, combined_.data());
    kernels().resampleRow(combined_.data(), columns, row);
    if (needsOpaque(source, target))
      makeOpaque(line, target);
  }
}

// Rounded as the kernels do it, so that no channel is more than its alpha.
void AffineResampler::makeOpaque(std::size_t line, const Canvas& target) const {
  const int combined =
      (255 * lines_.sumAt(line) + (1 << (weightBits - rowBits - 1))) >> (weightBits - rowBits);
  std::uint8_t* row = target.row(static_cast<std::int32_t>(line));
  for (std::size_t x = 0; x < static_cast<std::size_t>(target.width); ++x)
    row[x * pixelBytes + 3] = static_cast<std::uint8_t>(
        (combined * columns_.sumAt(x) + (1 << (weightBits + rowBits - 1))) >> (weightBits + rowBits));
}

void AffineResampler::drawTurned(const PictureView& source, const AffineTransform& placement, Edges edges,
                                 const Canvas& target) {
  const Canvas turned = canvasOf(turned_, source.height, source.width, source.format);
  orientPixels(source, {.isTransposed = true}, turned);
  drawUpright(turned.view(), {placement.c, 0, 0, placement.b, placement.tx, placement.ty}, edges, target);
}

void AffineResampler::drawSampled(const PictureView& source, const AffineTransform& placement, Edges edges,
                                  const Canvas& target) {
  // As many pixels as the longest way through the image has room for.
  const auto side = [](double factor, std::int32_t length) {
    return factor >= 1 ? length : std::max(static_cast<std::int32_t>(std::ceil(factor * length - little)), 1);
  };
  const std::int32_t width = side(std::hypot(placement.a, placement.b), source.width);
  const std::int32_t height = side(std::hypot(placement.c, placement.d), source.height);
  PictureView small = source;
  AffineTransform rest = placement;
  if (width < source.width || height < source.height) {
    if (!shrink_)
      shrink_ = std::make_unique<AffineResampler>();
    const Canvas shrunk = canvasOf(shrunk_, width, height, source.format);
    const AffineTransform shrinking{width / static_cast<double>(source.width),   0, 0,
                                    height / static_cast<double>(source.height), 0, 0};
    shrink_->draw(source, shrinking, Edges::clamped, shrunk);
    small = shrunk.view();
    rest = inverseOf(shrinking).followedBy(placement);
  }
  const AffineTransform back = inverseOf(rest);
  SampledLine line;
  line.source = small.data;
  line.stride = small.stride;
  line.width = small.width;
  line.height = small.height;
  line.stepX = fixed(back.a, longestStep);
  line.stepY = fixed(back.b, longestStep);
  line.isOpaque = source.format == PixelFormat::bgrx8;
  line.isClamped = edges == Edges::clamped;
  for (std::int32_t y = 0; y < target.height; ++y) {
    line.x = fixed(back.a * 0.5 + back.c * (y + 0.5) + back.tx - 0.5, farthest);
    line.y = fixed(back.b * 0.5 + back.d * (y + 0.5) + back.ty - 0.5, farthest);
    kernels().sampleRow(line, static_cast<std::size_t>(target.width), target.row(y));
  }
}

} // namespace tessarin::pixels
