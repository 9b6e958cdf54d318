#include "backends/png/PngRows.hpp"

#include <bit>
#include <cstring>

#if defined(__x86_64__)
#include <tmmintrin.h>
#endif

namespace tessarin::png {

namespace {

static_assert(std::endian::native == std::endian::little, "pixels are taken apart as little-endian words");

// a - b in each byte by itself.
constexpr std::uint64_t bytewiseDifference(std::uint64_t a, std::uint64_t b) {
  constexpr std::uint64_t high = 0x8080808080808080;
  return ((a | high) - (b & ~high)) ^ ((a ^ ~b) & high);
}

// The bytes R, G, B, 0 of a pixel in the order B, G, R, unused.
constexpr std::uint32_t rgbBytes(std::uint32_t bgrx) {
  return __builtin_bswap32(bgrx) >> 8;
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

void filterAlphaRow(const std::uint8_t* source, std::size_t width, std::uint8_t* destination) {
  std::uint32_t previous = 0;
  for (std::size_t x = 0; x < width; ++x) {
    std::uint32_t pixel = 0;
    std::memcpy(&pixel, source + 4 * x, sizeof pixel);
    pixel = rgbaBytes(pixel);
    const auto difference = static_cast<std::uint32_t>(bytewiseDifference(pixel, previous));
    std::memcpy(destination + 4 * x, &difference, sizeof difference);
    previous = pixel;
  }
}

#if defined(__x86_64__)

// Four pixels a step. A step stores 16 bytes of which 12 count, so the last pixels go the plain way.
[[gnu::target("ssse3")]] void filterOpaqueRowWide(const std::uint8_t* source, std::size_t width,
                                                  std::uint8_t* destination) {
  const __m128i order = _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
  __m128i previous = _mm_setzero_si128();
  std::size_t x = 0;
  for (; x + 6 <= width; x += 4) {
    const __m128i pixels = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + 4 * x));
    const __m128i left = _mm_alignr_epi8(pixels, previous, 12);
    previous = pixels;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(destination + 3 * x),
                     _mm_shuffle_epi8(_mm_sub_epi8(pixels, left), order));
  }
  for (; x < width; ++x)
    for (std::size_t sample = 0; sample < 3; ++sample) {
      const std::uint8_t* value = source + 4 * x + 2 - sample;
      destination[3 * x + sample] = static_cast<std::uint8_t>(*value - (x > 0 ? *(value - 4) : 0));
    }
}

void filterOpaqueRow(const std::uint8_t* source, std::size_t width, std::uint8_t* destination) {
  static const bool isWide = __builtin_cpu_supports("ssse3") != 0;
  if (isWide)
    filterOpaqueRowWide(source, width, destination);
  else
    filterOpaqueRowPortably(source, width, destination);
}

#else

void filterOpaqueRow(const std::uint8_t* source, std::size_t width, std::uint8_t* destination) {
  filterOpaqueRowPortably(source, width, destination);
}

#endif

} // namespace

void filterOpaqueRowPortably(const std::uint8_t* source, std::size_t width, std::uint8_t* destination) {
  std::uint32_t previous = 0;
  std::size_t x = 0;
  // Two pixels a step, stored as 8 bytes of which 6 count; the rest one by one.
  for (; x + 3 <= width; x += 2) {
    std::uint64_t pixels = 0;
    std::memcpy(&pixels, source + 4 * x, sizeof pixels);
    const std::uint64_t difference = bytewiseDifference(pixels, pixels << 32 | previous);
    previous = static_cast<std::uint32_t>(pixels >> 32);
    const std::uint64_t samples = rgbBytes(static_cast<std::uint32_t>(difference)) |
                                  std::uint64_t{rgbBytes(static_cast<std::uint32_t>(difference >> 32))} << 24;
    std::memcpy(destination + 3 * x, &samples, sizeof samples);
  }
  for (; x < width; ++x) {
    std::uint32_t pixel = 0;
    std::memcpy(&pixel, source + 4 * x, sizeof pixel);
    const std::uint32_t samples = rgbBytes(static_cast<std::uint32_t>(bytewiseDifference(pixel, previous)));
    std::memcpy(destination + 3 * x, &samples, 3);
    previous = pixel;
  }
}

std::size_t bytesPerPixel(PixelFormat format) {
  return format == PixelFormat::bgrx8 ? 3 : 4;
}

void filterRow(const std::uint8_t* source, PixelFormat format, std::size_t width, std::uint8_t* destination) {
  if (format == PixelFormat::bgrx8)
    filterOpaqueRow(source, width, destination);
  else
    filterAlphaRow(source, width, destination);
}

} // namespace tessarin::png
