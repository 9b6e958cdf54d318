#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// A desktop of a test's own: X server, window manager and client windows as child processes. They are ended
// by their process ids, and by the system when the thread that started them ends.
namespace tessarin {

// A started program in a process group of its own. Ended when destroyed. One thread.
class ChildProcess {
 public:
  struct Settings {
    std::vector<std::pair<std::string, std::string>> environment = {}; // over what this process has
    int inheritedDescriptor = -1; // stays open in the child under its number
    bool hasInput = false;        // otherwise standard input is empty
  };
  // The first argument is the program, looked up in PATH. Throws std::runtime_error.
  ChildProcess(std::vector<std::string> arguments, const Settings& settings);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t pid() const { return pid_; }
  bool isRunning();
  // The next line of standard output without its line feed; nothing at its end or after the time.
  std::optional<std::string> readLine(std::chrono::milliseconds limit = std::chrono::seconds(10));
  // False when the child no longer reads.
  bool writeLine(const std::string& line);
  void closeInput();
  // Waits for the end without asking for it; the exit status, or nothing after the time.
  std::optional<int> waitForEnd(std::chrono::milliseconds limit = std::chrono::seconds(10));
  // Asks with the signal, waits, and ends the whole group by force if need be.
  void end(int signal);

 private:
  pid_t pid_ = -1;
  int processDescriptor_ = -1;
  int input_ = -1;
  int output_ = -1;
  std::string buffered_;
  std::optional<int> status_;
};

// A window of tests/desktop's client program. The window lives as long as this.
class TestClient {
 public:
  TestClient(const std::string& display, const std::vector<std::string>& arguments);

  std::uint32_t window() const { return window_; }
  std::string windowID() const { return std::to_string(window_); }
  pid_t pid() const { return process_.pid(); }
  // Carries out one command ("move 10 20", "paint ff00ff00", ...) and returns when the server has done it.
  void command(const std::string& line);
  ChildProcess& process() { return process_; }

 private:
  ChildProcess process_;
  std::uint32_t window_ = 0;
};

class PrivateDesktop {
 public:
  struct Options {
    int width = 1280;
    int height = 800;
    bool hasWindowManager = false;
    bool hasCompositingManager = false;
    std::vector<std::string> serverArguments = {}; // further ones
  };
  // Returns when the server answers and the managers have taken over. Throws std::runtime_error.
  explicit PrivateDesktop(const Options& options);
  PrivateDesktop() : PrivateDesktop(Options()) {}
  ~PrivateDesktop();
  PrivateDesktop(const PrivateDesktop&) = delete;
  PrivateDesktop& operator=(const PrivateDesktop&) = delete;

  // As the environment variable DISPLAY has it.
  const std::string& display() const { return display_; }
  pid_t serverPid() const { return server_->pid(); }

  // Starts a client window; see tests/desktop for the arguments. Returns when it is to be seen.
  std::unique_ptr<TestClient> client(const std::vector<std::string>& arguments) const;
  // Starts any program on this desktop.
  std::unique_ptr<ChildProcess> start(std::vector<std::string> arguments) const;
  // Runs a program to its end. Its standard output; throws std::runtime_error when it fails.
  std::string run(const std::vector<std::string>& arguments) const;
  // Returns when the manager named is there: "window-manager", "compositing-manager" or "tray".
  void waitFor(const std::string& manager) const;

  // Ends the server at once, as if it had crashed.
  void killServer();
  // Ends the window manager at once; it must have been asked for.
  void killWindowManager();

 private:
  std::vector<std::pair<std::string, std::string>> environment() const;
  std::string socketFile() const;
  int holdName() const;
  void removeTraces();

  std::unique_ptr<ChildProcess> server_;
  std::string display_;
  int heldName_ = -1; // a descriptor, once the server has been killed
  std::vector<std::unique_ptr<ChildProcess>> managers_;
};

} // namespace tessarin
