#pragma once

#include "modules/accessibility/AsyncBus.hpp"

#include <cstddef>
#include <deque>
#include <functional>
#include <string>
#include <vector>

namespace tessarin::accessibility {

// How long an application may take to answer a call.
inline constexpr std::chrono::seconds patience{3};

// Adds what an object with children yields to the list; false when the reply is none of objects.
bool readObjects(sd_bus_message* reply, std::vector<AccessibleObject>& objects);
// False when the reply is none of states.
bool readStates(sd_bus_message* reply, StateBits& bits);

// Looks once for what has the focus now: in the active windows of all applications or of one, by asking each
// window for its focused objects, and where an application cannot search by itself, by walking what is to be
// seen of the window. Confined to the loop's thread; makes calls until it is done or destroyed, after the bus
// at the latest.
class FocusSearch {
 public:
  using Found = std::function<void(const AccessibleObject& field)>;
  // The bus outlives the search. Done is called once: in a later turn of the loop, or by the start where
  // nothing can be asked.
  FocusSearch(AsyncBus& bus, Found found, std::function<void()> done)
      : bus_(bus), found_(std::move(found)), done_(std::move(done)) {}
  FocusSearch(const FocusSearch&) = delete;
  FocusSearch& operator=(const FocusSearch&) = delete;

  // One of them, once.
  void start();
  void startIn(const std::string& application);
  bool isDone() const { return isDone_; }

 private:
  enum class Level : std::uint8_t { registry, application, window, part };
  struct Step {
    AccessibleObject object;
    Level level;
  };
  // The calls that may be open at a time, so that no application is flooded; and the objects that are looked
  // at, of which a page in a browser may have any number.
  static constexpr std::size_t mostOpenCalls = 32;
  static constexpr std::size_t mostObjects = 20'000;

  void look(AccessibleObject object, Level level);
  void proceed();
  void take(const Step& step);
  void askChildren(const Step& step);
  void askStates(const Step& step);
  bool askMatches(const Step& window); // false when that cannot be asked
  bool send(const Message& call, AsyncBus::Answer answer);
  void statesKnown(const Step& step, const StateBits& bits);

  AsyncBus& bus_;
  const Found found_;
  const std::function<void()> done_;
  std::deque<Step> waiting_;
  std::size_t openCalls_ = 0;
  std::size_t seenObjects_ = 0;
  bool isDone_ = false;
};

} // namespace tessarin::accessibility
