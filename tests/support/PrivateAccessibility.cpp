#include "support/PrivateAccessibility.hpp"

#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

namespace tessarin {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

// The launcher, wherever distributions put it.
std::string launcherPath() {
  for (const char* const path :
       {"/usr/libexec/at-spi-bus-launcher", "/usr/lib/at-spi2-core/at-spi-bus-launcher"}) {
    struct stat info {};
    if (stat(path, &info) == 0)
      return path;
  }
  throw std::runtime_error("no accessibility is installed");
}

// The one process that the other has started; -1 after the time.
pid_t childOf(pid_t parent) {
  const std::string id = std::to_string(parent);
  for (const auto deadline = Clock::now() + seconds(10); Clock::now() < deadline;) {
    pid_t child = -1;
    std::ifstream children("/proc/" + id + "/task/" + id + "/children");
    if (children >> child)
      return child;
    std::this_thread::sleep_for(milliseconds(5));
  }
  return -1;
}

// Whether the process ends in time. Whoever has inherited it may leave it unreaped for long after that.
bool endsWithin(pid_t process, seconds limit) {
  const auto handle = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
  if (handle < 0)
    return true; // gone already
  pollfd end{handle, POLLIN, 0};
  const bool hasEnded = poll(&end, 1, static_cast<int>(milliseconds(limit).count())) > 0;
  close(handle);
  return hasEnded;
}

} // namespace

PrivateAccessibility::PrivateAccessibility(const PrivateDesktop& desktop) : desktop_(desktop) {
  launcher_ = std::make_unique<ChildProcess>(std::vector<std::string>{launcherPath(), "--launch-immediately"},
                                             ChildProcess::Settings{.environment = applicationEnvironment()});
  bus_ = childOf(launcher_->pid());
  if (bus_ < 0)
    throw std::runtime_error("the accessibility bus did not start");
}

// The launcher ends the bus, and the registry ends with it.
PrivateAccessibility::~PrivateAccessibility() {
  answerAgain();
  launcher_->end(SIGTERM);
  if (!endsWithin(bus_, seconds(3)))
    kill();
}

std::vector<std::pair<std::string, std::string>> PrivateAccessibility::environment() const {
  auto environment = session_.environment();
  environment.emplace_back("AT_SPI_BUS_ADDRESS", "");
  return environment;
}

std::vector<std::pair<std::string, std::string>> PrivateAccessibility::applicationEnvironment() const {
  auto environment = this->environment();
  for (const char* const directory : {"XDG_RUNTIME_DIR", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "HOME"})
    environment.emplace_back(directory, directory_.path());
  environment.emplace_back("GSETTINGS_BACKEND", "memory");
  environment.emplace_back("NO_AT_BRIDGE", "0");
  environment.emplace_back("DISPLAY", desktop_.display());
  return environment;
}

void PrivateAccessibility::stopAnswering() const {
  ::kill(bus_, SIGSTOP);
}

void PrivateAccessibility::answerAgain() const {
  ::kill(bus_, SIGCONT);
}

void PrivateAccessibility::kill() const {
  ::kill(bus_, SIGKILL);
}

TestEntry::TestEntry(const PrivateAccessibility& accessibility, const std::string& field)
    : process_({TESSARIN_TEST_ENTRY, field},
               {.environment = accessibility.applicationEnvironment(), .hasInput = true}) {
  const auto line = process_.readLine();
  if (!line || !line->starts_with("ready "))
    throw std::runtime_error("the window with a password did not come: " + line.value_or("nothing said"));
  window_ = static_cast<std::uint32_t>(std::stoul(line->substr(6)));
}

std::string TestEntry::ask(const std::string& line) {
  if (!process_.writeLine(line))
    throw std::runtime_error("the window with a password is gone");
  return process_.readLine().value_or("nothing said");
}

void TestEntry::command(const std::string& line) {
  const std::string answer = ask(line);
  if (answer != "done")
    throw std::runtime_error("the window with a password did not carry out \"" + line + "\": " + answer);
}

std::string TestEntry::text(const std::string& field) {
  const std::string answer = ask("text " + field);
  if (!answer.starts_with("text "))
    throw std::runtime_error("the window with a password does not tell its text: " + answer);
  return answer.substr(5);
}

} // namespace tessarin
