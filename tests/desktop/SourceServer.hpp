#pragma once

#include <pipewire/pipewire.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace tessarin::source {

// Nanoseconds on the monotonic clock.
std::int64_t now();

// Writes a line to standard output.
void say(const std::string& line);

struct PropertiesDeleter {
  void operator()(pw_properties* properties) const { pw_properties_free(properties); }
};
using Properties = std::unique_ptr<pw_properties, PropertiesDeleter>;

// The program's connection and its main loop, on which everything runs except the making of sound. Every
// failure throws std::runtime_error: a source without its server is done.
class Server {
 public:
  Server();
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  pw_core* core() const { return core_; }
  pw_loop* loop() const { return pw_main_loop_get_loop(loop_); }
  // Runs until standard input ends, the server goes or quit() is called. Each line of standard input is
  // handed to the function.
  void run(std::function<void(const std::string&)> onLine);
  void quit() { pw_main_loop_quit(loop_); }

 private:
  void read();

  pw_main_loop* loop_ = nullptr;
  pw_context* context_ = nullptr;
  pw_core* core_ = nullptr;
  spa_hook listener_{};
  pw_core_events events_{};
  std::function<void(const std::string&)> onLine_;
  std::string pending_;
};

} // namespace tessarin::source
