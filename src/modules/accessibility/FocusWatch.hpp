#pragma once

#include "modules/accessibility/AsyncBus.hpp"
#include "modules/accessibility/FocusSearch.hpp"
#include "modules/accessibility/FocusTracker.hpp"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace tessarin::accessibility {

// Follows the focus on the accessibility bus, which the session's bus tells, from a first look on. Confined
// to the loop's thread; works when the loop is turned and never waits.
//
// An application that comes later may have its window active before it has heard that anybody listens, and
// then tells nothing of it. So it is looked at for a while, until it tells of a focus.
//
// It registers with the bus for the events that it needs, which is what makes most toolkits send any, and
// changes no setting of the session. When the accessibility bus goes, its applications have lost it for good
// as well, so that nothing is watched from then on.
class FocusWatch {
 public:
  struct Reports {
    // Each time it may have changed; whether the field that counts as secret is known to be one, too.
    std::function<void(bool isFocused, bool isKnownPassword)> focus;
    std::function<void()> known; // once: what has the focus now is known, or cannot be
  };
  // The loop outlives it. The reports are called in later turns of the loop, known perhaps in start().
  FocusWatch(sd_event* loop, Reports reports);
  FocusWatch(const FocusWatch&) = delete;
  FocusWatch& operator=(const FocusWatch&) = delete;

  void start();

 private:
  struct TimerDeleter {
    void operator()(sd_event_source* source) const noexcept { sd_event_source_disable_unref(source); }
  };

  struct Newcomer {
    int looksLeft = 0;
    std::unique_ptr<FocusSearch> search;
  };

  bool askAddress();
  bool connect(const std::string& address);
  void listen();
  void registerFor(const char* event);
  bool inspect(const AccessibleObject& field, std::uint64_t question);
  void inspectStates(const AccessibleObject& field, std::uint64_t question, bool isPassword);
  void concluded(Outcome outcome, std::uint64_t question, std::optional<FieldAnswer> answer);
  void applicationCame(sd_bus_message* signal);
  void lookAtNewcomers();
  void leaveAlone(const std::string& newcomer);
  void focusEvent(sd_bus_message* signal);
  void ownerChanged(sd_bus_message* signal);
  void lost();
  void settle();
  static int checkDue(sd_event_source* timer, std::uint64_t due, void* self);

  sd_event* const loop_;
  const Reports reports_;
  FocusTracker tracker_;
  bool isKnown_ = false;
  bool isSearched_ = false; // the first look is over
  std::unique_ptr<sd_event_source, TimerDeleter> timer_;
  std::unique_ptr<AsyncBus> session_;
  // Searches outlive the bus, whose answers refer to them.
  std::unique_ptr<FocusSearch> search_;
  std::map<std::string, Newcomer> newcomers_; // by application
  std::unique_ptr<AsyncBus> bus_;
};

} // namespace tessarin::accessibility
