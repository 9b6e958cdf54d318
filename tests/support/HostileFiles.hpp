#pragma once

#include "support/TemporaryDirectory.hpp"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace tessarin::testing {

// What somebody may put where a file is expected, and a place outside that none of it may reach.
class HostileFiles {
 public:
  enum class Kind { link, directory, special, regular };

  struct File {
    std::string name;
    Kind kind = Kind::special;
    std::function<void(const std::string& path)> put; // at a path that is free
  };

  static constexpr std::int64_t hugeBytes = std::int64_t{1} << 40;

  HostileFiles() {
    outside_.write("victim", untouched);
    std::filesystem::create_directory(outside_ / "folder");
  }

  std::string victim() const { return outside_ / "victim"; }
  std::string folder() const { return outside_ / "folder"; }

  // Nothing outside was written, made or removed.
  bool isOutsideUntouched() const {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(outside_.path()))
      ++count;
    return count == 2 && outside_.read("victim") == untouched && std::filesystem::is_empty(folder());
  }

  std::vector<File> all() const {
    std::vector<File> files = {
        {"link to a file", Kind::link, linkTo(victim())},
        {"link to a folder", Kind::link, linkTo(folder())},
        {"link to nothing", Kind::link, linkTo(outside_ / "nothing")},
        {"link to itself", Kind::link, [](const std::string& path) { linkTo(path)(path); }},
        {"link to zeros", Kind::link, linkTo("/dev/zero")},
        {"link to a full device", Kind::link, linkTo("/dev/full")},
        {"link to the terminal", Kind::link, linkTo("/dev/tty")},
        {"link to this process's files", Kind::link, linkTo("/proc/self/fd/0")},
        {"FIFO", Kind::special, [](const std::string& path) { check(::mkfifo(path.c_str(), 0600)); }},
        {"socket", Kind::special, putSocket},
        {"folder", Kind::directory,
         [](const std::string& path) {
           std::filesystem::create_directory(path);
           std::ofstream(path + "/inside") << untouched;
         }},
        {"huge hole", Kind::regular, [](const std::string& path) {
           std::ofstream(path).flush();
           std::filesystem::resize_file(path, hugeBytes);
         }}};
    // Only some may make devices.
    const std::string probe = outside_ / "device";
    if (::mknod(probe.c_str(), S_IFCHR | 0600, makedev(1, 5)) == 0) {
      std::filesystem::remove(probe);
      files.push_back({"endless device", Kind::special, [](const std::string& path) {
                         check(::mknod(path.c_str(), S_IFCHR | 0600, makedev(1, 5)));
                       }});
      files.push_back({"full device", Kind::special, [](const std::string& path) {
                         check(::mknod(path.c_str(), S_IFCHR | 0600, makedev(1, 7)));
                       }});
    }
    return files;
  }

 private:
  static constexpr const char* untouched = "untouched";

  static void check(int result) {
    if (result == -1)
      throw std::system_error(errno, std::generic_category(), "a hostile file cannot be made");
  }
  static std::function<void(const std::string&)> linkTo(const std::string& target) {
    return [target](const std::string& path) { std::filesystem::create_symlink(target, path); };
  }
  // By a short relative name, as an address holds about a hundred bytes.
  static void putSocket(const std::string& path) {
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    check(descriptor);
    const TemporaryDirectory close;
    const std::string bound = close / "s";
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    if (bound.size() >= sizeof address.sun_path)
      throw std::runtime_error("the directory of tests has too long a name");
    bound.copy(address.sun_path, bound.size());
    const int result = ::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    ::close(descriptor);
    check(result);
    std::filesystem::rename(bound, path);
  }

  TemporaryDirectory outside_;
};

// Whether a path is still what it was: a kind and, of a regular file, a size.
struct PathState {
  std::filesystem::file_type type = std::filesystem::file_type::none;
  std::uintmax_t bytes = 0;

  static PathState of(const std::string& path) {
    PathState state;
    state.type = std::filesystem::symlink_status(path).type();
    if (state.type == std::filesystem::file_type::regular)
      state.bytes = std::filesystem::file_size(path);
    return state;
  }
  bool operator==(const PathState&) const = default;
};

// Whether something ends within ten seconds, which is a thousand times what it takes.
template<class Action> bool endsInTime(const Action& action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  return std::chrono::steady_clock::now() - start < std::chrono::seconds(10);
}

// A directory below another whose path has exactly so many bytes; it is made.
inline std::string deepDirectory(const std::string& below, std::size_t bytes) {
  constexpr std::size_t longestStep = 201; // with its slash
  std::string path = below;
  while (path.size() + 2 <= bytes) {
    std::size_t step = bytes - path.size();
    if (step > longestStep)
      step = step - longestStep < 2 ? longestStep - 2 : longestStep;
    path.append("/").append(step - 1, 'd');
  }
  if (path.size() != bytes)
    throw std::runtime_error("no directory has so short a path");
  std::filesystem::create_directories(path);
  return path;
}

} // namespace tessarin::testing
