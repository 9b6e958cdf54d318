// A recovery of segments that say anything. The first byte tells what is asked for.

#include "Fuzz.hpp"
#include "MemoryFileSystem.hpp"
#include "base/Failure.hpp"
#include "container/Movie.hpp"
#include "model/MediaErrors.hpp"
#include "recording/RecordingRecoveryService.hpp"
#include "recording/RecordingSegmentStore.hpp"

#include <set>

using namespace tessarin;

namespace {

constexpr std::string_view sessionID = "123e4567-e89b-12d3-a456-426614174000";
const std::string session = "/s/123e4567-e89b-12d3-a456-426614174000";

class NoReencoder final : public AudioReencoder {
 public:
  void reencode(const std::vector<AudioPiece>&, const std::string&) override {
    throw FileFailure(FileOperation::write, EIO);
  }
};

RecordingRecoveryRequestDTO requestFor(std::uint8_t choice, std::string_view segment,
                                       fuzz::MemoryFileSystem& files) {
  RecordingRecoveryRequestDTO request;
  request.sessionID = sessionID;
  request.outputDirectory = session;
  request.recoverCamera = (choice & 1) != 0;
  request.recoverSystemAudio = (choice & 2) != 0;
  request.recoverMicrophone = (choice & 4) != 0;
  for (int index = 0; index <= (choice >> 3 & 1); ++index) {
    const std::string path = session + "/segments/segment-000" + std::to_string(index) + ".mp4";
    files.put(path, segment);
    request.segmentPaths.push_back(path);
  }
  return request;
}

void requireOutputs(fuzz::MemoryFileSystem& files, std::string_view segment, std::size_t segmentCount) {
  const std::vector<std::string> outputs = RecordingSessionPaths(session).mergedOutputs();
  const std::set<std::string> known(outputs.begin(), outputs.end());
  for (const auto& [path, bytes] : files.entries) {
    if (!bytes)
      continue;
    if (path.find("/segments/") != std::string::npos) {
      fuzz::require(*bytes == segment, "a segment is never changed");
      continue;
    }
    fuzz::require(known.count(path) == 1, "nothing is left but joined files");
    fuzz::require(bytes->size() <= 4096 + segmentCount * segment.size() * 40,
                  "a joined file is in proportion to its segments");
    const container::Movie movie = container::readMovie(*files.open(path, OpenMode::read, 0));
    fuzz::require(!movie.tracks.empty(), "a joined file can be read");
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0)
    return 0;
  const std::string_view segment = fuzz::textOf(data + 1, size - 1);
  fuzz::MemoryFileSystem files;
  files.makeDirectory(session);
  files.makeDirectory(session + "/segments");
  const RecordingRecoveryRequestDTO request = requestFor(data[0], segment, files);
  NoReencoder reencoder;
  const RecordingRecoveryService service(files, reencoder);
  try {
    const RecordingRecoveryPayload payload = service.recovery(request);
    fuzz::require(service.recovery(request) == payload, "a second recovery has the same answer");
  } catch (const Failure<RecordingRecoveryError>& failure) {
    fuzz::require(failure.value() != RecordingRecoveryError::invalidRequest, "the request is right");
  }
  requireOutputs(files, segment, request.segmentPaths.size());
  return 0;
}
