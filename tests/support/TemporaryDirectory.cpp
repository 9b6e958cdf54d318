#include "support/TemporaryDirectory.hpp"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace tessarin {

TemporaryDirectory::TemporaryDirectory() {
  path_ = std::filesystem::canonical(std::filesystem::temp_directory_path()) / "tessarin-test-XXXXXX";
  if (::mkdtemp(path_.data()) == nullptr)
    throw std::runtime_error("no temporary directory");
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TemporaryDirectory::operator/(std::string_view name) const {
  return path_ + '/' + std::string(name);
}

std::string TemporaryDirectory::write(std::string_view name, std::string_view bytes) const {
  std::string path = *this / name;
  std::ofstream stream(path, std::ios::binary | std::ios::trunc);
  stream << bytes;
  if (!stream.flush())
    throw std::runtime_error("could not write " + path);
  return path;
}

std::string TemporaryDirectory::read(std::string_view name) const {
  std::ifstream stream(*this / name, std::ios::binary);
  if (!stream)
    throw std::runtime_error("could not read " + (*this / name));
  return {std::istreambuf_iterator<char>(stream), {}};
}

} // namespace tessarin
