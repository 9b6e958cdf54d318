#pragma once

#include "base/FileSystem.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace tessarin::fuzz {

// Files and directories in memory, without links and without limits but one: no file grows beyond
// `mostBytes`. One thread.
class MemoryFileSystem final : public FileSystem {
 public:
  static constexpr std::uint64_t mostBytes = std::uint64_t{64} << 20;

  // By path; a directory has no bytes.
  std::map<std::string, std::shared_ptr<std::string>> entries;

  void put(const std::string& path, std::string_view bytes) {
    entries[path] = std::make_shared<std::string>(bytes);
  }

  std::unique_ptr<OpenFile> open(const std::string& path, OpenMode mode, std::uint32_t) override {
    const auto found = entries.find(path);
    const bool isNew = mode == OpenMode::createExclusive || mode == OpenMode::createTruncated;
    if (found == entries.end() && !isNew)
      throw FileFailure(FileOperation::open, ENOENT);
    if (found != entries.end() && mode == OpenMode::createExclusive)
      throw FileFailure(FileOperation::open, EEXIST);
    if (found != entries.end() && !found->second)
      throw FileFailure(FileOperation::open, EINVAL);
    if (isNew)
      put(path, {});
    return std::make_unique<File>(entries[path]);
  }
  std::optional<FileInfo> info(const std::string& path) override {
    const auto found = entries.find(path);
    if (found == entries.end())
      return std::nullopt;
    if (found->second)
      return File(found->second).info();
    FileInfo info;
    info.kind = FileKind::directory;
    return info;
  }
  void rename(const std::string& from, const std::string& to) override {
    const auto found = entries.find(from);
    if (found == entries.end())
      throw FileFailure(FileOperation::rename, ENOENT);
    const std::shared_ptr<std::string> bytes = found->second;
    entries.erase(found);
    entries[to] = bytes;
  }
  void renameExclusive(const std::string& from, const std::string& to) override {
    if (entries.count(to) != 0)
      throw FileFailure(FileOperation::rename, EEXIST);
    rename(from, to);
  }
  void remove(const std::string& path) override {
    if (entries.erase(path) == 0)
      throw FileFailure(FileOperation::remove, ENOENT);
  }
  void makeDirectory(const std::string& path) override { entries.try_emplace(path, nullptr); }
  void syncDirectory(const std::string&) override {}
  std::optional<std::vector<std::string>> list(const std::string& path, std::size_t limit) override {
    std::vector<std::string> names;
    for (const auto& [entry, bytes] : entries) {
      const std::size_t slash = entry.rfind('/');
      if (entry.substr(0, slash) == path)
        names.push_back(entry.substr(slash + 1));
    }
    return names.size() > limit ? std::nullopt : std::optional(std::move(names));
  }
  std::uint64_t availableBytes(const std::string&) override { return mostBytes; }

 private:
  class File final : public OpenFile {
   public:
    explicit File(std::shared_ptr<std::string> bytes) : bytes_(std::move(bytes)) {}

    FileInfo info() const override {
      FileInfo info;
      info.kind = FileKind::regular;
      info.sizeBytes = static_cast<std::int64_t>(bytes_->size());
      return info;
    }
    std::size_t read(std::uint64_t offset, std::span<std::byte> into) const override {
      if (offset >= bytes_->size())
        return 0;
      const std::size_t count = std::min(into.size(), bytes_->size() - static_cast<std::size_t>(offset));
      std::memcpy(into.data(), bytes_->data() + offset, count);
      return count;
    }
    void write(std::uint64_t offset, std::span<const std::byte> from) override {
      if (offset > mostBytes || from.size() > mostBytes - offset)
        throw FileFailure(FileOperation::write, ENOSPC);
      bytes_->resize(std::max<std::size_t>(bytes_->size(), offset + from.size()));
      if (!from.empty())
        std::memcpy(bytes_->data() + offset, from.data(), from.size());
    }
    void truncate(std::uint64_t size) override {
      if (size > mostBytes)
        throw FileFailure(FileOperation::truncate, ENOSPC);
      bytes_->resize(size);
    }
    void sync() override {}
    void copyFrom(const OpenFile& source, std::uint64_t sourceOffset, std::uint64_t offset,
                  std::uint64_t length) override {
      if (length > mostBytes)
        throw FileFailure(FileOperation::copy, ENOSPC);
      std::vector<std::byte> piece(length);
      if (source.read(sourceOffset, piece) != length)
        throw FileFailure(FileOperation::copy, 0);
      write(offset, piece);
    }
    bool cloneFrom(const OpenFile&) override { return false; }

   private:
    std::shared_ptr<std::string> bytes_;
  };
};

} // namespace tessarin::fuzz
