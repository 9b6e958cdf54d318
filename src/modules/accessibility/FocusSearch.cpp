#include "modules/accessibility/FocusSearch.hpp"

#include <utility>

namespace tessarin::accessibility {

namespace {

constexpr const char* accessible = "org.a11y.atspi.Accessible";
constexpr std::int32_t matchAll = 1;
constexpr std::uint32_t canonicalOrder = 1; // from the outside to the inside
constexpr std::int32_t anyNumber = 0;

// The rule "whatever has the state focused" of the collection interface: states, attributes, roles and
// interfaces, each with the way to match it; and not inverted.
bool appendFocusedRule(sd_bus_message* call) {
  constexpr auto focusedBit = std::int32_t{1} << static_cast<unsigned>(AccessibleState::focused);
  return sd_bus_message_append(call, "(aiia{ss}iaiiasib)", 2, focusedBit, 0, matchAll, 0, matchAll, 4, 0, 0,
                               0, 0, matchAll, 0, matchAll, 0) >= 0 &&
         sd_bus_message_append(call, "uib", canonicalOrder, anyNumber, 1) >= 0;
}

} // namespace

bool readObjects(sd_bus_message* reply, std::vector<AccessibleObject>& objects) {
  if (sd_bus_message_enter_container(reply, 'a', "(so)") < 0)
    return false;
  const char* application = nullptr;
  const char* path = nullptr;
  while (sd_bus_message_read(reply, "(so)", &application, &path) > 0)
    objects.push_back({application, path});
  return true;
}

bool readStates(sd_bus_message* reply, StateBits& bits) {
  if (sd_bus_message_enter_container(reply, 'a', "u") < 0)
    return false;
  for (std::uint32_t& part : bits)
    sd_bus_message_read(reply, "u", &part);
  return true;
}

void FocusSearch::start() {
  look({"org.a11y.atspi.Registry", rootPath}, Level::registry);
  proceed();
}

void FocusSearch::startIn(const std::string& application) {
  look({application, rootPath}, Level::application);
  proceed();
}

void FocusSearch::look(AccessibleObject object, Level level) {
  if (++seenObjects_ <= mostObjects)
    waiting_.push_back({std::move(object), level});
}

void FocusSearch::proceed() {
  while (openCalls_ < mostOpenCalls && !waiting_.empty()) {
    const Step step = std::move(waiting_.front());
    waiting_.pop_front();
    take(step);
  }
  if (openCalls_ == 0 && !isDone_) {
    isDone_ = true;
    done_();
  }
}

// What cannot be asked is passed over.
void FocusSearch::take(const Step& step) {
  if (step.level == Level::registry || step.level == Level::application)
    askChildren(step);
  else
    askStates(step);
}

// Every answer goes on with what waits.
bool FocusSearch::send(const Message& call, AsyncBus::Answer answer) {
  const bool isSent =
      bus_.send(call, patience, [this, answer = std::move(answer)](Outcome outcome, sd_bus_message* reply) {
        --openCalls_;
        answer(outcome, reply);
        proceed();
      });
  if (isSent)
    ++openCalls_;
  return isSent;
}

void FocusSearch::askChildren(const Step& step) {
  send(bus_.methodCall(step.object, accessible, "GetChildren"),
       [this, level = step.level](Outcome, sd_bus_message* reply) {
         std::vector<AccessibleObject> children;
         if (!reply || !readObjects(reply, children))
           return;
         const Level next = level == Level::registry      ? Level::application
                            : level == Level::application ? Level::window
                                                          : Level::part;
         for (AccessibleObject& child : children)
           look(std::move(child), next);
       });
}

void FocusSearch::askStates(const Step& step) {
  send(bus_.methodCall(step.object, accessible, "GetState"), [this, step](Outcome, sd_bus_message* reply) {
    StateBits bits{};
    if (reply && readStates(reply, bits))
      statesKnown(step, bits);
  });
}

void FocusSearch::statesKnown(const Step& step, const StateBits& bits) {
  if (step.level == Level::window) {
    if (has(bits, AccessibleState::active) && !askMatches(step))
      askChildren(step);
    return;
  }
  if (has(bits, AccessibleState::focused))
    found_(step.object);
  // A container may say that it is focused as well as what is in it.
  if (has(bits, AccessibleState::showing) && !has(bits, AccessibleState::managesDescendants))
    askChildren(step);
}

bool FocusSearch::askMatches(const Step& window) {
  const Message call = bus_.methodCall(window.object, "org.a11y.atspi.Collection", "GetMatches");
  if (!call || !appendFocusedRule(call.get()))
    return false;
  return send(call, [this, window](Outcome outcome, sd_bus_message* reply) {
    std::vector<AccessibleObject> matches;
    if (reply && readObjects(reply, matches)) {
      for (const AccessibleObject& match : matches)
        found_(match);
    } else if (outcome == Outcome::refused) {
      askChildren(window);
    }
  });
}

} // namespace tessarin::accessibility
