#pragma once

#include "backends/x11/InputFocus.hpp"
#include "backends/x11/InputRecord.hpp"
#include "backends/x11/InputRules.hpp"
#include "ports/InteractionEvents.hpp"

#include <cstdint>
#include <optional>

namespace tessarin::x11 {

struct RecordedKeyPress {
  KeyPress press; // without its host time, and secret only as far as the keyboard is taken
  std::uint32_t serverTime = 0;
};

// The keyboard as a record tells it: which keys are down, what modifiers mean, where the focus is and who has
// taken the keyboard, all in the order in which the server did it, so that a press finds each as it was when
// it happened. Nothing of what was typed stays here but which keys are down. Confined to one thread. All
// throw DesktopFailure when the server is lost.
class InputKeyboard {
 public:
  explicit InputKeyboard(InputRecord& record); // which outlives this

  // The press that an element is, when it is one that other programs get. Before isReady() there is none.
  std::optional<RecordedKeyPress> handle(const RecordedElement& element);
  // When all that came is handled.
  void refresh() { focus_.refresh(); }
  // Symbols or modifiers of the keys are others now.
  void mappingChanged();

  // Whether it is known which keys are down and whether the keyboard is taken.
  bool isReady() const { return knowsKeys_ && grabs_.isKnown(); }
  // Whether another program has taken the keyboard.
  bool isTaken() const { return grabs_.isTaken(); }
  // Whether to ask now and then, since not every end of a grab is told.
  bool isHeld() const { return grabs_.isTaken() || grabs_.isOurs(); }
  // Asks who has the keyboard; the record brings the answer.
  void ask();

 private:
  std::optional<RecordedKeyPress> pressed(const xcb_key_press_event_t& event);
  void focusChanged(const RecordedElement& element);
  void replied(const RecordedElement& reply);
  void granted(const RecordedElement& reply);

  InputRecord& record_;
  Connection& connection_;
  const xcb_window_t unseen_; // a window of ours that is never mapped
  HeldKeys keys_;
  bool knowsKeys_ = false;
  ModifierMasks masks_;
  KeyboardGrabs grabs_;
  bool isAsking_ = false;
  bool asksAgain_ = false;
  InputFocus focus_;
};

} // namespace tessarin::x11
