#pragma once

#include "modules/accessibility/AccessibleObject.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace tessarin::accessibility {

// What a field is, as it answers.
struct FieldAnswer {
  bool isPassword = false;
  bool hasFocus = false;
};

// What is known of the focus, for each application by itself: what one in the background tells must not hide
// that a field for secrets has the keyboard in front. A field of which it is not known yet what it is counts
// as one for secrets. Without a bus; confined to one thread.
//
// An application is believed when it says that a field has the focus; from then on the field is asked again
// and again, since some applications do not tell when their window loses the keyboard. One that no longer
// answers says nothing any more, until it does.
class FocusTracker {
 public:
  // Asks the field. What comes of it is told later by answered(), refused() or late(); nothing when it cannot
  // be asked, which is false.
  using Ask = std::function<bool(const AccessibleObject& field, std::uint64_t question)>;
  explicit FocusTracker(Ask ask) : ask_(std::move(ask)) {}

  // What applications tell.
  void focusGained(const AccessibleObject& field);
  void focusLost(const AccessibleObject& field);
  void kindChanged(const AccessibleObject& field);
  void windowChanged(const std::string& application); // one of its windows has got or lost the keyboard
  void applicationGone(const std::string& application);
  // What was found by looking, from the outside to the inside, so that a later find of the same application
  // is the better one, but for a password that has the focus. What the application itself has told meanwhile
  // is newer.
  void foundFocused(const AccessibleObject& field);

  // What became of a question. Those that are out of date are ignored.
  void answered(std::uint64_t question, FieldAnswer answer);
  void refused(std::uint64_t question);
  void late(std::uint64_t question);

  // Asks the fields that count as ones for secrets, and those that have not answered.
  void checkAll();
  // Nothing is known any more.
  void clear() { fields_.clear(); }

  bool isPasswordFocused() const;
  // The same without fields of which it is not known what they are.
  bool isKnownPasswordFocused() const;
  // Whether checkAll() has anything to do, now or later.
  bool needsChecking() const;
  // Whether a field has been told of or found that has not said yet what it is.
  bool isAsking() const;

 private:
  enum class Kind : std::uint8_t { unknown, password, plain };
  struct Field {
    std::string path;
    Kind kind = Kind::unknown;
    bool hasFocus = true;
    bool isToldFocused = true;  // by the application itself, and not asked since
    bool isFound = false;       // by looking, and the application has told nothing since
    bool answers = true;        // false from a question that was not answered to one that is
    std::uint64_t question = 0; // the open one; 0 for none
  };
  using Fields = std::map<std::string, Field>; // by application

  template<class Counts> bool isAnyFocused(const Counts& counts) const;
  void ask(const std::string& application, Field& field);
  void checkOthers(const std::string& application);
  Field* fieldOf(const AccessibleObject& object);
  Fields::iterator asked(std::uint64_t question);

  const Ask ask_;
  Fields fields_;
  std::uint64_t lastQuestion_ = 0;
};

} // namespace tessarin::accessibility
