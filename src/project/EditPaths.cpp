#include "project/EditPaths.hpp"

#include "base/Text.hpp"

#include <algorithm>
#include <vector>

namespace tessarin {

bool isPlainAbsolutePath(std::string_view path) {
  return isAbsolutePath(path) && !hasParentComponent(path) && path.find('\0') == std::string_view::npos;
}

bool isPlainMoviePath(std::string_view path) {
  return isPlainAbsolutePath(path) && lowercasePathExtension(path) == "mp4";
}

std::string_view nameAbove(std::string_view path, std::size_t levels) {
  const std::vector<std::string_view> components = pathComponents(path);
  return levels < components.size() ? components[components.size() - 1 - levels] : std::string_view();
}

bool haveSameParent(std::string_view a, std::string_view b) {
  std::vector<std::string_view> ofA = pathComponents(a);
  std::vector<std::string_view> ofB = pathComponents(b);
  if (!isAbsolutePath(a) || !isAbsolutePath(b) || ofA.empty() || ofB.empty())
    return false;
  ofA.pop_back();
  ofB.pop_back();
  return ofA == ofB;
}

bool areSamePath(std::string_view a, std::string_view b) {
  return isAbsolutePath(a) && isAbsolutePath(b) && pathComponents(a) == pathComponents(b);
}

} // namespace tessarin
