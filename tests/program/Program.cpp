#include "Program.hpp"

#include "base/Text.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <stdexcept>

namespace tessarin {

namespace {

constexpr std::chrono::seconds limit{30};

struct Pipe {
  int readEnd = -1;
  int writeEnd = -1;

  Pipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
      throw std::runtime_error("no pipe");
    readEnd = ends[0];
    writeEnd = ends[1];
  }
  ~Pipe() {
    ::close(readEnd);
    closeWriteEnd();
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  void closeWriteEnd() {
    if (writeEnd >= 0)
      ::close(writeEnd);
    writeEnd = -1;
  }
};

[[noreturn]] void becomeProgram(const std::vector<std::string>& arguments, const ProgramSettings& settings,
                                int input, int output, int diagnostics) {
  if (settings.hasStandardInput)
    ::dup2(input, STDIN_FILENO);
  else
    ::close(STDIN_FILENO);
  ::dup2(diagnostics, STDERR_FILENO);
  const int target = settings.standardOutput.value_or(output);
  if (target >= 0)
    ::dup2(target, STDOUT_FILENO);
  else
    ::close(STDOUT_FILENO);
  for (const auto& [name, value] : settings.environment)
    ::setenv(name.c_str(), value.c_str(), 1);
  if (settings.display)
    ::setenv("DISPLAY", settings.display->c_str(), 1);
  else
    ::unsetenv("DISPLAY");
  std::signal(SIGPIPE, SIG_DFL);
  std::vector<char*> values = {const_cast<char*>(TESSARIN_PROGRAM)};
  for (const std::string& argument : arguments)
    values.push_back(const_cast<char*>(argument.c_str()));
  values.push_back(nullptr);
  if (::chdir(settings.workingDirectory.c_str()) == 0)
    ::execv(TESSARIN_PROGRAM, values.data());
  ::_exit(127);
}

// A file without a name that holds the bytes, read from its beginning.
int fileOf(const std::string& bytes) {
  const int file = ::memfd_create("input", MFD_CLOEXEC);
  if (file < 0 || ::pwrite(file, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
    throw std::runtime_error("no input");
  return file;
}

// Until both ends are at their end.
void collect(int output, int diagnostics, ProgramResult& result) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  std::array<pollfd, 2> entries = {{{output, POLLIN, 0}, {diagnostics, POLLIN, 0}}};
  while (entries[0].fd >= 0 || entries[1].fd >= 0) {
    const auto left = deadline - std::chrono::steady_clock::now();
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(left).count();
    if (milliseconds <= 0 || ::poll(entries.data(), entries.size(), static_cast<int>(milliseconds)) == 0)
      throw std::runtime_error("the program does not end");
    for (std::size_t i = 0; i < entries.size(); ++i) {
      if (entries[i].fd < 0 || entries[i].revents == 0)
        continue;
      std::array<char, 65536> part{};
      const ssize_t count = ::read(entries[i].fd, part.data(), part.size());
      if (count > 0)
        (i == 0 ? result.output : result.diagnostics).append(part.data(), static_cast<std::size_t>(count));
      else
        entries[i].fd = -1;
    }
  }
}

} // namespace

ProgramResult runProgram(const std::vector<std::string>& arguments, const ProgramSettings& settings) {
  Pipe output;
  Pipe diagnostics;
  const int input = fileOf(settings.standardInput);
  const pid_t child = ::fork();
  if (child < 0)
    throw std::runtime_error("no process");
  if (child == 0)
    becomeProgram(arguments, settings, input, output.writeEnd, diagnostics.writeEnd);
  ::close(input);
  output.closeWriteEnd();
  diagnostics.closeWriteEnd();

  ProgramResult result;
  try {
    collect(output.readEnd, diagnostics.readEnd, result);
  } catch (const std::runtime_error&) {
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    throw;
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  if (WIFEXITED(status))
    result.exitStatus = WEXITSTATUS(status);
  else
    result.signal = WTERMSIG(status);
  if (result.exitStatus == 127)
    throw std::runtime_error("the program cannot be run");
  return result;
}

std::vector<std::string> withRequest(const std::string& command, std::string_view requestJSON) {
  return {command, "--request-json", encodedBase64(requestJSON)};
}

std::string successReply(std::string_view dataJSON) {
  return R"({"data":)" + std::string(dataJSON) + ",\"ok\":true,\"schemaVersion\":1}\n";
}

std::string failureReply(std::string_view code, std::string_view message) {
  return R"({"error":{"code":")" + std::string(code) + R"(","message":")" + std::string(message) +
         "\",\"recoverable\":true},\"ok\":false,\"schemaVersion\":1}\n";
}

} // namespace tessarin
