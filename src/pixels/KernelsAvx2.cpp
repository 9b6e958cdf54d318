#if defined(__x86_64__)

#include "pixels/KernelsLayers.hpp"

#include <immintrin.h>

namespace tessarin::pixels {

namespace {

// Packing works on the halves of a vector by themselves; the stores put the order right again.
struct Avx2 {
  using Type = __m256i;
  static constexpr std::size_t bytes = 32;

  static Type load(const std::uint8_t* from) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
  }
  static Type set32(int value) { return _mm256_set1_epi32(value); }
  static Type bitAnd(Type a, Type b) { return _mm256_and_si256(a, b); }
  static Type bitOr(Type a, Type b) { return _mm256_or_si256(a, b); }
  static Type bitXor(Type a, Type b) { return _mm256_xor_si256(a, b); }
  static Type bitAndNot(Type without, Type a) { return _mm256_andnot_si256(without, a); }
  static Type addSaturated8(Type a, Type b) { return _mm256_adds_epu8(a, b); }
  static Type multiply16(Type a, Type b) { return _mm256_mullo_epi16(a, b); }
  static Type packWords(Type low, Type high) { return _mm256_packus_epi16(low, high); }
  // Of each four words the last, four times.
  static Type fourths16(Type a) { return _mm256_shufflehi_epi16(_mm256_shufflelo_epi16(a, 0xFF), 0xFF); }
  // A vector of as many pixels, each of one value in all its channels.
  static Type fourOfEach(const std::uint8_t* values) {
    const __m128i once = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(values));
    const __m128i twice = _mm_unpacklo_epi8(once, once);
    return _mm256_set_m128i(_mm_unpackhi_epi16(twice, twice), _mm_unpacklo_epi16(twice, twice));
  }
  static Type add16(Type a, Type b) { return _mm256_add_epi16(a, b); }
  static Type add32(Type a, Type b) { return _mm256_add_epi32(a, b); }
  static Type multiplyPairs(Type a, Type b) { return _mm256_madd_epi16(a, b); }
  static Type shiftRight16(Type a, int bits) { return _mm256_srli_epi16(a, bits); }
  static Type shiftRight32(Type a, int bits) { return _mm256_srai_epi32(a, bits); }
  static Type interleaveLow8(Type a, Type b) { return _mm256_unpacklo_epi8(a, b); }
  static Type interleaveHigh8(Type a, Type b) { return _mm256_unpackhi_epi8(a, b); }
  static Type interleaveLow16(Type a, Type b) { return _mm256_unpacklo_epi16(a, b); }
  static Type interleaveHigh16(Type a, Type b) { return _mm256_unpackhi_epi16(a, b); }
  static Type packInts(Type low, Type high) { return _mm256_packs_epi32(low, high); }
  static Type loadWords(const std::int16_t* from) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
  }
  static Type evenLanes(Type a, Type b) {
    return _mm256_castps_si256(_mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b), 0x88));
  }
  static Type oddLanes(Type a, Type b) {
    return _mm256_castps_si256(_mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b), 0xDD));
  }

  static void store(Type value, std::uint8_t* to) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), value);
  }
  static void storeWords(Type words, std::int16_t* to) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), words);
  }
  static void storeBytes(Type low, Type high, std::uint8_t* to) {
    store(_mm256_permute4x64_epi64(_mm256_packus_epi16(low, high), 0xD8), to);
  }
  static void storeBytes(const Type (&values)[4], std::uint8_t* to) {
    const Type packed = _mm256_packus_epi16(_mm256_packs_epi32(values[0], values[1]),
                                            _mm256_packs_epi32(values[2], values[3]));
    const Type order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), _mm256_permutevar8x32_epi32(packed, order));
  }
  static void storeWords(const Type (&values)[4], std::int16_t* to) {
    const Type low = _mm256_packs_epi32(values[0], values[1]);
    const Type high = _mm256_packs_epi32(values[2], values[3]);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), _mm256_permute2x128_si256(low, high, 0x20));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + 16), _mm256_permute2x128_si256(low, high, 0x31));
  }
  static void storeChroma(Type cbLeft, Type cbRight, Type crLeft, Type crRight, std::uint8_t* cb,
                          std::uint8_t* cr) {
    const Type both =
        _mm256_packus_epi16(_mm256_packs_epi32(cbLeft, cbRight), _mm256_packs_epi32(crLeft, crRight));
    const __m128i low = _mm256_castsi256_si128(both);
    const __m128i high = _mm256_extracti128_si256(both, 1);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(cb), _mm_unpacklo_epi16(low, high));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(cr), _mm_unpackhi_epi16(low, high));
  }
};

// Two target pixels, each of which starts at its own place, one in each half of the vector.
inline __m256i resampledPixels(const std::int16_t* const (&sources)[2],
                               const std::int16_t* const (&weights)[2], int taps) {
  const __m256i neighbours = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15)); // channel by channel
  __m256i sum = _mm256_set1_epi32(resampleBias);
  for (int tap = 0; tap < taps; tap += 2) {
    const auto two = [&](std::size_t i) {
      return _mm_loadu_si128(reinterpret_cast<const __m128i*>(sources[i] + tap * 4));
    };
    const __m256i channels = _mm256_shuffle_epi8(_mm256_set_m128i(two(1), two(0)), neighbours);
    const __m256i pairs = _mm256_blend_epi32(_mm256_set1_epi32(weightPair(weights[0] + tap)),
                                             _mm256_set1_epi32(weightPair(weights[1] + tap)), 0xF0);
    sum = _mm256_add_epi32(sum, _mm256_madd_epi16(channels, pairs));
  }
  return _mm256_srai_epi32(sum, resampleShift);
}

void resampleRow(const std::int16_t* combined, const ScaleTaps& taps, std::uint8_t* target) {
  const std::int32_t* first = taps.first.data();
  const std::size_t width = taps.first.size();
  const auto source = [&](std::size_t x) { return combined + static_cast<std::ptrdiff_t>(first[x]) * 4; };
  const auto weights = [&](std::size_t x) {
    return taps.weights.data() + x * static_cast<std::size_t>(taps.taps);
  };
  // Halves of the vectors are packed by themselves, so that they hold pixels four apart.
  const auto pixels = [&](std::size_t x) {
    return resampledPixels({source(x), source(x + 4)}, {weights(x), weights(x + 4)}, taps.taps);
  };
  std::size_t x = 0;
  for (; x + 8 <= width; x += 8) {
    const __m256i left = _mm256_packs_epi32(pixels(x), pixels(x + 1));
    const __m256i right = _mm256_packs_epi32(pixels(x + 2), pixels(x + 3));
    Avx2::store(_mm256_packus_epi16(left, right), target + x * 4);
  }
  resamplePixelsPlain(combined, taps, x, width, target);
}

} // namespace

extern const Kernels avx2Kernels;
const Kernels avx2Kernels{.name = "avx2",
                          .convertRows = convertRowsVector<Avx2>,
                          .combineRows = combineRowsVector<Avx2>,
                          .resampleRow = resampleRow,
                          .blendRow = blendRowVector<Avx2>,
                          .maskRow = maskRowVector<Avx2>,
                          .blendMaskedRow = blendMaskedRowVector<Avx2>,
                          .combineWords = combineWordsVector<Avx2>,
                          .combineWordsToBytes = combineWordsToBytesVector<Avx2>,
                          .resampleWords = resampleWordsVector,
                          .addRow = addRowPlain,
                          .sampleRow = sampleRowVector,
                          .gradientRow = gradientRowVector,
                          .transpose = transposeVector,
                          .reverseRow = reverseRowVector};

} // namespace tessarin::pixels

#endif
