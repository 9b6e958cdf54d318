#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

// What every target shares.
namespace tessarin::fuzz {

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// A property of the code under test does not hold: the input is a finding.
inline void require(bool holds, const char* property) {
  if (holds)
    return;
  std::fprintf(stderr, "does not hold: %s\n", property);
  std::abort();
}

} // namespace tessarin::fuzz

// The entry that the fuzzer calls with each input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
