#pragma once

#include "support/PrivateDesktop.hpp"
#include "support/TemporaryDirectory.hpp"

#include <csignal>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// A server of sound and cameras of a test's own, with a session bus, a session manager and one output that
// plays to nobody. Nothing of the machine is seen by it: no sound card, no camera, no settings of the user.
namespace tessarin {

// A microphone, a camera or a player of tests/desktop's source program. Ending it is unplugging it.
class TestSource {
 public:
  TestSource(const std::vector<std::pair<std::string, std::string>>& environment,
             const std::vector<std::string>& arguments);
  ~TestSource() { thaw(); }
  TestSource(const TestSource&) = delete;
  TestSource& operator=(const TestSource&) = delete;

  // Carries out one command ("hold", "release", "stall", "resume", ...) and returns when that has been done.
  void command(const std::string& line);
  // Plays a beep at the moment on the monotonic clock, in nanoseconds, or as soon as possible. Yields the
  // moment, in nanoseconds, at which its first sample is heard.
  std::int64_t beep(std::optional<std::int64_t> at = std::nullopt);
  // Stands still until thaw(): those who listen to a microphone get nothing at all, where "hold" is silence
  // to them.
  void freeze();
  void thaw();
  // At once, without a word to the server.
  void unplug() { process_.end(SIGKILL); }
  ChildProcess& process() { return process_; }

 private:
  ChildProcess process_;
};

class PrivateSoundServer {
 public:
  struct Options {
    std::string sinkName = "test-speakers";
    std::string sinkDescription = "Test speakers";
    bool hasSink = true;
    // Beyond what environment() tells, for everything started here.
    std::vector<std::pair<std::string, std::string>> environment = {};
  };
  // Returns when the server answers and the sink is the default output. Throws std::runtime_error.
  explicit PrivateSoundServer(const Options& options);
  PrivateSoundServer() : PrivateSoundServer(Options()) {}
  ~PrivateSoundServer();
  PrivateSoundServer(const PrivateSoundServer&) = delete;
  PrivateSoundServer& operator=(const PrivateSoundServer&) = delete;

  // What a process needs to find this server and its bus, and to find no other.
  const std::vector<std::pair<std::string, std::string>>& environment() const { return environment_; }
  const std::string& runtimeDirectory() const { return runtimeDirectory_; }

  // Starts a source of tests/desktop; see there for the arguments. Returns when its node is there and, for
  // a microphone or a camera, the session manager knows it.
  std::unique_ptr<TestSource> source(const std::vector<std::string>& arguments) const;
  std::unique_ptr<ChildProcess> start(std::vector<std::string> arguments) const;
  // Runs a program to its end. Its standard output; throws std::runtime_error when it fails.
  std::string run(const std::vector<std::string>& arguments) const;

  // The name of the default node as the session manager tells it ("audio.sink", "audio.source",
  // "video.source"); empty when there is none.
  std::string defaultNode(const std::string& kind) const;
  // Makes a node the user's choice of its kind. Returns when it is the default.
  void setDefaultNode(const std::string& kind, const std::string& name) const;
  // Adds another output. Yields what removeSink() takes.
  std::string addSink(const std::string& name, const std::string& description) const;
  void removeSink(const std::string& module) const;

  // Ends the server at once, as if it had crashed; everything that was started stays without it.
  void killServer();
  // Starts a server anew after killServer(), as a session does.
  void restartServer();
  // The server stands still: it accepts connections and answers nothing, until goOn().
  void stopAnswering();
  void goOn();
  // The same of the session bus, for good.
  void stopBus();

 private:
  void writeConfiguration(const Options& options) const;
  void startBus();
  void startServer();

  const TemporaryDirectory directory_;
  const bool hasSink_;
  const std::string sinkName_;
  std::string runtimeDirectory_;
  std::vector<std::pair<std::string, std::string>> environment_;
  std::unique_ptr<ChildProcess> bus_;
  std::unique_ptr<ChildProcess> server_;
  std::unique_ptr<ChildProcess> manager_;
  std::unique_ptr<ChildProcess> pulse_;
};

// The variables set for this process itself, for backends inside it; put back when destroyed. No other thread
// may be running when it is made or destroyed.
class ProcessEnvironment {
 public:
  explicit ProcessEnvironment(const std::vector<std::pair<std::string, std::string>>& variables);
  ~ProcessEnvironment();
  ProcessEnvironment(const ProcessEnvironment&) = delete;
  ProcessEnvironment& operator=(const ProcessEnvironment&) = delete;

 private:
  std::vector<std::pair<std::string, std::optional<std::string>>> before_;
};

} // namespace tessarin
