#pragma once

#include <systemd/sd-bus.h>

#include <poll.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace tessarin {

// An application as accessibility sees it, with objects that a test makes up, and the registry that knows it,
// on a bus of the test's own. It cannot search its objects by itself. Served by a thread of its own; any
// thread.
class ScriptedAccessible {
 public:
  struct Object {
    std::uint32_t role = 0;
    std::vector<int> states = {};           // by their numbers
    std::vector<std::string> children = {}; // paths
  };
  using Objects = std::map<std::string, Object>;
  static constexpr const char* root = "/org/a11y/atspi/accessible/root";

  // The objects by their paths. "/windows" stands for the application itself, whose children are its windows.
  ScriptedAccessible(const std::string& address, Objects objects) : objects_(std::move(objects)) {
    if (sd_bus_new(&bus_) < 0 || sd_bus_set_address(bus_, address.c_str()) < 0 ||
        sd_bus_set_bus_client(bus_, 1) < 0 || sd_bus_start(bus_) < 0 ||
        sd_bus_add_fallback(bus_, nullptr, "/", called, this) < 0 ||
        sd_bus_request_name(bus_, "org.a11y.atspi.Registry", 0) < 0)
      throw std::runtime_error("no application for accessibility");
    thread_ = std::thread([this] { serve(); });
  }
  ~ScriptedAccessible() {
    isEnding_ = true;
    thread_.join();
    sd_bus_close_unref(bus_);
  }
  ScriptedAccessible(const ScriptedAccessible&) = delete;
  ScriptedAccessible& operator=(const ScriptedAccessible&) = delete;

  void change(const std::string& path, const Object& object) {
    const std::lock_guard lock(mutex_);
    objects_[path] = object;
  }
  void tellFocused(const std::string& path, bool isFocused) {
    const std::lock_guard lock(mutex_);
    sd_bus_emit_signal(bus_, path.c_str(), "org.a11y.atspi.Event.Object", "StateChanged", "siiva{sv}",
                       "focused", isFocused ? 1 : 0, 0, "i", 0, 0);
    sd_bus_flush(bus_);
  }
  // As the registry does when an application has come.
  void tellCame() {
    const std::lock_guard lock(mutex_);
    const char* name = nullptr;
    sd_bus_get_unique_name(bus_, &name);
    sd_bus_emit_signal(bus_, root, "org.a11y.atspi.Event.Object", "ChildrenChanged", "siiva{sv}", "add", 0, 0,
                       "(so)", name, root, 0);
    sd_bus_flush(bus_);
  }
  // How often an object was asked for its states.
  int asked(const std::string& path) {
    const std::lock_guard lock(mutex_);
    return asked_[path];
  }

 private:
  void serve() {
    while (!isEnding_) {
      {
        const std::lock_guard lock(mutex_);
        while (sd_bus_process(bus_, nullptr) > 0) {
        }
      }
      pollfd entry{sd_bus_get_fd(bus_), POLLIN, 0};
      poll(&entry, 1, 5);
    }
  }

  static int called(sd_bus_message* call, void* self, sd_bus_error*) {
    return static_cast<ScriptedAccessible*>(self)->answer(call);
  }

  // Under the mutex, which serve() holds.
  int answer(sd_bus_message* call) {
    const std::string path = sd_bus_message_get_path(call);
    const std::string member = sd_bus_message_get_member(call);
    if (member == "RegisterEvent")
      return sd_bus_reply_method_return(call, nullptr);
    if (member == "GetChildren")
      return answerChildren(call,
                            path == root ? std::vector<std::string>{"/windows"} : objects_[path].children);
    if (member == "GetRole")
      return sd_bus_reply_method_return(call, "u", objects_[path].role);
    if (member != "GetState")
      return 0; // the library says that there is no such method
    ++asked_[path];
    std::uint32_t bits[2] = {0, 0};
    for (const int state : objects_[path].states)
      bits[state / 32] |= std::uint32_t{1} << (state % 32);
    return sd_bus_reply_method_return(call, "au", 2, bits[0], bits[1]);
  }

  int answerChildren(sd_bus_message* call, const std::vector<std::string>& children) {
    const char* name = nullptr;
    sd_bus_message* reply = nullptr;
    sd_bus_get_unique_name(bus_, &name);
    sd_bus_message_new_method_return(call, &reply);
    sd_bus_message_open_container(reply, 'a', "(so)");
    for (const std::string& child : children)
      sd_bus_message_append(reply, "(so)", name, child.c_str());
    sd_bus_message_close_container(reply);
    const int sent = sd_bus_send(bus_, reply, nullptr);
    sd_bus_message_unref(reply);
    return sent < 0 ? sent : 1;
  }

  sd_bus* bus_ = nullptr; // under the mutex, as are the objects
  std::mutex mutex_;
  Objects objects_;
  std::map<std::string, int> asked_;
  std::atomic<bool> isEnding_ = false;
  std::thread thread_;
};

} // namespace tessarin
