#pragma once

#include "ports/MovieEditing.hpp"
#include "project/VideoEditExportRequest.hpp"

#include <functional>
#include <optional>
#include <stop_token>
#include <string>

namespace tessarin {

class FileSystem;
struct VideoEditComposition;

// Makes one new MP4 of a recording by its edit project: checks, lays out, writes to a temporary file beside
// the output, checks that as a stranger would, and only then gives it its name. Keeps no state; any thread.
class VideoEditExporter {
 public:
  // What it needs of the machine; everything referred to outlives the exporter.
  struct Services {
    FileSystem& files;
    MediaAssets& assets;
    MovieExporter& movies;
    // Makes the recording with its narration cleaned, and yields the request with that file as its source.
    std::function<ValidatedVideoEditExportRequest(const ValidatedVideoEditExportRequest&)> prepareNarration;
    std::function<void(int permille)> progress;
    std::stop_token stop;
  };

  explicit VideoEditExporter(Services services) : services_(std::move(services)) {}

  // Throws Failure<VideoEditExportError>, and FileFailure when the finished file cannot be given its name.
  // Whatever it throws, no temporary file is left, and the output is as it was.
  VideoEditExportPayload exportVideo(const ValidatedVideoEditExportRequest& request) const;

  // A hidden name in the output's directory that no other call yields.
  static std::string temporaryOutputURL(const std::string& output);

 private:
  void checkPlaces(const ValidatedVideoEditExportRequest& request, const std::string& temporary) const;
  void write(const VideoEditProjectDTO& project, const VideoEditComposition& composition,
             const std::string& path) const;
  VideoEditExportPayload validateOutput(const std::string& path, const SizeDTO& expectedSize,
                                        std::optional<RecordingCodec> expectedCodec) const;

  Services services_;
};

} // namespace tessarin
