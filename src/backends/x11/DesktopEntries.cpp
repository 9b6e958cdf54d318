#include "backends/x11/DesktopEntries.hpp"

#include "base/Text.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <set>

namespace tessarin::x11 {

namespace {

// The group of interest comes first in an entry; translations of actions follow.
constexpr std::size_t longestEntry = 32 * 1024;
constexpr std::size_t mostEntries = 2000;
constexpr std::string_view suffix = ".desktop";

std::string lowerCase(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return result;
}

std::string_view withoutBlanks(std::string_view text) {
  const auto first = text.find_first_not_of(" \t\r");
  return first == std::string_view::npos ? std::string_view()
                                         : text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// Only a regular file, and without waiting for a writer should it be a pipe.
std::optional<DesktopEntry> readEntry(const std::string& path) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (descriptor < 0) {
    return std::nullopt;
  }
  struct stat info {};
  std::string text;
  if (fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode)) {
    text.resize(std::min<std::size_t>(longestEntry, static_cast<std::size_t>(info.st_size)));
    const auto count = read(descriptor, text.data(), text.size());
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  }
  close(descriptor);
  return parseDesktopEntry(text);
}

// Whether the name may be a file name without leaving the directory.
bool isFileName(std::string_view name) {
  return !name.empty() && name.size() < 200 && name.front() != '.' &&
         name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

std::optional<std::string> nameByFile(const WindowClass& wanted,
                                      const std::vector<std::string>& directories) {
  const std::array<std::string, 4> candidates = {wanted.className, lowerCase(wanted.className),
                                                 wanted.instanceName, lowerCase(wanted.instanceName)};
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    const bool isRepeated = std::find(candidates.begin(), candidates.begin() + static_cast<std::ptrdiff_t>(i),
                                      candidates[i]) != candidates.begin() + static_cast<std::ptrdiff_t>(i);
    if (isRepeated || !isFileName(candidates[i])) {
      continue;
    }
    for (const auto& directory : directories) {
      auto path = directory;
      path += '/';
      path += candidates[i];
      path += suffix;
      if (auto entry = readEntry(path)) {
        return std::move(entry->name);
      }
    }
  }
  return std::nullopt;
}

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};

void findByDeclaration(std::set<WindowClass> wanted, const std::vector<std::string>& directories,
                       std::map<WindowClass, std::string>& names) {
  std::size_t seen = 0;
  for (const auto& path : directories) {
    const std::unique_ptr<DIR, CloseDirectory> directory(opendir(path.c_str()));
    while (directory && !wanted.empty()) {
      const auto* item = readdir(directory.get());
      if (!item) {
        break;
      }
      if (!std::string_view(item->d_name).ends_with(suffix)) {
        continue;
      }
      if (++seen > mostEntries) {
        return;
      }
      const auto entry = readEntry(path + "/" + item->d_name);
      if (!entry || entry->startupWindowClass.empty()) {
        continue;
      }
      std::erase_if(wanted, [&](const WindowClass& each) {
        const auto* declared = entry->startupWindowClass.c_str();
        const bool isMatch = strcasecmp(declared, each.className.c_str()) == 0 ||
                             strcasecmp(declared, each.instanceName.c_str()) == 0;
        return isMatch && names.emplace(each, entry->name).second;
      });
    }
  }
}

} // namespace

std::optional<DesktopEntry> parseDesktopEntry(std::string_view text) {
  DesktopEntry entry;
  bool isInGroup = false;
  bool isApplication = false;
  while (!text.empty()) {
    const auto end = std::min(text.find('\n'), text.size());
    const auto line = withoutBlanks(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.starts_with('[')) {
      if (isInGroup) {
        break;
      }
      isInGroup = line == "[Desktop Entry]";
      continue;
    }
    const auto equals = line.find('=');
    if (!isInGroup || equals == std::string_view::npos || line.starts_with('#')) {
      continue;
    }
    const auto key = withoutBlanks(line.substr(0, equals));
    const auto value = withoutBlanks(line.substr(equals + 1));
    if (key == "Type") {
      isApplication = value == "Application";
    } else if (key == "Name") {
      entry.name = repairedUtf8(value);
    } else if (key == "StartupWMClass") {
      entry.startupWindowClass = value;
    } else if (key == "Hidden" && value == "true") {
      return std::nullopt;
    }
  }
  return isApplication && !entry.name.empty() ? std::optional(std::move(entry)) : std::nullopt;
}

std::vector<std::string> applicationDirectories(const char* dataHome, const char* dataDirectories,
                                                const char* home) {
  const auto isSet = [](const char* value) { return value && *value; };
  std::vector<std::string> result;
  const auto add = [&](std::string_view base) {
    if (base.starts_with('/')) {
      result.push_back(std::string(base) + "/applications");
    }
  };
  if (isSet(dataHome)) {
    add(dataHome);
  } else if (isSet(home)) {
    add(std::string(home) + "/.local/share");
  }
  std::string_view rest = isSet(dataDirectories) ? dataDirectories : "/usr/local/share:/usr/share";
  while (!rest.empty()) {
    const auto end = std::min(rest.find(':'), rest.size());
    add(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return result;
}

std::vector<std::string> applicationDirectories() {
  return applicationDirectories(std::getenv("XDG_DATA_HOME"), std::getenv("XDG_DATA_DIRS"),
                                std::getenv("HOME"));
}

std::map<WindowClass, std::string> applicationNames(const std::vector<WindowClass>& classes,
                                                    const std::vector<std::string>& directories) {
  std::map<WindowClass, std::string> names;
  std::set<WindowClass> unknown;
  for (const auto& each : std::set<WindowClass>(classes.begin(), classes.end())) {
    if (each.className.empty() && each.instanceName.empty()) {
      continue;
    }
    if (auto name = nameByFile(each, directories)) {
      names.emplace(each, std::move(*name));
    } else {
      unknown.insert(each);
    }
  }
  findByDeclaration(std::move(unknown), directories, names);
  return names;
}

} // namespace tessarin::x11
