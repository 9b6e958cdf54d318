#if defined(__x86_64__)

#include "pixels/KernelsLayers.hpp"

#include <cstring>

namespace tessarin::pixels {

namespace {

struct Sse2 {
  using Type = __m128i;
  static constexpr std::size_t bytes = 16;

  static Type load(const std::uint8_t* from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
  }
  static Type set32(int value) { return _mm_set1_epi32(value); }
  static Type bitAnd(Type a, Type b) { return _mm_and_si128(a, b); }
  static Type bitOr(Type a, Type b) { return _mm_or_si128(a, b); }
  static Type bitXor(Type a, Type b) { return _mm_xor_si128(a, b); }
  static Type bitAndNot(Type without, Type a) { return _mm_andnot_si128(without, a); }
  static Type addSaturated8(Type a, Type b) { return _mm_adds_epu8(a, b); }
  static Type multiply16(Type a, Type b) { return _mm_mullo_epi16(a, b); }
  static Type packWords(Type low, Type high) { return _mm_packus_epi16(low, high); }
  // Of each four words the last, four times.
  static Type fourths16(Type a) { return _mm_shufflehi_epi16(_mm_shufflelo_epi16(a, 0xFF), 0xFF); }
  // A vector of as many pixels, each of one value in all its channels.
  static Type fourOfEach(const std::uint8_t* values) {
    int four = 0;
    std::memcpy(&four, values, sizeof four);
    const Type once = _mm_cvtsi32_si128(four);
    const Type twice = _mm_unpacklo_epi8(once, once);
    return _mm_unpacklo_epi16(twice, twice);
  }
  static Type add16(Type a, Type b) { return _mm_add_epi16(a, b); }
  static Type add32(Type a, Type b) { return _mm_add_epi32(a, b); }
  static Type multiplyPairs(Type a, Type b) { return _mm_madd_epi16(a, b); }
  static Type shiftRight16(Type a, int bits) { return _mm_srli_epi16(a, bits); }
  static Type shiftRight32(Type a, int bits) { return _mm_srai_epi32(a, bits); }
  static Type interleaveLow8(Type a, Type b) { return _mm_unpacklo_epi8(a, b); }
  static Type interleaveHigh8(Type a, Type b) { return _mm_unpackhi_epi8(a, b); }
  static Type interleaveLow16(Type a, Type b) { return _mm_unpacklo_epi16(a, b); }
  static Type interleaveHigh16(Type a, Type b) { return _mm_unpackhi_epi16(a, b); }
  static Type packInts(Type low, Type high) { return _mm_packs_epi32(low, high); }
  static Type loadWords(const std::int16_t* from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
  }
  static Type evenLanes(Type a, Type b) {
    return _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b), 0x88));
  }
  static Type oddLanes(Type a, Type b) {
    return _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b), 0xDD));
  }

  static void store(Type value, std::uint8_t* to) { _mm_storeu_si128(reinterpret_cast<__m128i*>(to), value); }
  static void storeWords(Type words, std::int16_t* to) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), words);
  }
  static void storeBytes(Type low, Type high, std::uint8_t* to) { store(_mm_packus_epi16(low, high), to); }
  static void storeBytes(const Type (&values)[4], std::uint8_t* to) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm_packus_epi16(_mm_packs_epi32(values[0], values[1]),
                                                                      _mm_packs_epi32(values[2], values[3])));
  }
  static void storeWords(const Type (&values)[4], std::int16_t* to) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm_packs_epi32(values[0], values[1]));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + 8), _mm_packs_epi32(values[2], values[3]));
  }
  static void storeChroma(Type cbLeft, Type cbRight, Type crLeft, Type crRight, std::uint8_t* cb,
                          std::uint8_t* cr) {
    const Type both = _mm_packus_epi16(_mm_packs_epi32(cbLeft, cbRight), _mm_packs_epi32(crLeft, crRight));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(cb), both);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(cr), _mm_srli_si128(both, 8));
  }
};

} // namespace

extern const Kernels sse2Kernels;
const Kernels sse2Kernels{.name = "sse2",
                          .convertRows = convertRowsVector<Sse2>,
                          .combineRows = combineRowsVector<Sse2>,
                          .resampleRow = resampleRowVector,
                          .blendRow = blendRowVector<Sse2>,
                          .maskRow = maskRowVector<Sse2>,
                          .blendMaskedRow = blendMaskedRowVector<Sse2>,
                          .combineWords = combineWordsVector<Sse2>,
                          .combineWordsToBytes = combineWordsToBytesVector<Sse2>,
                          .resampleWords = resampleWordsVector,
                          .addRow = addRowPlain,
                          .sampleRow = sampleRowVector,
                          .gradientRow = gradientRowVector,
                          .transpose = transposeVector,
                          .reverseRow = reverseRowVector};

} // namespace tessarin::pixels

#endif
