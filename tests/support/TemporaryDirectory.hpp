#pragma once

#include <string>
#include <string_view>

namespace tessarin {

// A real, empty directory that is removed with everything in it at the end.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  // Absolute, without links and without a slash at the end.
  const std::string& path() const { return path_; }
  // The path of an entry, there or not.
  std::string operator/(std::string_view name) const;

  // Plain work on entries, by other means than the file layer under test.
  std::string write(std::string_view name, std::string_view bytes) const; // yields the path
  std::string read(std::string_view name) const;

 private:
  std::string path_;
};

} // namespace tessarin
