// tessarin-private-desktop [--size WxH] [--no-client] [--compositing-manager] [--sound]
//                          [--flash-and-beep SECONDS] [--] [client arguments...]
//
// Starts an X server of its own with a window manager and an animated client window, says "DISPLAY=:N" on
// standard output and lives until its standard input ends; then everything it started ends too. With --sound
// there are a sound server, a microphone that hears a tone and a camera too, whose variables follow, one a
// line, and then "ready"; with --flash-and-beep a black window of its own turns white that often, and a beep
// is played at the same moment. Everything behind "--" goes to the client.

#include "support/FlashAndBeep.hpp"
#include "support/PrivateDesktop.hpp"
#include "support/PrivateSoundServer.hpp"

#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <vector>

namespace {

struct Arguments {
  tessarin::PrivateDesktop::Options desktop;
  bool hasClient = true;
  bool hasSound = false;
  int flashInterval = 0; // seconds; 0 is never
  std::vector<std::string> client;
};

Arguments parse(int count, char** words) {
  Arguments result;
  result.desktop.width = 1920;
  result.desktop.height = 1080;
  result.desktop.hasWindowManager = true;
  for (int i = 1; i < count; ++i) {
    const std::string argument = words[i];
    const bool hasNext = i + 1 < count;
    if (argument == "--") {
      result.client.assign(words + i + 1, words + count);
      break;
    }
    if (argument == "--size" && hasNext &&
        std::sscanf(words[i + 1], "%dx%d", &result.desktop.width, &result.desktop.height) == 2) {
      ++i;
    } else if (argument == "--flash-and-beep" && hasNext) {
      result.flashInterval = std::stoi(words[++i]);
      result.hasSound = true;
    } else if (argument == "--no-client") {
      result.hasClient = false;
    } else if (argument == "--compositing-manager") {
      result.desktop.hasCompositingManager = true;
    } else if (argument == "--sound") {
      result.hasSound = true;
    } else {
      result.client.push_back(argument);
    }
  }
  if (result.client.empty()) {
    result.client = {"--paint", "counter", "--size", "960x600", "--at", "120,90", "--title", "Frame counter"};
  }
  return result;
}

// A sound server with all that a recording can use.
struct Studio {
  tessarin::PrivateSoundServer server;
  std::unique_ptr<tessarin::TestSource> microphone =
      server.source({"microphone", "--description", "Test microphone", "--amplitude", "0.25"});
  std::unique_ptr<tessarin::TestSource> camera =
      server.source({"camera", "--description", "Test camera", "--offer", "yuy2,1280x720,30"});
  std::unique_ptr<tessarin::TestSource> player = server.source({"player"});

  void say() const {
    for (const auto& [name, value] : server.environment()) {
      std::printf("%s=%s\n", name.c_str(), value.c_str());
    }
    std::printf("ready\n");
    std::fflush(stdout);
  }
};

// Whether standard input has something, or its end, before the time is up; -1 is for ever.
bool waitForInput(int milliseconds) {
  pollfd entry{STDIN_FILENO, POLLIN, 0};
  return poll(&entry, 1, milliseconds) != 0;
}

} // namespace

int main(int count, char** words) {
  try {
    const auto arguments = parse(count, words);
    const tessarin::PrivateDesktop desktop(arguments.desktop);
    const auto window = arguments.hasClient ? desktop.client(arguments.client) : nullptr;
    const auto studio = arguments.hasSound ? std::make_unique<Studio>() : nullptr;
    std::printf("DISPLAY=%s\n", desktop.display().c_str());
    std::fflush(stdout);
    if (studio) {
      studio->say();
    }
    // Beside the animated one, which goes on meanwhile.
    const auto flashing = arguments.flashInterval > 0
                              ? desktop.client({"--paint", "solid", "--colour", "ff000000", "--size",
                                                "960x400", "--at", "900,660", "--style", "override"})
                              : nullptr;
    char ignored[256];
    for (;;) {
      if (!waitForInput(flashing ? arguments.flashInterval * 1000 : -1)) {
        tessarin::flashAndBeep(*flashing, {studio->player.get()});
      } else if (read(STDIN_FILENO, ignored, sizeof ignored) <= 0) {
        return 0;
      }
    }
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "tessarin-private-desktop: %s\n", failure.what());
    return 1;
  }
}
