#pragma once

#include "pixels/KernelsVector.hpp"

// More of the kernels over a vector type `V`: those of turning, resampling, blurring and layers. Nothing here
// may have external linkage either.
namespace tessarin::pixels {
namespace {

template<class V>
void blendMaskedRowVector(const std::uint8_t* source, const std::uint8_t* weights, std::uint8_t* target,
                          std::size_t pixels, bool isOpaque, bool keepsFourth) {
  using Type = typename V::Type;
  const Type zero = V::set32(0);
  const Type most = V::set32(pairOf(255, 255));
  const Type solid = V::set32(isOpaque ? fourthChannel() : 0);
  const Type kept = V::set32(keepsFourth ? fourthChannel() : 0);
  constexpr std::size_t step = V::bytes / 4;
  std::size_t x = 0;
  for (; x + step <= pixels; x += step) {
    const Type over = V::bitOr(V::load(source + 4 * x), solid);
    const Type below = V::load(target + 4 * x);
    const Type weight = V::fourOfEach(weights + x);
    const Type overLow = productsOver255<V>(V::interleaveLow8(over, zero), V::interleaveLow8(weight, zero));
    const Type overHigh =
        productsOver255<V>(V::interleaveHigh8(over, zero), V::interleaveHigh8(weight, zero));
    const auto rest = [&](Type words) { return V::bitXor(V::fourths16(words), most); };
    const Type low = productsOver255<V>(V::interleaveLow8(below, zero), rest(overLow));
    const Type high = productsOver255<V>(V::interleaveHigh8(below, zero), rest(overHigh));
    const Type blended = V::addSaturated8(V::packWords(overLow, overHigh), V::packWords(low, high));
    V::store(V::bitOr(V::bitAnd(below, kept), V::bitAndNot(kept, blended)), target + 4 * x);
  }
  blendMaskedPixelsPlain(source, weights, target, x, pixels, isOpaque, keepsFourth);
}

// A vector of words, summed up over the rows and shifted.
template<class V>
typename V::Type weighedVector(const std::int16_t* const* rows, const std::int16_t* weights,
                               std::size_t count, std::size_t x, int bias, int shift) {
  using Type = typename V::Type;
  Type low = V::set32(bias);
  Type high = low;
  for (std::size_t row = 0; row < count; row += 2) {
    const Type pair = V::set32(pairOf(weights[row], weights[row + 1]));
    const Type a = V::loadWords(rows[row] + x);
    const Type b = V::loadWords(rows[row + 1] + x);
    low = V::add32(low, V::multiplyPairs(V::interleaveLow16(a, b), pair));
    high = V::add32(high, V::multiplyPairs(V::interleaveHigh16(a, b), pair));
  }
  return V::packInts(V::shiftRight32(low, shift), V::shiftRight32(high, shift));
}

template<class V>
void combineWordsVector(const std::int16_t* const* rows, const std::int16_t* weights, std::size_t count,
                        std::size_t words, std::int16_t* combined) {
  constexpr std::size_t step = V::bytes / 2;
  std::size_t x = 0;
  for (; x + step <= words; x += step)
    V::storeWords(weighedVector<V>(rows, weights, count, x, wordsBias, weightBits), combined + x);
  combineWordsPlain(rows, weights, count, x, words, combined);
}

template<class V>
void combineWordsToBytesVector(const std::int16_t* const* rows, const std::int16_t* weights,
                               std::size_t count, std::size_t words, std::uint8_t* target) {
  constexpr std::size_t step = V::bytes / 2;
  std::size_t x = 0;
  for (; x + 2 * step <= words; x += 2 * step)
    V::storeBytes(weighedVector<V>(rows, weights, count, x, resampleBias, resampleShift),
                  weighedVector<V>(rows, weights, count, x + step, resampleBias, resampleShift), target + x);
  combineWordsToBytesPlain(rows, weights, count, x, words, target);
}

// From here on four channels, or four pixels, are what fills a vector.

inline void resampleWordsVector(const std::int16_t* combined, const ScaleTaps& taps, std::int16_t* target) {
  const std::int32_t* first = taps.first.data();
  const std::int16_t* weights = taps.weights.data();
  for (std::size_t x = 0; x < taps.first.size(); ++x, weights += taps.taps) {
    const std::int16_t* source = combined + static_cast<std::ptrdiff_t>(first[x]) * 4;
    __m128i sum = _mm_set1_epi32(wordsBias);
    for (int tap = 0; tap < taps.taps; tap += 2) {
      const __m128i two = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + tap * 4));
      const __m128i channels = _mm_unpacklo_epi16(two, _mm_srli_si128(two, 8));
      sum = _mm_add_epi32(sum, _mm_madd_epi16(channels, _mm_set1_epi32(weightPair(weights + tap))));
    }
    sum = _mm_srai_epi32(sum, weightBits);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(target + x * 4), _mm_packs_epi32(sum, sum));
  }
}

// Two neighbouring pixels as words, channel by channel, of the first 16 bytes' lower half.
inline __m128i neighbours(__m128i two) {
  return _mm_unpacklo_epi8(_mm_unpacklo_epi8(two, _mm_srli_si128(two, 4)), _mm_setzero_si128());
}

inline __m128i twoPixels(std::uint32_t left, std::uint32_t right) {
  return _mm_unpacklo_epi32(_mm_cvtsi32_si128(static_cast<int>(left)),
                            _mm_cvtsi32_si128(static_cast<int>(right)));
}

// Most pixels have all four within the picture, in two rows of two each.
inline void sampleRowVector(const SampledLine& line, std::size_t pixels, std::uint8_t* target) {
  const __m128i solid = _mm_set1_epi32(line.isOpaque ? static_cast<int>(opaqueBits) : 0);
  const auto lastLeft = static_cast<std::uint64_t>(line.width - 1);
  const auto lastTop = static_cast<std::uint64_t>(line.height - 1);
  const auto mixed = [](__m128i two, __m128i places) {
    return _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(neighbours(two), places), _mm_set1_epi32(acrossBias)),
                          acrossShift);
  };
  for (std::size_t i = 0; i < pixels; ++i) {
    const SamplePlace place(line, i);
    __m128i upper;
    __m128i lower;
    if (static_cast<std::uint64_t>(place.left) < lastLeft &&
        static_cast<std::uint64_t>(place.top) < lastTop) {
      const std::uint8_t* from = line.source + place.top * line.stride + place.left * 4;
      upper = _mm_or_si128(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(from)), solid);
      lower = _mm_or_si128(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(from + line.stride)), solid);
    } else {
      const Sample sample(line, place);
      upper = twoPixels(sample.upperLeft, sample.upperRight);
      lower = twoPixels(sample.lowerLeft, sample.lowerRight);
    }
    const __m128i across = _mm_set1_epi32(pairOf(placeOne - place.across, place.across));
    const __m128i along = _mm_set1_epi32(pairOf(placeOne - place.along, place.along));
    const __m128i both = _mm_packs_epi32(mixed(upper, across), mixed(lower, across));
    const __m128i pairs = _mm_unpacklo_epi16(both, _mm_srli_si128(both, 8));
    const __m128i sum =
        _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(pairs, along), _mm_set1_epi32(alongBias)), alongShift);
    const __m128i words = _mm_packs_epi32(sum, sum);
    const int pixel = _mm_cvtsi128_si32(_mm_packus_epi16(words, words));
    std::memcpy(target + i * 4, &pixel, sizeof pixel);
  }
}

inline void gradientRowVector(const GradientLine& line, std::size_t pixels, std::uint8_t* target) {
  const __m128 start = _mm_loadu_ps(line.start);
  const __m128 step = _mm_loadu_ps(line.step);
  const __m128 low = _mm_loadu_ps(line.low);
  const __m128 high = _mm_loadu_ps(line.high);
  const auto pixel = [&](std::size_t x) {
    const __m128 place = _mm_set1_ps(static_cast<float>(static_cast<std::int32_t>(x)));
    const __m128 value = _mm_min_ps(_mm_max_ps(_mm_add_ps(start, _mm_mul_ps(step, place)), low), high);
    return _mm_cvttps_epi32(_mm_add_ps(value, _mm_set1_ps(line.thresholds[x % 8])));
  };
  std::size_t x = 0;
  for (; x + 4 <= pixels; x += 4) {
    const __m128i left = _mm_packs_epi32(pixel(x), pixel(x + 1));
    const __m128i right = _mm_packs_epi32(pixel(x + 2), pixel(x + 3));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(target + x * 4), _mm_packus_epi16(left, right));
  }
  gradientPixelsPlain(line, x, pixels, target);
}

// Four by four pixels.
inline void transposeBlock(const std::uint8_t* source, std::ptrdiff_t sourceStride, std::uint8_t* target,
                           std::ptrdiff_t targetStride) {
  const auto row = [&](std::ptrdiff_t y) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + y * sourceStride));
  };
  const auto store = [&](std::ptrdiff_t y, __m128i pixels) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(target + y * targetStride), pixels);
  };
  const __m128i upperLeft = _mm_unpacklo_epi32(row(0), row(1));
  const __m128i lowerLeft = _mm_unpacklo_epi32(row(2), row(3));
  const __m128i upperRight = _mm_unpackhi_epi32(row(0), row(1));
  const __m128i lowerRight = _mm_unpackhi_epi32(row(2), row(3));
  store(0, _mm_unpacklo_epi64(upperLeft, lowerLeft));
  store(1, _mm_unpackhi_epi64(upperLeft, lowerLeft));
  store(2, _mm_unpacklo_epi64(upperRight, lowerRight));
  store(3, _mm_unpackhi_epi64(upperRight, lowerRight));
}

// Band by band, so that the lines of memory that are begun in the target are filled while they are near.
inline void transposeVector(const std::uint8_t* source, std::ptrdiff_t sourceStride, std::size_t width,
                            std::size_t height, std::uint8_t* target, std::ptrdiff_t targetStride) {
  constexpr std::size_t band = 16;
  const auto from = [&](std::size_t x, std::size_t y) {
    return source + static_cast<std::ptrdiff_t>(y) * sourceStride + x * 4;
  };
  const auto to = [&](std::size_t x, std::size_t y) {
    return target + static_cast<std::ptrdiff_t>(x) * targetStride + y * 4;
  };
  const std::size_t blocksWidth = width / 4 * 4;
  const std::size_t blocksHeight = height / 4 * 4;
  for (std::size_t top = 0; top < blocksHeight; top += band)
    for (std::size_t x = 0; x < blocksWidth; x += 4)
      for (std::size_t y = top; y < lesser(top + band, blocksHeight); y += 4)
        transposeBlock(from(x, y), sourceStride, to(x, y), targetStride);
  transposePlain(from(blocksWidth, 0), sourceStride, width - blocksWidth, height, to(blocksWidth, 0),
                 targetStride);
  transposePlain(from(0, blocksHeight), sourceStride, blocksWidth, height - blocksHeight, to(0, blocksHeight),
                 targetStride);
}

inline void reverseRowVector(const std::uint8_t* source, std::size_t pixels, std::uint8_t* target) {
  std::size_t x = 0;
  for (; x + 4 <= pixels; x += 4) {
    const __m128i four = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + (pixels - 4 - x) * 4));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(target + x * 4), _mm_shuffle_epi32(four, 0x1B));
  }
  reversePixelsPlain(source, x, pixels, target);
}

} // namespace
} // namespace tessarin::pixels
