#pragma once

#include "pixels/KernelsDetail.hpp"

#include <cstring>
#include <emmintrin.h>

// The kernels written once over a vector type `V`, which a source file gives for its processor options.
// Nothing here may have external linkage, for the same reason.
namespace tessarin::pixels {
namespace {

constexpr int pairOf(int low, int high) {
  return static_cast<int>((static_cast<unsigned>(high) << 16) | (static_cast<unsigned>(low) & 0xFFFFU));
}

// A vector of pixels taken apart: words of (B, R) and words of (G, unused).
template<class V> struct Channels {
  typename V::Type blueRed, greenUnused;

  static Channels load(const std::uint8_t* pixels) {
    const typename V::Type vector = V::load(pixels);
    return {V::bitAnd(vector, V::set32(0x00FF00FF)), V::shiftRight16(vector, 8)};
  }

  typename V::Type weighted(int b, int g, int r, int bias) const {
    return V::add32(V::add32(V::multiplyPairs(blueRed, V::set32(pairOf(b, r))),
                             V::multiplyPairs(greenUnused, V::set32(pairOf(g, 0)))),
                    V::set32(bias));
  }
  typename V::Type luma() const { return V::shiftRight32(weighted(lumaB, lumaG, lumaR, lumaBias), lumaBits); }
  typename V::Type cb() const { return V::shiftRight32(weighted(cbB, cbG, cbR, chromaBias), chromaBits); }
  typename V::Type cr() const { return V::shiftRight32(weighted(crB, crG, crR, chromaBias), chromaBits); }

  Channels plus(const Channels& other) const {
    return {V::add16(blueRed, other.blueRed), V::add16(greenUnused, other.greenUnused)};
  }
  // Sums of horizontal neighbours over this and the next vector.
  Channels pairSums(const Channels& next) const {
    return {
        V::add16(V::evenLanes(blueRed, next.blueRed), V::oddLanes(blueRed, next.blueRed)),
        V::add16(V::evenLanes(greenUnused, next.greenUnused), V::oddLanes(greenUnused, next.greenUnused))};
  }
};

template<class V>
void convertRowsVector(const std::uint8_t* top, const std::uint8_t* bottom, std::size_t pixels,
                       std::uint8_t* topLuma, std::uint8_t* bottomLuma, std::uint8_t* cb, std::uint8_t* cr) {
  constexpr std::size_t block = V::bytes; // pixels: four vectors of them
  std::size_t x = 0;
  for (; x + block <= pixels; x += block) {
    Channels<V> sums[4];
    typename V::Type luma[2][4];
    for (std::size_t i = 0; i < 4; ++i) {
      const Channels<V> upper = Channels<V>::load(top + 4 * x + i * V::bytes);
      const Channels<V> lower = Channels<V>::load(bottom + 4 * x + i * V::bytes);
      luma[0][i] = upper.luma();
      luma[1][i] = lower.luma();
      sums[i] = upper.plus(lower);
    }
    V::storeBytes(luma[0], topLuma + x);
    V::storeBytes(luma[1], bottomLuma + x);
    const Channels<V> left = sums[0].pairSums(sums[1]);
    const Channels<V> right = sums[2].pairSums(sums[3]);
    V::storeChroma(left.cb(), right.cb(), left.cr(), right.cr(), cb + x / 2, cr + x / 2);
  }
  convertRowsPlain(top + 4 * x, bottom + 4 * x, pixels - x, topLuma + x, bottomLuma + x, cb + x / 2,
                   cr + x / 2);
}

template<class V>
void combineRowsVector(const std::uint8_t* const* rows, const std::int16_t* weights, std::size_t count,
                       std::size_t bytes, std::int16_t* combined) {
  using Type = typename V::Type;
  const Type zero = V::set32(0);
  std::size_t x = 0;
  for (; x + V::bytes <= bytes; x += V::bytes) {
    Type sums[4] = {V::set32(combineBias), V::set32(combineBias), V::set32(combineBias),
                    V::set32(combineBias)};
    for (std::size_t row = 0; row < count; row += 2) {
      const Type pair = V::set32(pairOf(weights[row], weights[row + 1]));
      const Type a = V::load(rows[row] + x);
      const Type b = V::load(rows[row + 1] + x);
      const Type low = V::interleaveLow8(a, b);
      const Type high = V::interleaveHigh8(a, b);
      sums[0] = V::add32(sums[0], V::multiplyPairs(V::interleaveLow8(low, zero), pair));
      sums[1] = V::add32(sums[1], V::multiplyPairs(V::interleaveHigh8(low, zero), pair));
      sums[2] = V::add32(sums[2], V::multiplyPairs(V::interleaveLow8(high, zero), pair));
      sums[3] = V::add32(sums[3], V::multiplyPairs(V::interleaveHigh8(high, zero), pair));
    }
    for (Type& sum : sums)
      sum = V::shiftRight32(sum, combineShift);
    V::storeWords(sums, combined + x);
  }
  combineRowsPlain(rows, weights, count, x, bytes, combined);
}

// The weights of two taps, as `pairOf` has them.
inline int weightPair(const std::int16_t* weights) {
  int pair = 0;
  std::memcpy(&pair, weights, sizeof pair);
  return pair;
}

// Each target pixel starts at its own place, so its four channels are what fills a vector.
inline __m128i resampledPixel(const std::int16_t* source, const std::int16_t* weights, int taps) {
  __m128i sum = _mm_set1_epi32(resampleBias);
  for (int tap = 0; tap < taps; tap += 2) {
    const __m128i two = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + tap * 4));
    const __m128i channels = _mm_unpacklo_epi16(two, _mm_srli_si128(two, 8));
    sum = _mm_add_epi32(sum, _mm_madd_epi16(channels, _mm_set1_epi32(weightPair(weights + tap))));
  }
  return _mm_srai_epi32(sum, resampleShift);
}

inline void resampleRowVector(const std::int16_t* combined, const ScaleTaps& taps, std::uint8_t* target) {
  const std::int32_t* first = taps.first.data();
  const std::int16_t* weights = taps.weights.data();
  const std::size_t width = taps.first.size();
  const auto pixel = [&](std::size_t x) {
    return resampledPixel(combined + static_cast<std::ptrdiff_t>(first[x]) * 4,
                          weights + x * static_cast<std::size_t>(taps.taps), taps.taps);
  };
  std::size_t x = 0;
  for (; x + 4 <= width; x += 4) {
    const __m128i left = _mm_packs_epi32(pixel(x), pixel(x + 1));
    const __m128i right = _mm_packs_epi32(pixel(x + 2), pixel(x + 3));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(target + x * 4), _mm_packus_epi16(left, right));
  }
  resamplePixelsPlain(combined, taps, x, width, target);
}

// Each of the 16-bit products, of two values of at most 255, over 255 and rounded to nearest.
template<class V> typename V::Type productsOver255(typename V::Type a, typename V::Type b) {
  const typename V::Type biased = V::add16(V::multiply16(a, b), V::set32(pairOf(128, 128)));
  return V::shiftRight16(V::add16(biased, V::shiftRight16(biased, 8)), 8);
}

constexpr int fourthChannel() {
  return static_cast<int>(0xFF000000U);
}

template<class V>
void blendRowVector(const std::uint8_t* source, std::uint8_t* target, std::size_t pixels, bool keepsFourth) {
  using Type = typename V::Type;
  const Type zero = V::set32(0);
  const Type most = V::set32(pairOf(255, 255));
  const Type kept = V::set32(keepsFourth ? fourthChannel() : 0);
  constexpr std::size_t step = V::bytes / 4;
  std::size_t x = 0;
  for (; x + step <= pixels; x += step) {
    const Type over = V::load(source + 4 * x);
    const Type below = V::load(target + 4 * x);
    const auto rest = [&](Type words) { return V::bitXor(V::fourths16(words), most); };
    const Type low = productsOver255<V>(V::interleaveLow8(below, zero), rest(V::interleaveLow8(over, zero)));
    const Type high =
        productsOver255<V>(V::interleaveHigh8(below, zero), rest(V::interleaveHigh8(over, zero)));
    const Type blended = V::addSaturated8(over, V::packWords(low, high));
    V::store(V::bitOr(V::bitAnd(below, kept), V::bitAndNot(kept, blended)), target + 4 * x);
  }
  blendPixelsPlain(source, target, x, pixels, keepsFourth);
}

template<class V>
void maskRowVector(std::uint8_t* row, const std::uint8_t* weights, const std::uint8_t* whites,
                   std::size_t pixels, bool isOpaque) {
  using Type = typename V::Type;
  const Type zero = V::set32(0);
  const Type solid = V::set32(isOpaque ? fourthChannel() : 0);
  constexpr std::size_t step = V::bytes / 4;
  std::size_t x = 0;
  for (; x + step <= pixels; x += step) {
    const Type pixel = V::bitOr(V::load(row + 4 * x), solid);
    const Type weight = V::fourOfEach(weights + x);
    const Type low = productsOver255<V>(V::interleaveLow8(pixel, zero), V::interleaveLow8(weight, zero));
    const Type high = productsOver255<V>(V::interleaveHigh8(pixel, zero), V::interleaveHigh8(weight, zero));
    V::store(V::addSaturated8(V::packWords(low, high), V::fourOfEach(whites + x)), row + 4 * x);
  }
  maskPixelsPlain(row, weights, whites, x, pixels, isOpaque);
}

} // namespace
} // namespace tessarin::pixels
