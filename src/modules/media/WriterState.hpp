#pragma once

#include "ports/MediaWriting.hpp"

#include <atomic>
#include <cstddef>
#include <mutex>
#include <optional>
#include <utility>

namespace tessarin::media {

// What a writer and its inputs tell each other across threads. Every method may be called on any thread.
class WriterState {
 public:
  MediaWriterStatus status() const {
    const std::lock_guard lock(mutex_);
    return status_;
  }
  bool isWriting() const { return status() == MediaWriterStatus::writing; }
  std::optional<MediaWriterError> error() const {
    const std::lock_guard lock(mutex_);
    return error_;
  }

  // False when the status was another one.
  bool change(MediaWriterStatus from, MediaWriterStatus to) {
    const std::lock_guard lock(mutex_);
    if (status_ != from)
      return false;
    status_ = to;
    return true;
  }

  // The first failure counts, and only before the end. True when it was this one.
  bool fail(MediaWriterError error) {
    const std::lock_guard lock(mutex_);
    if (status_ != MediaWriterStatus::unknown && status_ != MediaWriterStatus::writing)
      return false;
    status_ = MediaWriterStatus::failed;
    error_ = std::move(error);
    return true;
  }

  // Coded bytes that have been handed to the file and are not written yet. A disk that does not keep up
  // holds the pictures back before memory fills up.
  void addUnwritten(std::size_t bytes) { unwritten_ += bytes; }
  // True when the disk was behind until now.
  bool removeUnwritten(std::size_t bytes) {
    const std::size_t before = unwritten_.fetch_sub(bytes);
    return before > mostUnwritten && before - bytes <= mostUnwritten;
  }
  bool isDiskBehind() const { return unwritten_ > mostUnwritten; }

  static constexpr std::size_t mostUnwritten = std::size_t{32} << 20;

 private:
  mutable std::mutex mutex_;
  MediaWriterStatus status_ = MediaWriterStatus::unknown; // under the mutex
  std::optional<MediaWriterError> error_;                 // under the mutex
  std::atomic<std::size_t> unwritten_ = 0;
};

} // namespace tessarin::media
