#include "backends/posix/ModuleLoader.hpp"

#include <array>
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tessarin {

namespace {

std::string_view reasonOf(ModuleFailure failure) {
  switch (failure) {
  case ModuleFailure::missing:
    return "missing";
  case ModuleFailure::mismatched:
    return "mismatched";
  case ModuleFailure::broken:
    break;
  }
  return "broken";
}

bool exists(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0;
}

std::string executableDirectory() {
  std::array<char, 4096> path{};
  const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
  const std::string_view whole(path.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
  return std::string(whole.substr(0, whole.rfind('/') == std::string_view::npos ? 0 : whole.rfind('/')));
}

} // namespace

std::vector<std::string> moduleDirectories() {
  const std::string beside = executableDirectory();
  return {beside + "/modules", beside + "/../lib/tessarin-native/modules"};
}

const ModuleHeader& ModuleLoader::open(std::string_view name) {
  const std::lock_guard lock(mutex_);
  auto known = outcomes_.find(name);
  if (known == outcomes_.end()) {
    known = outcomes_.emplace(name, load(name)).first;
    if (const auto* failure = std::get_if<ModuleFailure>(&known->second))
      diagnostics_(DiagnosticsLine("tessarin-native module-unavailable")
                       .item("module", name)
                       .item("reason", reasonOf(*failure))
                       .text());
  }
  if (const auto* failure = std::get_if<ModuleFailure>(&known->second))
    fail(*failure);
  return *std::get<const ModuleHeader*>(known->second);
}

// What has been opened is never closed: its code may be in use on any thread.
ModuleLoader::Outcome ModuleLoader::load(std::string_view name) const {
  for (const std::string& directory : directories_) {
    const std::string path = directory + "/tessarin-" + std::string(name) + ".so";
    if (!exists(path))
      continue;
    void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    void* const symbol = library != nullptr ? dlsym(library, moduleSymbol) : nullptr;
    if (symbol == nullptr)
      return ModuleFailure::broken;
    const ModuleHeader* header = reinterpret_cast<ModuleEntry*>(symbol)();
    if (header == nullptr || header->buildId == nullptr)
      return ModuleFailure::broken;
    if (std::string_view(header->buildId) != moduleBuildId())
      return ModuleFailure::mismatched;
    return header;
  }
  return ModuleFailure::missing;
}

} // namespace tessarin
