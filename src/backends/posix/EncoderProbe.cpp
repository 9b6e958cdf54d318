#include "backends/posix/EncoderProbe.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tessarin {

namespace {

bool exists(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0;
}

bool isExecutable(const std::string& path) {
  return access(path.c_str(), X_OK) == 0;
}

bool hasEntry(const std::string& directory, std::string_view prefix) {
  struct Close {
    void operator()(DIR* open) const { closedir(open); }
  };
  const std::unique_ptr<DIR, Close> open(opendir(directory.c_str()));
  while (const dirent* const entry = open ? readdir(open.get()) : nullptr)
    if (std::string_view(entry->d_name).starts_with(prefix))
      return true;
  return false;
}

// How a child is started: no input, no output, nothing of this process's descriptors and signal mask.
class SpawnSetup {
 public:
  SpawnSetup() {
    posix_spawn_file_actions_init(&actions_);
    posix_spawnattr_init(&attributes_);
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
      keep(posix_spawn_file_actions_addopen(&actions_, descriptor, "/dev/null", O_RDWR, 0));
    keep(posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));
    sigset_t signals;
    sigemptyset(&signals);
    keep(posix_spawnattr_setsigmask(&attributes_, &signals));
    sigaddset(&signals, SIGPIPE);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGALRM);
    keep(posix_spawnattr_setsigdefault(&attributes_, &signals));
    keep(posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF));
  }
  ~SpawnSetup() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }
  SpawnSetup(const SpawnSetup&) = delete;
  SpawnSetup& operator=(const SpawnSetup&) = delete;

  std::optional<pid_t> spawn(const std::string& program, const std::string& argument) const {
    std::string name = program;
    std::string only = argument;
    const std::array<char*, 3> arguments{name.data(), only.data(), nullptr};
    pid_t child = 0;
    if (error_ != 0 ||
        posix_spawn(&child, program.c_str(), &actions_, &attributes_, arguments.data(), environ) != 0)
      return std::nullopt;
    return child;
  }

 private:
  void keep(int error) {
    if (error_ == 0)
      error_ = error;
  }

  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
  int error_ = 0; // the first one
};

std::chrono::nanoseconds monotonicNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

// Waits until the child has ended, for so long at most; false when it has not. The child is not collected.
bool awaitEnd(pid_t child, std::chrono::milliseconds timeLimit) {
  const int descriptor = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
  if (descriptor < 0)
    return false; // a kernel without them: as if the time were up
  const auto end = monotonicNow() + timeLimit;
  int result = 0;
  do {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - monotonicNow()).count();
    pollfd ended{.fd = descriptor, .events = POLLIN, .revents = 0};
    result = left > 0 ? poll(&ended, 1, static_cast<int>(left)) : 0;
  } while (result < 0 && errno == EINTR);
  close(descriptor);
  return result > 0;
}

// A child that has ended already keeps its status. One that even a kill does not end sits in its driver: it
// is left to whatever that waits for, rather than to keep a recording waiting.
bool endsWithSuccess(pid_t child, std::chrono::milliseconds timeLimit) {
  constexpr std::chrono::seconds longestEnd{2};
  if (!awaitEnd(child, timeLimit)) {
    kill(child, SIGKILL);
    awaitEnd(child, longestEnd);
  }
  int status = 0;
  return waitpid(child, &status, WNOHANG) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace

bool EncoderProbe::works(const std::string& encoderName) {
  const std::lock_guard lock(mutex_);
  const auto known = answers_.find(encoderName);
  if (known != answers_.end())
    return known->second;
  const bool answer = hasDevice(encoderName) && runProgram(encoderName);
  answers_.emplace(encoderName, answer);
  return answer;
}

// What needs no device that is known here is simply tried.
bool EncoderProbe::hasDevice(std::string_view encoderName) const {
  if (encoderName.ends_with("_vaapi"))
    return hasEntry(options_.deviceDirectory + "/dri", "renderD");
  if (encoderName.ends_with("_nvenc"))
    return exists(options_.deviceDirectory + "/nvidiactl") || exists(options_.deviceDirectory + "/nvidia0");
  return true;
}

bool EncoderProbe::runProgram(const std::string& encoderName) const {
  for (const std::string& directory : options_.directories) {
    const std::string program = directory + "/tessarin-encoder-probe";
    if (!isExecutable(program))
      continue;
    const std::optional<pid_t> child = SpawnSetup().spawn(program, encoderName);
    if (!child)
      return false;
    return endsWithSuccess(*child, options_.timeLimit);
  }
  return false;
}

} // namespace tessarin
