#include "recording/RecordingHealth.hpp"

#include <algorithm>

namespace tessarin::RecordingHealthPolicy {

namespace {

constexpr std::int64_t mebibyte = 1'048'576;
constexpr std::int64_t largestSource = 0x1FFFFFFFFFFFFFFF; // twice this and a margin still fits

} // namespace

RecordingStorageHealth storage(std::optional<std::int64_t> freeBytes, std::int64_t sourceBytes) {
  if (!freeBytes || *freeBytes < 0 || sourceBytes < 0)
    return RecordingStorageHealth::unknown;
  const std::int64_t need = 2 * std::min(sourceBytes, largestSource);
  if (sourceBytes >= 64 * mebibyte) {
    if (*freeBytes < need + 128 * mebibyte)
      return RecordingStorageHealth::critical;
    if (sourceBytes >= 192 * mebibyte)
      return *freeBytes < need + 640 * mebibyte ? RecordingStorageHealth::low
                                                : RecordingStorageHealth::healthy;
  } else if (*freeBytes < 256 * mebibyte) {
    return RecordingStorageHealth::critical;
  }
  return *freeBytes < 1024 * mebibyte ? RecordingStorageHealth::low : RecordingStorageHealth::healthy;
}

} // namespace tessarin::RecordingHealthPolicy
