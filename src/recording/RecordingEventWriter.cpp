#include "recording/RecordingEventWriter.hpp"

#include <utility>

namespace tessarin {

RecordingEventWriter::RecordingEventWriter(OutputSink output) : output_(std::move(output)) {}

void RecordingEventWriter::write(const RecordingEvent& event) {
  const std::string line = event.encodedLine();
  const std::lock_guard guard(lock_);
  output_(line);
}

} // namespace tessarin
