// tessarin-test-client: one deterministic window for tests, benchmarks and the demo.
//
// Says "ready <window>" on standard output when the window is to be seen, carries out the commands that come
// on standard input, answering "done" to each, and ends when its input ends.

#include "ClientOptions.hpp"
#include "ClientServer.hpp"
#include "ClientWindow.hpp"

#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <string>

namespace tessarin::client {
namespace {

void say(const std::string& line) {
  const auto text = line + "\n";
  if (write(STDOUT_FILENO, text.data(), text.size()) < 0) {
    throw std::runtime_error("nobody listens");
  }
}

// False at the end of input.
bool readCommands(ClientWindow& window, std::string& pending) {
  char part[512];
  const auto count = read(STDIN_FILENO, part, sizeof part);
  if (count <= 0) {
    return false;
  }
  pending.append(part, static_cast<std::size_t>(count));
  for (auto end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
    const auto line = pending.substr(0, end);
    pending.erase(0, end + 1);
    window.carryOut(line);
    say("done");
  }
  return true;
}

void live(Server& server, ClientWindow& window) {
  std::string pending;
  for (;;) {
    while (const auto event = server.waitForEvent(0)) {
      window.handle(*event);
    }
    pollfd entries[3] = {{STDIN_FILENO, POLLIN, 0},
                         {xcb_get_file_descriptor(server.get()), POLLIN, 0},
                         {window.counter() ? window.counter()->timer() : -1, POLLIN, 0}};
    xcb_flush(server.get());
    if (poll(entries, 3, -1) < 0) {
      continue;
    }
    if (entries[2].revents != 0) {
      window.paintDueFrame();
    }
    if (entries[0].revents != 0 && !readCommands(window, pending)) {
      return;
    }
  }
}

} // namespace
} // namespace tessarin::client

int main(int count, char** arguments) {
  using namespace tessarin::client;
  try {
    const auto options = parseOptions({arguments + 1, arguments + count});
    Server server;
    if (options.waitFor) {
      waitForManager(server, *options.waitFor);
      say("ready 0");
      return 0;
    }
    ClientWindow window(server, options);
    window.show();
    say("ready " + std::to_string(window.id()));
    live(server, window);
    return 0;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "tessarin-test-client: %s\n", failure.what());
    return 1;
  }
}
