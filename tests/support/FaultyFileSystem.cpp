#include "support/FaultyFileSystem.hpp"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>

namespace tessarin {

struct FaultyFileSystem::State {
  mutable std::mutex mutex;
  std::vector<Fault> faults;
  std::vector<Event> events;
  std::function<void(const Event&)> observer;
  std::optional<std::uint64_t> available;
  bool refusesClones = false;
  std::atomic<bool> sparesSyncs = false;

  // Notes the operation; the fault that strikes it, if any.
  std::optional<Fault> strike(FileOperation operation, const std::string& path,
                              const std::string& target = {}) {
    std::function<void(const Event&)> observing;
    {
      const std::lock_guard lock(mutex);
      events.push_back({operation, path, target});
      observing = observer;
    }
    if (observing)
      observing({operation, path, target});
    std::optional<Fault> fault = matching(operation, path);
    if (!fault || !fault->delayedBy)
      return fault;
    fault->delayedBy();
    return std::nullopt;
  }

  // The first fault that is due for the operation, which counts as used.
  std::optional<Fault> matching(FileOperation operation, const std::string& path) {
    const std::lock_guard lock(mutex);
    for (Fault& fault : faults) {
      if (fault.operation != operation || path.find(fault.pathPart) == std::string::npos || fault.times == 0)
        continue;
      if (fault.skip > 0) {
        --fault.skip;
        continue;
      }
      if (fault.times != always)
        --fault.times;
      return fault;
    }
    return std::nullopt;
  }

  // Notes an operation that goes well or fails as a whole.
  void check(FileOperation operation, const std::string& path, const std::string& target = {}) {
    if (const std::optional<Fault> fault = strike(operation, path, target))
      throw FileFailure(operation, fault->errorNumber);
  }
};

class FaultyFileSystem::File final : public OpenFile {
 public:
  File(std::shared_ptr<State> state, std::string path, std::unique_ptr<OpenFile> below)
      : state_(std::move(state)), path_(std::move(path)), below_(std::move(below)) {}

  FileInfo info() const override {
    state_->check(FileOperation::info, path_);
    return below_->info();
  }

  std::size_t read(std::uint64_t offset, std::span<std::byte> into) const override {
    if (const std::optional<Fault> fault = state_->strike(FileOperation::read, path_)) {
      if (!fault->shortenedTo)
        throw FileFailure(FileOperation::read, fault->errorNumber);
      into = into.first(std::min(into.size(), *fault->shortenedTo));
    }
    return below_->read(offset, into);
  }

  void write(std::uint64_t offset, std::span<const std::byte> bytes) override {
    if (const std::optional<Fault> fault = state_->strike(FileOperation::write, path_)) {
      if (fault->shortenedTo)
        below_->write(offset, bytes.first(std::min(bytes.size(), *fault->shortenedTo)));
      throw FileFailure(FileOperation::write, fault->errorNumber);
    }
    below_->write(offset, bytes);
  }

  void truncate(std::uint64_t size) override {
    state_->check(FileOperation::truncate, path_);
    below_->truncate(size);
  }

  void sync() override {
    state_->check(FileOperation::sync, path_);
    if (!state_->sparesSyncs)
      below_->sync();
  }

  void copyFrom(const OpenFile& source, std::uint64_t sourceOffset, std::uint64_t offset,
                std::uint64_t length) override {
    state_->check(FileOperation::copy, path_);
    below_->copyFrom(behind(source), sourceOffset, offset, length);
  }

  bool cloneFrom(const OpenFile& source) override {
    state_->check(FileOperation::clone, path_);
    {
      const std::lock_guard lock(state_->mutex);
      if (state_->refusesClones)
        return false;
    }
    return below_->cloneFrom(behind(source));
  }

 private:
  static const OpenFile& behind(const OpenFile& source) {
    const auto* faulty = dynamic_cast<const File*>(&source);
    return faulty != nullptr ? *faulty->below_ : source;
  }

  const std::shared_ptr<State> state_;
  const std::string path_;
  const std::unique_ptr<OpenFile> below_;
};

FaultyFileSystem::FaultyFileSystem(FileSystem& below) : below_(below), state_(std::make_shared<State>()) {}
FaultyFileSystem::~FaultyFileSystem() = default;

void FaultyFileSystem::inject(Fault fault) {
  const std::lock_guard lock(state_->mutex);
  state_->faults.push_back(std::move(fault));
}

void FaultyFileSystem::failNth(FileOperation operation, std::size_t n, int errorNumber) {
  inject({.operation = operation, .skip = n - 1, .errorNumber = errorNumber});
}

void FaultyFileSystem::failAlways(FileOperation operation, int errorNumber) {
  inject({.operation = operation, .times = always, .errorNumber = errorNumber});
}

void FaultyFileSystem::refuseClones() {
  const std::lock_guard lock(state_->mutex);
  state_->refusesClones = true;
}

void FaultyFileSystem::spareSyncs() {
  state_->sparesSyncs = true;
}

void FaultyFileSystem::clearFaults() {
  const std::lock_guard lock(state_->mutex);
  state_->faults.clear();
  state_->refusesClones = false;
}

void FaultyFileSystem::setObserver(std::function<void(const Event&)> observer) {
  const std::lock_guard lock(state_->mutex);
  state_->observer = std::move(observer);
}

std::size_t FaultyFileSystem::count(FileOperation operation) const {
  const std::lock_guard lock(state_->mutex);
  return static_cast<std::size_t>(
      std::count_if(state_->events.begin(), state_->events.end(),
                    [&](const Event& event) { return event.operation == operation; }));
}

std::vector<FaultyFileSystem::Event> FaultyFileSystem::log() const {
  const std::lock_guard lock(state_->mutex);
  return state_->events;
}

void FaultyFileSystem::clearLog() {
  const std::lock_guard lock(state_->mutex);
  state_->events.clear();
}

void FaultyFileSystem::setAvailableBytes(std::optional<std::uint64_t> bytes) {
  const std::lock_guard lock(state_->mutex);
  state_->available = bytes;
}

std::unique_ptr<OpenFile> FaultyFileSystem::open(const std::string& path, OpenMode mode,
                                                 std::uint32_t permissions) {
  state_->check(FileOperation::open, path);
  return std::make_unique<File>(state_, path, below_.open(path, mode, permissions));
}

std::optional<FileInfo> FaultyFileSystem::info(const std::string& path) {
  state_->check(FileOperation::info, path);
  return below_.info(path);
}

void FaultyFileSystem::rename(const std::string& from, const std::string& to) {
  state_->check(FileOperation::rename, from, to);
  below_.rename(from, to);
}

void FaultyFileSystem::renameExclusive(const std::string& from, const std::string& to) {
  state_->check(FileOperation::rename, from, to);
  below_.renameExclusive(from, to);
}

void FaultyFileSystem::remove(const std::string& path) {
  state_->check(FileOperation::remove, path);
  below_.remove(path);
}

void FaultyFileSystem::makeDirectory(const std::string& path) {
  state_->check(FileOperation::makeDirectory, path);
  below_.makeDirectory(path);
}

void FaultyFileSystem::syncDirectory(const std::string& path) {
  state_->check(FileOperation::sync, path);
  if (!state_->sparesSyncs)
    below_.syncDirectory(path);
}

std::optional<std::vector<std::string>> FaultyFileSystem::list(const std::string& path, std::size_t limit) {
  state_->check(FileOperation::list, path);
  return below_.list(path, limit);
}

std::uint64_t FaultyFileSystem::availableBytes(const std::string& path) {
  state_->check(FileOperation::space, path);
  {
    const std::lock_guard lock(state_->mutex);
    if (state_->available)
      return *state_->available;
  }
  return below_.availableBytes(path);
}

} // namespace tessarin
