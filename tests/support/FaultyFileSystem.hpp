#pragma once

#include "base/FileSystem.hpp"

#include <cerrno>
#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tessarin {

// A file layer over another one that goes wrong on command, counts, and keeps a log. Files that it opened
// obey it too. Any thread.
//
//   FaultyFileSystem files(machineFileSystem());
//   files.failNth(FileOperation::write, 2, ENOSPC);
class FaultyFileSystem final : public FileSystem {
 public:
  struct Event {
    FileOperation operation = FileOperation::open;
    std::string path;
    std::string target; // of a rename
  };

  static constexpr std::size_t always = std::numeric_limits<std::size_t>::max();

  // One thing that goes wrong: of the operations that match, `skip` go well, and the next `times` do not.
  struct Fault {
    FileOperation operation = FileOperation::open;
    std::string pathPart = {}; // matches paths that hold it; empty: every path
    std::size_t skip = 0;
    std::size_t times = 1;
    int errorNumber = EIO;
    // A read yields at most so many bytes and does not fail; a write stores so many and then fails.
    std::optional<std::size_t> shortenedTo = {};
    // The operation waits until this returns, and then goes well: a slow disk, or one that hangs until a test
    // lets it go. Called on the operation's thread, without a lock.
    std::function<void()> delayedBy = {};
  };

  // The file layer below outlives this one.
  explicit FaultyFileSystem(FileSystem& below);
  ~FaultyFileSystem() override;

  void inject(Fault fault);
  // The n-th operation of the kind from now on, counted from 1.
  void failNth(FileOperation operation, std::size_t n, int errorNumber);
  void failAlways(FileOperation operation, int errorNumber);
  // A volume without clones: cloneFrom() says false.
  void refuseClones();
  // From now on data is not made durable, which takes a disk its time. Syncs are counted and fail as told.
  void spareSyncs();
  void clearFaults();

  // Is called before every operation, on its thread and without a lock; for changes behind its back.
  void setObserver(std::function<void(const Event&)> observer);

  // Since the beginning or the last clearing of the log, failed ones too.
  std::size_t count(FileOperation operation) const;
  std::vector<Event> log() const;
  void clearLog();

  // Instead of the volume's own.
  void setAvailableBytes(std::optional<std::uint64_t> bytes);

  std::unique_ptr<OpenFile> open(const std::string& path, OpenMode mode,
                                 std::uint32_t permissions = 0644) override;
  std::optional<FileInfo> info(const std::string& path) override;
  void rename(const std::string& from, const std::string& to) override;
  void renameExclusive(const std::string& from, const std::string& to) override;
  void remove(const std::string& path) override;
  void makeDirectory(const std::string& path) override;
  void syncDirectory(const std::string& path) override;
  std::optional<std::vector<std::string>> list(const std::string& path, std::size_t limit) override;
  std::uint64_t availableBytes(const std::string& path) override;

 private:
  class File;
  struct State;
  FileSystem& below_;
  std::shared_ptr<State> state_; // shared with the open files
};

} // namespace tessarin
