#include "modules/accessibility/FocusTracker.hpp"

#include <algorithm>

namespace tessarin::accessibility {

void FocusTracker::focusGained(const AccessibleObject& object) {
  Field& field = fields_[object.application];
  // What a field is stays known when it is told of twice.
  if (field.path != object.path)
    field = Field{.path = object.path};
  field.hasFocus = true;
  field.isToldFocused = true;
  field.isFound = false;
  ask(object.application, field);
  checkOthers(object.application);
}

void FocusTracker::focusLost(const AccessibleObject& object) {
  if (Field* const field = fieldOf(object)) {
    field->hasFocus = false;
    field->question = 0;
  }
}

void FocusTracker::kindChanged(const AccessibleObject& object) {
  if (Field* const field = fieldOf(object))
    ask(object.application, *field);
}

void FocusTracker::windowChanged(const std::string& application) {
  const auto known = fields_.find(application);
  if (known == fields_.end())
    return;
  known->second.isToldFocused = false;
  ask(application, known->second);
}

void FocusTracker::applicationGone(const std::string& application) {
  fields_.erase(application);
}

void FocusTracker::foundFocused(const AccessibleObject& object) {
  const auto [entry, isNew] = fields_.try_emplace(object.application);
  Field& field = entry->second;
  const bool isKnown = field.hasFocus && (field.kind == Kind::password || field.path == object.path);
  if (!isNew && (!field.isFound || isKnown))
    return;
  field = Field{.path = object.path, .isToldFocused = false, .isFound = true};
  ask(object.application, field);
}

void FocusTracker::answered(std::uint64_t question, FieldAnswer answer) {
  const auto entry = asked(question);
  if (entry == fields_.end())
    return;
  Field& field = entry->second;
  field.question = 0;
  field.answers = true;
  field.kind = answer.isPassword ? Kind::password : Kind::plain;
  field.hasFocus = answer.hasFocus || (field.hasFocus && field.isToldFocused);
  field.isToldFocused = false;
}

void FocusTracker::refused(std::uint64_t question) {
  const auto entry = asked(question);
  if (entry != fields_.end())
    fields_.erase(entry);
}

void FocusTracker::late(std::uint64_t question) {
  const auto entry = asked(question);
  if (entry == fields_.end())
    return;
  entry->second.question = 0;
  entry->second.answers = false;
}

void FocusTracker::checkAll() {
  for (auto& [application, field] : fields_)
    if (field.hasFocus && field.kind != Kind::plain && field.question == 0)
      ask(application, field);
}

template<class Counts> bool FocusTracker::isAnyFocused(const Counts& counts) const {
  return std::any_of(fields_.begin(), fields_.end(), [&](const auto& entry) {
    const Field& field = entry.second;
    return field.hasFocus && field.answers && counts(field.kind);
  });
}

bool FocusTracker::isPasswordFocused() const {
  return isAnyFocused([](Kind kind) { return kind != Kind::plain; });
}

bool FocusTracker::isKnownPasswordFocused() const {
  return isAnyFocused([](Kind kind) { return kind == Kind::password; });
}

bool FocusTracker::needsChecking() const {
  return std::any_of(fields_.begin(), fields_.end(), [](const auto& entry) {
    return entry.second.hasFocus && entry.second.kind != Kind::plain;
  });
}

bool FocusTracker::isAsking() const {
  return std::any_of(fields_.begin(), fields_.end(), [](const auto& entry) {
    return entry.second.kind == Kind::unknown && entry.second.question != 0;
  });
}

// A question in the place of the one before, whose answer may be out of date.
void FocusTracker::ask(const std::string& application, Field& field) {
  field.question = ++lastQuestion_;
  if (!ask_({application, field.path}, field.question)) {
    field.question = 0;
    field.answers = false;
  }
}

// Another application has the focus now, or says so.
void FocusTracker::checkOthers(const std::string& application) {
  for (auto& [other, field] : fields_)
    if (other != application && field.hasFocus && field.kind != Kind::plain && field.question == 0) {
      field.isToldFocused = false;
      ask(other, field);
    }
}

FocusTracker::Field* FocusTracker::fieldOf(const AccessibleObject& object) {
  const auto known = fields_.find(object.application);
  return known != fields_.end() && known->second.path == object.path ? &known->second : nullptr;
}

FocusTracker::Fields::iterator FocusTracker::asked(std::uint64_t question) {
  return std::find_if(fields_.begin(), fields_.end(),
                      [question](const auto& entry) { return entry.second.question == question; });
}

} // namespace tessarin::accessibility
