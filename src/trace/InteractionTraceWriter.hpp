#pragma once

#include "trace/InteractionEventDTO.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace tessarin {

class FileSystem;
class OpenFile;

// Writes the file of one interaction trace within the bounds of InteractionEventFile. One thread at a time.
class InteractionTraceWriter {
 public:
  // Makes the file, for nobody but its owner. Throws FileFailure, also when it is there already.
  InteractionTraceWriter(FileSystem& files, const std::string& path);
  ~InteractionTraceWriter();

  // Appends an event, at the time of the one before it where its own is earlier. False when it is not in the
  // file whole: an event that is not valid is dropped; a bound or a write error ends all writing.
  bool append(const InteractionEventDTO& event);

  // Until what was written is on the disk, and closes the file. Once; nothing is appended behind it.
  void close();

  // A bound was hit, or the file layer failed. Stays.
  bool hasFailed() const { return hasFailed_; }

 private:
  std::unique_ptr<OpenFile> file_; // null once closed
  bool hasFailed_ = false;
  std::size_t bytesWritten_ = 0;
  std::size_t eventsWritten_ = 0;
  std::int64_t lastWrittenTimestampMs_ = 0;
};

} // namespace tessarin
