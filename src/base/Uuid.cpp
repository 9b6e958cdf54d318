#include "base/Uuid.hpp"

#include <array>
#include <cstdint>
#include <cstdio>
#include <random>

namespace tessarin {

std::string randomUuid() {
  std::random_device random;
  const std::uint32_t a = random();
  const std::uint32_t b = random();
  const std::uint32_t c = random();
  const std::uint32_t d = random();
  std::array<char, 37> text{};
  std::snprintf(text.data(), text.size(), "%08X-%04X-4%03X-%04X-%04X%08X", a, b >> 16, b & 0xFFF,
                (c >> 16 & 0x3FFF) | 0x8000, c & 0xFFFF, d);
  return text.data();
}

} // namespace tessarin
