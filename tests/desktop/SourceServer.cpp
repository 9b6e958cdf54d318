#include "SourceServer.hpp"

#include <time.h>
#include <unistd.h>

#include <stdexcept>

namespace tessarin::source {

std::int64_t now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

void say(const std::string& line) {
  const auto text = line + "\n";
  if (write(STDOUT_FILENO, text.data(), text.size()) < 0) {
    throw std::runtime_error("nobody listens");
  }
}

Server::Server() {
  pw_init(nullptr, nullptr);
  loop_ = pw_main_loop_new(nullptr);
  // Sound is made on a thread as urgent as the server's own.
  auto* properties =
      pw_properties_new("support.dbus", "false", PW_KEY_CONFIG_NAME, "client-rt.conf", nullptr);
  context_ = pw_context_new(pw_main_loop_get_loop(loop_), properties, 0);
  core_ = pw_context_connect(context_, nullptr, 0);
  if (!core_) {
    throw std::runtime_error("no server");
  }
  events_.version = PW_VERSION_CORE_EVENTS;
  events_.error = [](void* self, std::uint32_t id, int, int, const char*) {
    if (id == PW_ID_CORE) {
      static_cast<Server*>(self)->quit();
    }
  };
  pw_core_add_listener(core_, &listener_, &events_, this);
}

Server::~Server() {
  if (core_) {
    pw_core_disconnect(core_);
  }
  pw_context_destroy(context_);
  pw_main_loop_destroy(loop_);
  pw_deinit();
}

void Server::run(std::function<void(const std::string&)> onLine) {
  onLine_ = std::move(onLine);
  pw_loop_add_io(
      loop(), STDIN_FILENO, SPA_IO_IN | SPA_IO_HUP | SPA_IO_ERR, false,
      [](void* self, int, std::uint32_t) { static_cast<Server*>(self)->read(); }, this);
  pw_main_loop_run(loop_);
}

void Server::read() {
  char part[512];
  const auto count = ::read(STDIN_FILENO, part, sizeof part);
  if (count <= 0) {
    quit();
    return;
  }
  pending_.append(part, static_cast<std::size_t>(count));
  for (auto end = pending_.find('\n'); end != std::string::npos; end = pending_.find('\n')) {
    const auto line = pending_.substr(0, end);
    pending_.erase(0, end + 1);
    onLine_(line);
  }
}

} // namespace tessarin::source
