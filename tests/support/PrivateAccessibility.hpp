#pragma once

#include "support/PrivateSessionBus.hpp"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tessarin {

// Accessibility of a test's own: a session bus, and the bus and the registry that applications speak to about
// their windows and fields. They are ended by their process ids. One thread.
class PrivateAccessibility {
 public:
  // The desktop, whose display the registry needs, outlives it. Returns when there is an accessibility bus.
  // Throws std::runtime_error.
  explicit PrivateAccessibility(const PrivateDesktop& desktop);
  ~PrivateAccessibility();
  PrivateAccessibility(const PrivateAccessibility&) = delete;
  PrivateAccessibility& operator=(const PrivateAccessibility&) = delete;

  // What a process needs to find this accessibility, and no other.
  std::vector<std::pair<std::string, std::string>> environment() const;
  // The same for an application on the desktop, which leaves nothing outside of a directory that is removed.
  std::vector<std::pair<std::string, std::string>> applicationEnvironment() const;

  PrivateSessionBus& sessionBus() { return session_; }
  // The accessibility bus accepts connections and answers nothing, or does again.
  void stopAnswering() const;
  void answerAgain() const;
  // Ends the accessibility bus at once, as if it had crashed.
  void kill() const;

 private:
  const PrivateDesktop& desktop_;
  const TemporaryDirectory directory_;
  PrivateSessionBus session_;
  std::unique_ptr<ChildProcess> launcher_;
  pid_t bus_ = -1; // started by the launcher
};

// The window of tests/desktop's program with a plain field and one for a password. It has the keyboard when
// it is made. The window lives as long as this. One thread.
class TestEntry {
 public:
  // The field to begin with: "plain" or "password". Throws std::runtime_error.
  explicit TestEntry(const PrivateAccessibility& accessibility, const std::string& field = "plain");

  std::uint32_t window() const { return window_; }
  pid_t pid() const { return process_.pid(); }
  // Carries out one command ("focus password", "focus plain", "clear", "present", ...) and returns when that
  // has been done.
  void command(const std::string& line);
  // What the field "plain" or "password" holds.
  std::string text(const std::string& field);
  // At once, as if it had crashed.
  void kill() { process_.end(SIGKILL); }

 private:
  std::string ask(const std::string& line);

  ChildProcess process_;
  std::uint32_t window_ = 0;
};

} // namespace tessarin
