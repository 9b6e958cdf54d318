// tessarin-private-desktop [--size WxH] [--no-client] [--compositing-manager] [client arguments...]
//
// Starts an X server of its own with a window manager and an animated client window, says "DISPLAY=:N" on
// standard output and lives until its standard input ends; then everything it started ends too.

#include "support/PrivateDesktop.hpp"

#include <unistd.h>

#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <vector>

int main(int count, char** arguments) {
  tessarin::PrivateDesktop::Options options;
  options.width = 1920;
  options.height = 1080;
  options.hasWindowManager = true;
  bool hasClient = true;
  std::vector<std::string> client;
  for (int i = 1; i < count; ++i) {
    const std::string argument = arguments[i];
    if (argument == "--size" && i + 1 < count &&
        std::sscanf(arguments[i + 1], "%dx%d", &options.width, &options.height) == 2) {
      ++i;
    } else if (argument == "--no-client") {
      hasClient = false;
    } else if (argument == "--compositing-manager") {
      options.hasCompositingManager = true;
    } else {
      client.push_back(argument);
    }
  }
  if (client.empty()) {
    client = {"--paint", "counter", "--size", "960x600", "--at", "120,90", "--title", "Frame counter"};
  }
  try {
    const tessarin::PrivateDesktop desktop(options);
    const auto window = hasClient ? desktop.client(client) : nullptr;
    std::printf("DISPLAY=%s\n", desktop.display().c_str());
    std::fflush(stdout);
    char ignored[256];
    while (read(STDIN_FILENO, ignored, sizeof ignored) > 0) {
    }
    return 0;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "tessarin-private-desktop: %s\n", failure.what());
    return 1;
  }
}
