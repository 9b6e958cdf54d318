#include "pixels/Kernels.hpp"

#include "pixels/KernelsDetail.hpp"

#include <atomic>
#include <vector>

namespace tessarin::pixels {

extern const Kernels sse2Kernels;
extern const Kernels avx2Kernels;

namespace {

void combineRows(const std::uint8_t* const* rows, const std::int16_t* weights, std::size_t count,
                 std::size_t bytes, std::int16_t* combined) {
  combineRowsPlain(rows, weights, count, 0, bytes, combined);
}

void resampleRow(const std::int16_t* combined, const ScaleTaps& taps, std::uint8_t* target) {
  resamplePixelsPlain(combined, taps, 0, taps.first.size(), target);
}

void blendRow(const std::uint8_t* source, std::uint8_t* target, std::size_t pixels, bool keepsFourth) {
  blendPixelsPlain(source, target, 0, pixels, keepsFourth);
}

void maskRow(std::uint8_t* row, const std::uint8_t* weights, const std::uint8_t* whites, std::size_t pixels,
             bool isOpaque) {
  maskPixelsPlain(row, weights, whites, 0, pixels, isOpaque);
}

void blendMaskedRow(const std::uint8_t* source, const std::uint8_t* weights, std::uint8_t* target,
                    std::size_t pixels, bool isOpaque, bool keepsFourth) {
  blendMaskedPixelsPlain(source, weights, target, 0, pixels, isOpaque, keepsFourth);
}

void combineWords(const std::int16_t* const* rows, const std::int16_t* weights, std::size_t count,
                  std::size_t words, std::int16_t* combined) {
  combineWordsPlain(rows, weights, count, 0, words, combined);
}

void combineWordsToBytes(const std::int16_t* const* rows, const std::int16_t* weights, std::size_t count,
                         std::size_t words, std::uint8_t* target) {
  combineWordsToBytesPlain(rows, weights, count, 0, words, target);
}

void resampleWords(const std::int16_t* combined, const ScaleTaps& taps, std::int16_t* target) {
  resampleWordsPlain(combined, taps, 0, taps.first.size(), target);
}

void gradientRow(const GradientLine& line, std::size_t pixels, std::uint8_t* target) {
  gradientPixelsPlain(line, 0, pixels, target);
}

void reverseRow(const std::uint8_t* source, std::size_t pixels, std::uint8_t* target) {
  reversePixelsPlain(source, 0, pixels, target);
}

std::vector<Kernels> findKernels() {
  std::vector<Kernels> found{{.name = "plain",
                              .convertRows = convertRowsPlain,
                              .combineRows = combineRows,
                              .resampleRow = resampleRow,
                              .blendRow = blendRow,
                              .maskRow = maskRow,
                              .blendMaskedRow = blendMaskedRow,
                              .combineWords = combineWords,
                              .combineWordsToBytes = combineWordsToBytes,
                              .resampleWords = resampleWords,
                              .addRow = addRowPlain,
                              .sampleRow = sampleRowPlain,
                              .gradientRow = gradientRow,
                              .transpose = transposePlain,
                              .reverseRow = reverseRow}};
#if defined(__x86_64__)
  found.push_back(sse2Kernels);
  if (__builtin_cpu_supports("avx2"))
    found.push_back(avx2Kernels);
#endif
  return found;
}

std::atomic<const Kernels*> chosenKernels{nullptr};

} // namespace

std::span<const Kernels> availableKernels() {
  static const std::vector<Kernels> found = findKernels();
  return found;
}

const Kernels& kernels() {
  const Kernels* chosen = chosenKernels.load(std::memory_order_relaxed);
  return chosen != nullptr ? *chosen : availableKernels().back();
}

void chooseKernels(const Kernels& chosen) {
  chosenKernels.store(&chosen, std::memory_order_relaxed);
}

} // namespace tessarin::pixels
