#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

namespace tessarin::media {

// A coder could not be had or gave up; domain and code are told in diagnostics.
class CoderFailure : public std::exception {
 public:
  CoderFailure(std::string domain, std::int64_t code) : domain_(std::move(domain)), code_(code) {}
  const std::string& domain() const noexcept { return domain_; }
  std::int64_t code() const noexcept { return code_; }
  const char* what() const noexcept override { return "the coder failed"; }

 private:
  std::string domain_;
  std::int64_t code_;
};

} // namespace tessarin::media
