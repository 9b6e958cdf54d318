#pragma once

#include <exception>
#include <utility>

namespace tessarin {

// A thrown failure of a service: one small enumeration says which one it was. The command room turns
// the enumeration into a wire code, a message and an exit status; no text travels with the failure.
// Copyable, and safe to hand to another thread.
template<class Case> class Failure : public std::exception {
 public:
  explicit Failure(Case value) : value_(value) {}

  Case value() const noexcept { return value_; }
  const char* what() const noexcept override { return "a service failed"; }

  friend bool operator==(const Failure& a, const Failure& b) { return a.value_ == b.value_; }

 private:
  Case value_;
};

template<class Case> [[noreturn]] void fail(Case value) {
  throw Failure<Case>(value);
}

} // namespace tessarin
