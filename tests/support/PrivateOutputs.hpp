#pragma once

#include "support/PrivateDesktop.hpp"
#include "support/TemporaryDirectory.hpp"

#include <memory>
#include <string>
#include <vector>

namespace tessarin {

// An X server of a test's own with up to sixteen real outputs, which can be plugged in, arranged and turned
// off as those of a graphics card: Xorg with a driver that needs no card. Ended by its process id.
class PrivateOutputs {
 public:
  static constexpr int most = 16;

  struct Output {
    int x = 0;
    int y = 0;
    std::string mode = "640x480"; // one that the driver knows: also 800x600 and 1024x768
  };

  // Returns when the server answers. One output is there. Throws std::runtime_error.
  PrivateOutputs();
  ~PrivateOutputs();
  PrivateOutputs(const PrivateOutputs&) = delete;
  PrivateOutputs& operator=(const PrivateOutputs&) = delete;

  // As the environment variable DISPLAY has it.
  const std::string& display() const { return display_; }

  // Exactly these, the first one the primary; returns when they are there.
  void arrange(const std::vector<Output>& outputs) const;

  // Starts a client window; see tests/desktop for the arguments.
  std::unique_ptr<TestClient> client(const std::vector<std::string>& arguments) const;

 private:
  void run(std::vector<std::string> arguments) const;

  TemporaryDirectory directory_; // of the server's configuration and log
  std::unique_ptr<ChildProcess> server_;
  std::string display_;
};

} // namespace tessarin
