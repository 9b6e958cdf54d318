#include "modules/media/NalUnits.hpp"

#include <algorithm>

namespace tessarin::media {

namespace {

constexpr std::byte preventionByte{3};

// Where the next 00 00 01 begins, or the end.
std::size_t nextStartCode(std::span<const std::byte> stream, std::size_t from) {
  for (std::size_t i = from; i + 3 <= stream.size(); ++i)
    if (stream[i] == std::byte{0} && stream[i + 1] == std::byte{0} && stream[i + 2] == std::byte{1})
      return i;
  return stream.size();
}

} // namespace

std::vector<std::span<const std::byte>> splitByteStream(std::span<const std::byte> stream) {
  std::vector<std::span<const std::byte>> units;
  std::size_t code = nextStartCode(stream, 0);
  while (code < stream.size()) {
    const std::size_t from = code + 3;
    code = nextStartCode(stream, from);
    std::size_t to = code;
    while (to > from && stream[to - 1] == std::byte{0})
      --to;
    if (to > from)
      units.push_back(stream.subspan(from, to - from));
  }
  return units;
}

std::vector<std::span<const std::byte>> splitSample(std::span<const std::byte> sample) {
  std::vector<std::span<const std::byte>> units;
  while (sample.size() >= 4) {
    std::size_t size = 0;
    for (std::size_t i = 0; i < 4; ++i)
      size = size << 8 | std::to_integer<std::size_t>(sample[i]);
    if (size > sample.size() - 4)
      break;
    units.push_back(sample.subspan(4, size));
    sample = sample.subspan(4 + size);
  }
  return units;
}

void appendToSample(Bytes& sample, std::span<const std::byte> unit) {
  const auto size = static_cast<std::uint32_t>(unit.size());
  for (int shift = 24; shift >= 0; shift -= 8)
    sample.push_back(static_cast<std::byte>(size >> shift));
  sample.insert(sample.end(), unit.begin(), unit.end());
}

Bytes withoutEmulationPrevention(std::span<const std::byte> unit) {
  Bytes payload;
  payload.reserve(unit.size());
  int zeros = 0;
  for (const std::byte byte : unit) {
    if (zeros >= 2 && byte == preventionByte) {
      zeros = 0;
      continue;
    }
    zeros = byte == std::byte{0} ? zeros + 1 : 0;
    payload.push_back(byte);
  }
  return payload;
}

Bytes withEmulationPrevention(std::span<const std::byte> payload) {
  Bytes unit;
  unit.reserve(payload.size() + 16);
  int zeros = 0;
  for (const std::byte byte : payload) {
    if (zeros >= 2 && byte <= preventionByte) {
      unit.push_back(preventionByte);
      zeros = 0;
    }
    zeros = byte == std::byte{0} ? zeros + 1 : 0;
    unit.push_back(byte);
  }
  if (zeros > 0)
    unit.push_back(preventionByte);
  return unit;
}

} // namespace tessarin::media
