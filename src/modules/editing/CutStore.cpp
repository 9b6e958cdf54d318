#include "modules/editing/CutStore.hpp"

#include "base/SafeFile.hpp"

#include <utility>

namespace tessarin::editing {

namespace {

constexpr std::size_t pendingBytes = std::size_t{1} << 20;

} // namespace

std::uint64_t CutStore::append(std::span<const std::byte> bytes) {
  if (!file_) {
    const std::string name = hiddenTemporaryName(outputPath_);
    auto file = files_.open(name, OpenMode::createExclusive, 0600);
    TemporaryFile named(files_, name);
    files_.remove(name);
    named.keep();
    file_ = std::move(file);
  }
  const std::uint64_t offset = written_ + pending_.size();
  pending_.insert(pending_.end(), bytes.begin(), bytes.end());
  if (pending_.size() >= pendingBytes)
    flush();
  return offset;
}

void CutStore::flush() {
  if (pending_.empty())
    return;
  file_->write(written_, pending_);
  written_ += pending_.size();
  pending_.clear();
}

} // namespace tessarin::editing
