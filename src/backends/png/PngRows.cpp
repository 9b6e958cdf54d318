#include "backends/png/PngRows.hpp"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>

#if defined(__x86_64__)
#include <tmmintrin.h>
#endif

namespace tessarin::png {

namespace {

static_assert(std::endian::native == std::endian::little, "pixels are taken apart as little-endian words");

// Each in a byte of its own.

constexpr std::uint32_t bytewiseDifference(std::uint32_t a, std::uint32_t b) {
  constexpr std::uint32_t high = 0x80808080;
  return ((a | high) - (b & ~high)) ^ ((a ^ ~b) & high);
}

constexpr std::uint32_t bytewiseMean(std::uint32_t a, std::uint32_t b) {
  return (a & b) + (((a ^ b) >> 1) & 0x7F7F7F7F);
}

// Colour without its alpha, rounded; a colour above its alpha counts as full.
constexpr std::uint32_t straight(std::uint32_t colour, std::uint32_t alpha) {
  const std::uint32_t value = (colour * 255 + alpha / 2) / alpha;
  return value > 255 ? 255 : value;
}

// The bytes R, G, B, A with straight alpha of a pixel in the order B, G, R, A.
constexpr std::uint32_t rgbaBytes(std::uint32_t bgra) {
  const std::uint32_t alpha = bgra >> 24;
  if (alpha == 0)
    return 0;
  std::uint32_t red = (bgra >> 16) & 0xFF;
  std::uint32_t green = (bgra >> 8) & 0xFF;
  std::uint32_t blue = bgra & 0xFF;
  if (alpha != 255) {
    red = straight(red, alpha);
    green = straight(green, alpha);
    blue = straight(blue, alpha);
  }
  return red | green << 8 | blue << 16 | alpha << 24;
}

std::uint32_t pixelAt(const std::uint8_t* pixels, std::size_t x) {
  std::uint32_t pixel = 0;
  std::memcpy(&pixel, pixels + 4 * x, sizeof pixel);
  return pixel;
}

// A pixel's samples in the order of the file.
std::uint32_t samplesAt(const SourceRow& row, const std::uint8_t* pixels, std::size_t x) {
  const std::uint32_t pixel = pixelAt(pixels, x);
  return row.format == PixelFormat::bgrx8 ? __builtin_bswap32(pixel) >> 8 : rgbaBytes(pixel);
}

std::uint32_t expected(RowFilter filter, std::uint32_t left, std::uint32_t above) {
  switch (filter) {
  case RowFilter::left:
    return left;
  case RowFilter::above:
    return above;
  case RowFilter::average:
    break;
  }
  return bytewiseMean(left, above);
}

// From a pixel on to the end of the row.
void filterPixels(const SourceRow& row, RowFilter filter, std::uint8_t* destination, std::size_t first) {
  const std::size_t count = bytesPerPixel(row.format);
  std::uint32_t left = first > 0 ? samplesAt(row, row.pixels, first - 1) : 0;
  for (std::size_t x = first; x < row.width; ++x) {
    const std::uint32_t above = row.above != nullptr ? samplesAt(row, row.above, x) : 0;
    const std::uint32_t samples = samplesAt(row, row.pixels, x);
    const std::uint32_t difference = bytewiseDifference(samples, expected(filter, left, above));
    std::memcpy(destination + count * x, &difference, count);
    left = samples;
  }
}

#if defined(__x86_64__)

#define TESSARIN_WIDE [[gnu::target("ssse3")]] inline

TESSARIN_WIDE __m128i load(const std::uint8_t* bytes) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
}

template<RowFilter filter> TESSARIN_WIDE __m128i expectedWide(__m128i left, __m128i above) {
  if constexpr (filter == RowFilter::left)
    return left;
  if constexpr (filter == RowFilter::above)
    return above;
  const __m128i roundedUp = _mm_and_si128(_mm_xor_si128(left, above), _mm_set1_epi8(1));
  return _mm_sub_epi8(_mm_avg_epu8(left, above), roundedUp);
}

// Four pixels a step, which stores 16 bytes of which 12 count, so the last pixels go the plain way, as the
// first does. Yields the first pixel that is left.
template<RowFilter filter>
[[gnu::target("ssse3")]] std::size_t filterOpaqueWide(const SourceRow& row, std::uint8_t* destination) {
  const __m128i order = _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
  std::size_t x = 1;
  for (; x + 6 <= row.width; x += 4) {
    const __m128i pixels = load(row.pixels + 4 * x);
    const __m128i above = row.above != nullptr ? load(row.above + 4 * x) : _mm_setzero_si128();
    const __m128i difference =
        _mm_sub_epi8(pixels, expectedWide<filter>(load(row.pixels + 4 * x - 4), above));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(destination + 3 * x), _mm_shuffle_epi8(difference, order));
  }
  return x;
}

// Four pixels with alpha at a time: in the order of the file as they are where all are opaque or clear, and
// straightened one by one where not.
TESSARIN_WIDE __m128i straightWide(const std::uint8_t* bytes) {
  const __m128i order = _mm_setr_epi8(2, 1, 0, 3, 6, 5, 4, 7, 10, 9, 8, 11, 14, 13, 12, 15);
  const __m128i pixels = load(bytes);
  const __m128i alpha = _mm_srli_epi32(pixels, 24);
  const __m128i isOpaque = _mm_cmpeq_epi32(alpha, _mm_set1_epi32(255));
  const __m128i isClear = _mm_cmpeq_epi32(alpha, _mm_setzero_si128());
  if (_mm_movemask_epi8(_mm_or_si128(isOpaque, isClear)) == 0xFFFF)
    return _mm_shuffle_epi8(_mm_and_si128(pixels, isOpaque), order);
  alignas(16) std::uint32_t four[4];
  for (std::size_t i = 0; i < 4; ++i)
    four[i] = rgbaBytes(pixelAt(bytes, i));
  return _mm_load_si128(reinterpret_cast<const __m128i*>(four));
}

template<RowFilter filter>
[[gnu::target("ssse3")]] std::size_t filterAlphaWide(const SourceRow& row, std::uint8_t* destination) {
  __m128i last = _mm_setzero_si128();
  std::size_t x = 0;
  for (; x + 4 <= row.width; x += 4) {
    const __m128i samples = straightWide(row.pixels + 4 * x);
    const __m128i left = _mm_alignr_epi8(samples, last, 12);
    last = samples;
    const bool looksUp = filter != RowFilter::left && row.above != nullptr;
    const __m128i above = looksUp ? straightWide(row.above + 4 * x) : _mm_setzero_si128();
    _mm_storeu_si128(reinterpret_cast<__m128i*>(destination + 4 * x),
                     _mm_sub_epi8(samples, expectedWide<filter>(left, above)));
  }
  return x;
}

template<RowFilter filter> void filterWide(const SourceRow& row, std::uint8_t* destination) {
  if (row.format == PixelFormat::bgrx8) {
    filterPixels({row.pixels, row.above, row.format, std::min<std::size_t>(row.width, 1)}, filter,
                 destination, 0);
    filterPixels(row, filter, destination, filterOpaqueWide<filter>(row, destination));
  } else {
    filterPixels(row, filter, destination, filterAlphaWide<filter>(row, destination));
  }
}

bool hasWideRegisters() {
  static const bool result = __builtin_cpu_supports("ssse3") != 0;
  return result;
}

#undef TESSARIN_WIDE

#endif

} // namespace

std::size_t bytesPerPixel(PixelFormat format) {
  return format == PixelFormat::bgrx8 ? 3 : 4;
}

void filterRowPortably(const SourceRow& row, RowFilter filter, std::uint8_t* destination) {
  filterPixels(row, filter, destination, 0);
}

void filterRow(const SourceRow& row, RowFilter filter, std::uint8_t* destination) {
#if defined(__x86_64__)
  if (hasWideRegisters()) {
    switch (filter) {
    case RowFilter::left:
      return filterWide<RowFilter::left>(row, destination);
    case RowFilter::above:
      return filterWide<RowFilter::above>(row, destination);
    case RowFilter::average:
      return filterWide<RowFilter::average>(row, destination);
    }
  }
#endif
  filterRowPortably(row, filter, destination);
}

std::uint64_t magnitude(const std::uint8_t* bytes, std::size_t count) {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < count; ++i)
    sum += static_cast<std::uint64_t>(std::abs(static_cast<std::int8_t>(bytes[i])));
  return sum;
}

} // namespace tessarin::png
