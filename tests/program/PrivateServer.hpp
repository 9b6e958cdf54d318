#pragma once

#include "support/PrivateDesktop.hpp"

#include <unistd.h>

#include <csignal>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace tessarin {

// A bare X server that can give way to another one under the same name, as when a session is begun anew.
// Ended by its process id. Its number is far from those that other servers look for, so that none takes it in
// between.
class PrivateServer {
 public:
  explicit PrivateServer(const std::string& size = "320x240") { start(size); }

  // As the environment variable DISPLAY has it.
  const std::string& display() const { return display_; }

  void end() { server_->end(SIGTERM); }
  // Returns when it answers. Throws std::runtime_error.
  void start(const std::string& size) {
    server_ = std::make_unique<ChildProcess>(std::vector<std::string>{"Xvfb", display_, "-displayfd", "1",
                                                                      "-nolisten", "tcp", "-noreset", "-ac",
                                                                      "-screen", "0", size + "x24"},
                                             ChildProcess::Settings());
    if (":" + server_->readLine().value_or("") != display_)
      throw std::runtime_error("the X server did not start");
  }
  void restart(const std::string& size = "320x240") {
    end();
    start(size);
  }

 private:
  const std::string display_ = ":" + std::to_string(10'000 + ::getpid() % 40'000);
  std::unique_ptr<ChildProcess> server_;
};

} // namespace tessarin
