#include "support/PrivateDesktop.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <stdexcept>

extern char** environ;

namespace tessarin {

namespace {

using Clock = std::chrono::steady_clock;

struct Pipe {
  int readEnd = -1;
  int writeEnd = -1;

  Pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
      throw std::runtime_error("no pipe");
    }
    readEnd = ends[0];
    writeEnd = ends[1];
  }
  ~Pipe() {
    closeEnd(readEnd);
    closeEnd(writeEnd);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  static void closeEnd(int& end) {
    if (end >= 0) {
      close(end);
    }
    end = -1;
  }
};

int release(int& descriptor) {
  return std::exchange(descriptor, -1);
}

// Whether the descriptor has something before the deadline.
bool waitReadable(int descriptor, Clock::time_point deadline) {
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd entry{descriptor, POLLIN, 0};
    const int count = poll(&entry, 1, left > 0 ? static_cast<int>(left) + 1 : 0);
    if (count > 0) {
      return true;
    }
    if (count == 0 || errno != EINTR) {
      return false;
    }
  }
}

std::string readToEnd(int descriptor, Clock::time_point deadline) {
  std::string text;
  char part[4096];
  while (waitReadable(descriptor, deadline)) {
    const auto count = read(descriptor, part, sizeof part);
    if (count <= 0) {
      break;
    }
    text.append(part, static_cast<std::size_t>(count));
  }
  return text;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (auto& text : texts) {
    result.push_back(text.data());
  }
  result.push_back(nullptr);
  return result;
}

std::vector<std::string>
mergedEnvironment(const std::vector<std::pair<std::string, std::string>>& additions) {
  std::vector<std::string> result;
  for (const auto& [name, value] : additions) {
    result.push_back(name + "=" + value);
  }
  for (char** entry = environ; *entry; ++entry) {
    const std::string text(*entry);
    const auto name = text.substr(0, text.find('='));
    bool isReplaced = false;
    for (const auto& addition : additions) {
      isReplaced = isReplaced || addition.first == name;
    }
    if (!isReplaced) {
      result.push_back(text);
    }
  }
  return result;
}

// Runs between fork and exec: only calls that are safe there.
[[noreturn]] void becomeChild(pid_t parent, char* const* arguments, char* const* environment, int input,
                              int output, int inherited) {
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) {
    _exit(127);
  }
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  signal(SIGPIPE, SIG_DFL);
  const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
  dup2(input >= 0 ? input : nowhere, STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  dup2(nowhere, STDERR_FILENO);
  if (inherited >= 0) {
    fcntl(inherited, F_SETFD, 0);
  }
  execvpe(arguments[0], arguments, environment);
  _exit(127);
}

} // namespace

ChildProcess::ChildProcess(std::vector<std::string> arguments, const Settings& settings) {
  Pipe in;
  Pipe out;
  auto environmentTexts = mergedEnvironment(settings.environment);
  const auto environmentPointers = pointers(environmentTexts);
  const auto argumentPointers = pointers(arguments);
  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ < 0) {
    throw std::runtime_error("no process");
  }
  if (pid_ == 0) {
    becomeChild(parent, argumentPointers.data(), environmentPointers.data(),
                settings.hasInput ? in.readEnd : -1, out.writeEnd, settings.inheritedDescriptor);
  }
  setpgid(pid_, pid_);
  processDescriptor_ = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
  output_ = release(out.readEnd);
  if (settings.hasInput) {
    input_ = release(in.writeEnd);
  }
}

ChildProcess::~ChildProcess() {
  end(SIGTERM);
  closeInput();
  Pipe::closeEnd(output_);
  Pipe::closeEnd(processDescriptor_);
}

bool ChildProcess::isRunning() {
  return !waitForEnd(std::chrono::milliseconds(0));
}

std::optional<std::string> ChildProcess::readLine(std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  for (;;) {
    const auto end = buffered_.find('\n');
    if (end != std::string::npos) {
      auto line = buffered_.substr(0, end);
      buffered_.erase(0, end + 1);
      return line;
    }
    char part[512];
    if (!waitReadable(output_, deadline)) {
      return std::nullopt;
    }
    const auto count = read(output_, part, sizeof part);
    if (count <= 0) {
      return std::nullopt;
    }
    buffered_.append(part, static_cast<std::size_t>(count));
  }
}

bool ChildProcess::writeLine(const std::string& line) {
  const std::string text = line + "\n";
  // A child that is gone must not take the test with it.
  struct sigaction ignore = {};
  struct sigaction before = {};
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &ignore, &before);
  const bool isWritten = write(input_, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  sigaction(SIGPIPE, &before, nullptr);
  return isWritten;
}

void ChildProcess::closeInput() {
  Pipe::closeEnd(input_);
}

std::optional<int> ChildProcess::waitForEnd(std::chrono::milliseconds limit) {
  if (!status_ && waitReadable(processDescriptor_, Clock::now() + limit)) {
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
  }
  return status_;
}

void ChildProcess::end(int signal) {
  if (status_) {
    return;
  }
  kill(pid_, signal);
  if (!waitForEnd(std::chrono::seconds(3))) {
    kill(-pid_, SIGKILL);
    waitForEnd(std::chrono::seconds(10));
  }
}

TestClient::TestClient(const std::string& display, const std::vector<std::string>& arguments)
    : process_(
          [&] {
            std::vector<std::string> all = {TESSARIN_TEST_CLIENT};
            all.insert(all.end(), arguments.begin(), arguments.end());
            return all;
          }(),
          {.environment = {{"DISPLAY", display}}, .hasInput = true}) {
  const auto line = process_.readLine();
  if (!line || !line->starts_with("ready ")) {
    throw std::runtime_error("the test client did not start: " + line.value_or("nothing said"));
  }
  window_ = static_cast<std::uint32_t>(std::stoul(line->substr(6)));
}

void TestClient::command(const std::string& line) {
  if (!process_.writeLine(line) || process_.readLine() != "done") {
    throw std::runtime_error("the test client did not carry out: " + line);
  }
}

PrivateDesktop::PrivateDesktop(const Options& options) {
  Pipe answer;
  std::vector<std::string> arguments = {"Xvfb",
                                        "-displayfd",
                                        std::to_string(answer.writeEnd),
                                        "-nolisten",
                                        "tcp",
                                        "-noreset",
                                        "-ac",
                                        "-screen",
                                        "0",
                                        std::to_string(options.width) + "x" + std::to_string(options.height) +
                                            "x24",
                                        "+extension",
                                        "Composite",
                                        "+extension",
                                        "RANDR",
                                        "+extension",
                                        "XTEST"};
  arguments.insert(arguments.end(), options.serverArguments.begin(), options.serverArguments.end());
  server_ = std::make_unique<ChildProcess>(
      arguments, ChildProcess::Settings{.environment = {}, .inheritedDescriptor = answer.writeEnd});
  Pipe::closeEnd(answer.writeEnd);
  auto number = readToEnd(answer.readEnd, Clock::now() + std::chrono::seconds(10));
  while (!number.empty() && number.back() == '\n') {
    number.pop_back();
  }
  if (number.empty()) {
    throw std::runtime_error("the X server did not start");
  }
  display_ = ":" + number;

  const auto manager = [this](const std::string& program, const std::string& kind) {
    managers_.push_back(start({program}));
    waitFor(kind);
  };
  if (options.hasWindowManager) {
    manager("openbox", "window-manager");
  }
  if (options.hasCompositingManager) {
    manager("xcompmgr", "compositing-manager");
  }
}

PrivateDesktop::~PrivateDesktop() {
  managers_.clear();
  server_->end(SIGTERM);
  removeTraces();
}

std::unique_ptr<TestClient> PrivateDesktop::client(const std::vector<std::string>& arguments) const {
  return std::make_unique<TestClient>(display_, arguments);
}

std::unique_ptr<ChildProcess> PrivateDesktop::start(std::vector<std::string> arguments) const {
  return std::make_unique<ChildProcess>(std::move(arguments),
                                        ChildProcess::Settings{.environment = environment()});
}

std::string PrivateDesktop::run(const std::vector<std::string>& arguments) const {
  const auto process = start(arguments);
  std::string text;
  while (const auto line = process->readLine()) {
    text += *line + "\n";
  }
  if (process->waitForEnd() != 0) {
    throw std::runtime_error(arguments.front() + " failed");
  }
  return text;
}

void PrivateDesktop::waitFor(const std::string& manager) const {
  ChildProcess process({TESSARIN_TEST_CLIENT, "--wait-for", manager}, {.environment = environment()});
  if (process.readLine() != "ready 0") {
    throw std::runtime_error("no " + manager);
  }
}

// Servers take the first number whose name in the system nobody has. While the test has it, no other server
// answers in the place of the one that is gone.
void PrivateDesktop::killServer() {
  server_->end(SIGKILL);
  heldName_ = holdName();
  if (heldName_ < 0) {
    throw std::runtime_error("another server has taken the number of display " + display_);
  }
}

void PrivateDesktop::killWindowManager() {
  managers_.at(0)->end(SIGKILL);
}

std::vector<std::pair<std::string, std::string>> PrivateDesktop::environment() const {
  // No session of the machine may be asked in passing.
  return {{"DISPLAY", display_}, {"DBUS_SESSION_BUS_ADDRESS", "disabled:"}, {"XAUTHORITY", "/dev/null"}};
}

std::string PrivateDesktop::socketFile() const {
  return "/tmp/.X11-unix/X" + display_.substr(1);
}

// A socket with the server's abstract name, on which nobody listens; -1 where another one has that name.
int PrivateDesktop::holdName() const {
  const std::string file = socketFile();
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  file.copy(address.sun_path + 1, sizeof address.sun_path - 1);
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + file.size());
  int name = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (name >= 0 && bind(name, reinterpret_cast<const sockaddr*>(&address), size) != 0) {
    Pipe::closeEnd(name);
  }
  return name;
}

// What a server that was killed leaves behind.
void PrivateDesktop::removeTraces() {
  if (heldName_ < 0) {
    heldName_ = holdName();
  }
  if (heldName_ >= 0) {
    unlink(socketFile().c_str());
  }
  Pipe::closeEnd(heldName_);
}

} // namespace tessarin
