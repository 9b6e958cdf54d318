#include "backends/png/PrefixCode.hpp"

#include <algorithm>

namespace tessarin::png {

namespace {

constexpr std::size_t mostSymbols = 288;
constexpr int longestCode = 15;

struct Leaf {
  std::uint32_t frequency = 0;
  std::uint16_t symbol = 0;
};

// The depth of each leaf, in rising order of frequency, in an optimal tree; leaves and the inner nodes made
// so far are two queues in rising order, whose lesser heads are joined again and again.
std::array<std::uint16_t, mostSymbols> depths(std::span<const Leaf> leaves) {
  std::array<std::uint64_t, 2 * mostSymbols> weight{};
  std::array<std::uint16_t, 2 * mostSymbols> parent{};
  const std::size_t count = leaves.size();
  for (std::size_t i = 0; i < count; ++i)
    weight[i] = leaves[i].frequency;
  std::size_t leaf = 0;
  std::size_t inner = count;
  for (std::size_t node = count; node < 2 * count - 1; ++node)
    for (int child = 0; child < 2; ++child) {
      const bool takesLeaf = leaf < count && (inner == node || weight[leaf] <= weight[inner]);
      const std::size_t taken = takesLeaf ? leaf++ : inner++;
      weight[node] += weight[taken];
      parent[taken] = static_cast<std::uint16_t>(node);
    }

  std::array<std::uint16_t, 2 * mostSymbols> depth{};
  for (std::size_t node = 2 * count - 2; node-- > 0;)
    depth[node] = static_cast<std::uint16_t>(depth[parent[node]] + 1);
  std::array<std::uint16_t, mostSymbols> result{};
  std::copy_n(depth.begin(), count, result.begin());
  return result;
}

// How many codes there are of each length, none beyond the limit: codes that were too long are cut to the
// limit, and others made longer until all fit again.
std::array<std::uint32_t, longestCode + 1> countsOfLengths(std::span<const std::uint16_t> depth, int limit) {
  std::array<std::uint32_t, longestCode + 1> counts{};
  std::uint32_t taken = 0; // of the 2^limit codes of the longest length
  for (const std::uint16_t length : depth) {
    const int cut = std::min<int>(length, limit);
    ++counts[static_cast<std::size_t>(cut)];
    taken += 1U << (limit - cut);
  }
  for (; taken > 1U << limit; --taken) {
    auto length = static_cast<std::size_t>(limit) - 1;
    while (counts[length] == 0)
      --length;
    --counts[length];
    counts[length + 1] += 2;
    --counts[static_cast<std::size_t>(limit)];
  }
  return counts;
}

} // namespace

void assignLengths(std::span<const std::uint32_t> frequencies, int limit, std::span<std::uint8_t> lengths) {
  std::array<Leaf, mostSymbols> storage{};
  std::size_t count = 0;
  for (std::size_t symbol = 0; symbol < frequencies.size(); ++symbol)
    if (frequencies[symbol] > 0)
      storage[count++] = {frequencies[symbol], static_cast<std::uint16_t>(symbol)};
  for (std::uint16_t symbol = 0; count < 2; ++symbol)
    if (frequencies[symbol] == 0)
      storage[count++] = {0, symbol};
  const std::span<Leaf> leaves(storage.data(), count);
  std::sort(leaves.begin(), leaves.end(), [](const Leaf& a, const Leaf& b) {
    return a.frequency != b.frequency ? a.frequency < b.frequency : a.symbol < b.symbol;
  });

  const auto depth = depths(leaves);
  const auto counts = countsOfLengths({depth.data(), count}, limit);
  std::fill(lengths.begin(), lengths.end(), std::uint8_t{0});
  std::size_t next = 0;
  for (int length = limit; length > 0; --length)
    for (std::uint32_t i = 0; i < counts[static_cast<std::size_t>(length)]; ++i)
      lengths[leaves[next++].symbol] = static_cast<std::uint8_t>(length);
}

void assignCodes(std::span<const std::uint8_t> lengths, std::span<CodeWord> codes) {
  std::array<std::uint32_t, longestCode + 1> counts{};
  for (const std::uint8_t length : lengths)
    ++counts[length];
  counts[0] = 0;
  std::array<std::uint32_t, longestCode + 1> next{};
  for (std::size_t length = 1; length <= longestCode; ++length)
    next[length] = (next[length - 1] + counts[length - 1]) << 1;
  for (std::size_t symbol = 0; symbol < lengths.size(); ++symbol) {
    const std::uint8_t length = lengths[symbol];
    std::uint32_t code = length > 0 ? next[length]++ : 0;
    std::uint32_t reversed = 0;
    for (int bit = 0; bit < length; ++bit, code >>= 1)
      reversed = reversed << 1 | (code & 1);
    codes[symbol] = {static_cast<std::uint16_t>(reversed), length};
  }
}

} // namespace tessarin::png
