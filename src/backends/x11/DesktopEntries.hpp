#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

// Names of applications from the desktop entries that are installed.
namespace tessarin::x11 {

// The two parts of WM_CLASS.
struct WindowClass {
  std::string instanceName;
  std::string className;

  bool operator==(const WindowClass&) const = default;
  bool operator<(const WindowClass& other) const {
    return std::tie(instanceName, className) < std::tie(other.instanceName, other.className);
  }
};

// What is of interest in the text of a desktop entry; nothing unless it is a shown application with a name.
struct DesktopEntry {
  std::string name;               // UTF-8, repaired
  std::string startupWindowClass; // may be empty
};
std::optional<DesktopEntry> parseDesktopEntry(std::string_view text);

// The directories of desktop entries, the most important one first, from the values of XDG_DATA_HOME,
// XDG_DATA_DIRS and HOME; null or empty means not set.
std::vector<std::string> applicationDirectories(const char* dataHome, const char* dataDirectories,
                                                const char* home);
// The same from this process's environment.
std::vector<std::string> applicationDirectories();

// The names of the classes that have an entry: first by the entry's file name, then, in one pass over the
// directories that ends with the last class found, by the window class that entries declare. Bounded in
// files and bytes; what cannot be read is passed over.
std::map<WindowClass, std::string> applicationNames(const std::vector<WindowClass>& classes,
                                                    const std::vector<std::string>& directories);

} // namespace tessarin::x11
