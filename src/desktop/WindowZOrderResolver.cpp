#include "desktop/WindowZOrderResolver.hpp"

namespace tessarin::WindowZOrderResolver {

std::map<std::uint32_t, std::int64_t> resolve(const std::vector<WindowListEntry>& frontToBack) {
  std::map<std::uint32_t, std::int64_t> positions;
  for (std::size_t index = 0; index < frontToBack.size(); ++index)
    if (const auto& number = frontToBack[index].number)
      positions.emplace(*number, static_cast<std::int64_t>(index));
  return positions;
}

} // namespace tessarin::WindowZOrderResolver
