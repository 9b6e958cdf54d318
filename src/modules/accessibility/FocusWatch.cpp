#include "modules/accessibility/FocusWatch.hpp"

#include <cstdlib>
#include <cstring>
#include <utility>

namespace tessarin::accessibility {

namespace {

// How often a field for secrets is asked whether it still has the focus.
constexpr std::uint64_t checkMicroseconds = 1'000'000;
// How often an application that has come is looked at, and how many times.
constexpr std::uint64_t lookMicroseconds = 200'000;
constexpr int mostLooks = 50;
// Starting the accessibility bus when it is first asked for may take a while on a busy machine.
constexpr std::chrono::seconds startPatience{25};

AccessibleObject subject(sd_bus_message* signal) {
  const char* const sender = sd_bus_message_get_sender(signal);
  const char* const path = sd_bus_message_get_path(signal);
  return {sender ? sender : "", path ? path : ""};
}

std::string eventRule(const char* interface, const char* member, const std::string& more = {}) {
  return std::string("type='signal',interface='org.a11y.atspi.Event.") + interface + "',member='" + member +
         "'" + more;
}

} // namespace

FocusWatch::FocusWatch(sd_event* loop, Reports reports)
    : loop_(loop), reports_(std::move(reports)),
      tracker_([this](const AccessibleObject& field, std::uint64_t question) {
        return inspect(field, question);
      }) {}

void FocusWatch::start() {
  sd_event_source* timer = nullptr;
  const bool hasTimer =
      sd_event_add_time_relative(loop_, &timer, CLOCK_MONOTONIC, checkMicroseconds, 0, checkDue, this) >= 0;
  timer_.reset(timer);
  if (!hasTimer || sd_event_source_set_enabled(timer, SD_EVENT_OFF) < 0 || !askAddress())
    lost();
}

// The bus that the environment names, as for the toolkits, else the session's.
bool FocusWatch::askAddress() {
  const char* const named = std::getenv("AT_SPI_BUS_ADDRESS");
  if (named && *named)
    return connect(named);
  session_ = AsyncBus::ofSession(loop_);
  if (!session_)
    return false;
  const Message call = session_->methodCall({"org.a11y.Bus", "/org/a11y/bus"}, "org.a11y.Bus", "GetAddress");
  return session_->send(call, startPatience, [this](Outcome, sd_bus_message* reply) {
    const char* address = nullptr;
    if (!reply || sd_bus_message_read(reply, "s", &address) < 0 || !connect(address))
      lost();
  });
}

bool FocusWatch::connect(const std::string& address) {
  bus_ = AsyncBus::at(loop_, address);
  if (!bus_)
    return false;
  listen();
  search_ = std::make_unique<FocusSearch>(
      *bus_,
      [this](const AccessibleObject& field) {
        tracker_.foundFocused(field);
        settle();
      },
      [this] {
        isSearched_ = true;
        settle();
      });
  search_->start();
  return true;
}

// Before the first look, so that nothing is missed in between.
void FocusWatch::listen() {
  const auto onFocus = [this](sd_bus_message* signal) { focusEvent(signal); };
  const auto onWindow = [this](sd_bus_message* signal) {
    tracker_.windowChanged(subject(signal).application);
    settle();
  };
  const auto onKind = [this](sd_bus_message* signal) {
    tracker_.kindChanged(subject(signal));
    settle();
  };
  bus_->listen("type='signal',path='/org/freedesktop/DBus/Local',interface='org.freedesktop.DBus.Local',"
               "member='Disconnected'",
               [this](sd_bus_message*) { lost(); });
  bus_->listen("type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
               "member='NameOwnerChanged'",
               [this](sd_bus_message* signal) { ownerChanged(signal); });
  bus_->listen(eventRule("Object", "StateChanged", ",arg0='focused'"), onFocus);
  bus_->listen(eventRule("Object", "PropertyChange", ",arg0='accessible-role'"), onKind);
  bus_->listen(eventRule("Object", "ChildrenChanged", std::string(",arg0='add',path='") + rootPath + "'"),
               [this](sd_bus_message* signal) { applicationCame(signal); });
  bus_->listen(eventRule("Window", "Activate"), onWindow);
  bus_->listen(eventRule("Window", "Deactivate"), onWindow);
  for (const char* const event : {"object:state-changed:focused", "object:property-change:accessible-role",
                                  "window:activate", "window:deactivate"})
    registerFor(event);
}

// Applications ask the registry what anybody listens to. The registry forgets it when this connection ends.
void FocusWatch::registerFor(const char* event) {
  const Message call = bus_->methodCall({"org.a11y.atspi.Registry", "/org/a11y/atspi/registry"},
                                        "org.a11y.atspi.Registry", "RegisterEvent");
  // No properties of the object are to be sent along, and events of all applications.
  if (call && sd_bus_message_append(call.get(), "sass", event, 0, "") >= 0)
    bus_->send(call, startPatience, [](Outcome, sd_bus_message*) {});
}

bool FocusWatch::inspect(const AccessibleObject& field, std::uint64_t question) {
  if (!bus_)
    return false;
  return bus_->send(bus_->methodCall(field, "org.a11y.atspi.Accessible", "GetRole"), patience,
                    [this, field, question](Outcome outcome, sd_bus_message* reply) {
                      std::uint32_t role = 0;
                      if (reply && sd_bus_message_read(reply, "u", &role) > 0)
                        inspectStates(field, question, role == passwordTextRole);
                      else
                        concluded(outcome, question, std::nullopt);
                    });
}

void FocusWatch::inspectStates(const AccessibleObject& field, std::uint64_t question, bool isPassword) {
  const bool isSent = bus_->send(bus_->methodCall(field, "org.a11y.atspi.Accessible", "GetState"), patience,
                                 [this, question, isPassword](Outcome outcome, sd_bus_message* reply) {
                                   StateBits bits{};
                                   std::optional<FieldAnswer> answer;
                                   if (reply && readStates(reply, bits))
                                     answer = FieldAnswer{isPassword, has(bits, AccessibleState::focused)};
                                   concluded(outcome, question, answer);
                                 });
  if (!isSent)
    concluded(Outcome::late, question, std::nullopt);
}

void FocusWatch::concluded(Outcome outcome, std::uint64_t question, std::optional<FieldAnswer> answer) {
  if (answer)
    tracker_.answered(question, *answer);
  else if (outcome == Outcome::late)
    tracker_.late(question);
  else
    tracker_.refused(question);
  settle();
}

// The registry tells so of each application, whether anybody has registered for it or not.
void FocusWatch::applicationCame(sd_bus_message* signal) {
  const char* change = nullptr;
  std::int32_t ignored = 0;
  const char* application = nullptr;
  const char* path = nullptr;
  if (sd_bus_message_read(signal, "sii", &change, &ignored, &ignored) < 0 ||
      sd_bus_message_read(signal, "v", "(so)", &application, &path) < 0 || std::strcmp(path, rootPath) != 0)
    return;
  newcomers_[application].looksLeft = mostLooks;
  lookAtNewcomers();
  sd_event_source_set_enabled(timer_.get(), SD_EVENT_OFF); // it may be set for later
  settle();
}

// A search is kept until it is done, also when no other follows.
void FocusWatch::lookAtNewcomers() {
  std::erase_if(newcomers_, [](const auto& entry) {
    return entry.second.looksLeft == 0 && entry.second.search && entry.second.search->isDone();
  });
  for (auto& [application, newcomer] : newcomers_) {
    if (newcomer.looksLeft == 0 || (newcomer.search && !newcomer.search->isDone()))
      continue;
    --newcomer.looksLeft;
    newcomer.search = std::make_unique<FocusSearch>(
        *bus_,
        [this](const AccessibleObject& field) {
          tracker_.foundFocused(field);
          settle();
        },
        [] {});
    newcomer.search->startIn(application);
  }
}

// Looks at it no more.
void FocusWatch::leaveAlone(const std::string& newcomer) {
  if (const auto known = newcomers_.find(newcomer); known != newcomers_.end())
    known->second.looksLeft = 0;
}

void FocusWatch::focusEvent(sd_bus_message* signal) {
  const char* state = nullptr;
  std::int32_t isGained = 0;
  if (sd_bus_message_read(signal, "si", &state, &isGained) < 0)
    return;
  const AccessibleObject field = subject(signal);
  if (isGained != 0) {
    tracker_.focusGained(field);
    leaveAlone(field.application);
  } else {
    tracker_.focusLost(field);
  }
  settle();
}

void FocusWatch::ownerChanged(sd_bus_message* signal) {
  const char* name = nullptr;
  const char* before = nullptr;
  const char* after = nullptr;
  if (sd_bus_message_read(signal, "sss", &name, &before, &after) < 0 || *after != '\0')
    return;
  tracker_.applicationGone(name);
  leaveAlone(name);
  settle();
}

// There is nothing to watch, or no longer.
void FocusWatch::lost() {
  tracker_.clear();
  isSearched_ = true;
  settle();
}

void FocusWatch::settle() {
  reports_.focus(tracker_.isPasswordFocused(), tracker_.isKnownPasswordFocused());
  if (!isKnown_ && isSearched_ && !tracker_.isAsking()) {
    isKnown_ = true;
    reports_.known();
  }
  int enabled = SD_EVENT_OFF;
  if ((tracker_.needsChecking() || !newcomers_.empty()) &&
      sd_event_source_get_enabled(timer_.get(), &enabled) >= 0 && enabled == SD_EVENT_OFF) {
    sd_event_source_set_time_relative(timer_.get(),
                                      newcomers_.empty() ? checkMicroseconds : lookMicroseconds);
    sd_event_source_set_enabled(timer_.get(), SD_EVENT_ONESHOT);
  }
}

int FocusWatch::checkDue(sd_event_source*, std::uint64_t, void* self) {
  auto* const watch = static_cast<FocusWatch*>(self);
  watch->tracker_.checkAll();
  watch->lookAtNewcomers();
  watch->settle();
  return 0;
}

} // namespace tessarin::accessibility
