#include "trace/InteractionTraceWriter.hpp"

#include "base/FileSystem.hpp"
#include "trace/InteractionEventFile.hpp"

#include <algorithm>
#include <span>

namespace tessarin {

namespace {

constexpr std::uint32_t ownerOnly = 0600;

} // namespace

InteractionTraceWriter::InteractionTraceWriter(FileSystem& files, const std::string& path)
    : file_(files.open(path, OpenMode::createExclusive, ownerOnly)) {}

InteractionTraceWriter::~InteractionTraceWriter() = default;

bool InteractionTraceWriter::append(const InteractionEventDTO& event) {
  if (hasFailed_ || !file_)
    return false;
  const std::int64_t timestampMs = std::max(event.timestampMs(), lastWrittenTimestampMs_);
  const InteractionEventDTO placed = event.at(timestampMs);
  if (!InteractionEventFile::isValid(placed))
    return false;
  const std::string line = json::encode(placed) + '\n';
  if (eventsWritten_ >= InteractionEventFile::maximumEvents ||
      bytesWritten_ + line.size() > InteractionEventFile::maximumBytes) {
    hasFailed_ = true;
    return false;
  }
  try {
    file_->write(bytesWritten_, std::as_bytes(std::span(line)));
  } catch (const FileFailure&) {
    hasFailed_ = true;
    return false;
  }
  bytesWritten_ += line.size();
  ++eventsWritten_;
  lastWrittenTimestampMs_ = timestampMs;
  return true;
}

void InteractionTraceWriter::close() {
  if (!file_)
    return;
  try {
    file_->sync();
  } catch (const FileFailure&) {
    hasFailed_ = true;
  }
  file_.reset();
}

} // namespace tessarin
