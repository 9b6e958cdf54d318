#include "editing/VideoEditExporter.hpp"

#include "base/Failure.hpp"
#include "base/SafeFile.hpp"
#include "base/Text.hpp"
#include "base/Uuid.hpp"
#include "editing/VideoEditComposition.hpp"
#include "editing/VideoEditDecisions.hpp"
#include "model/MediaErrors.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace tessarin {

namespace {

using enum VideoEditExportError;

// Frames are painted by nothing yet; the project is right, so this is a failure of the program's own.
class NoCompositor : public std::exception {
 public:
  const char* what() const noexcept override { return "nothing paints the frames of this project"; }
};

void require(bool condition, VideoEditExportError error) {
  if (!condition)
    fail(error);
}

bool isDirectory(FileSystem& files, const std::string& path) {
  // Behind a link too, as any path through it.
  const auto info = files.info(path + "/.");
  return info && info->kind == FileKind::directory;
}

bool isAac(const AssetAudioTrack& track) {
  constexpr std::array<std::string_view, 3> aac{"aac ", "aach", "aacp"};
  return std::all_of(track.subtypes.begin(), track.subtypes.end(), [&](const std::string& subtype) {
    return std::find(aac.begin(), aac.end(), subtype) != aac.end();
  });
}

bool isCodedAs(const AssetVideoTrack& track, RecordingCodec codec) {
  const std::string_view expected = codec == RecordingCodec::hevc ? "hvc1" : "avc1";
  return std::all_of(track.subtypes.begin(), track.subtypes.end(),
                     [&](const std::string& subtype) { return subtype == expected; });
}

} // namespace

std::string VideoEditExporter::temporaryOutputURL(const std::string& output) {
  const std::string_view name = lastPathComponent(output);
  std::string result = directoryOf(output);
  result.append("/.tessarin-export-");
  result.append(name.substr(0, std::min(name.rfind('.'), name.size())));
  result.append("-");
  result.append(randomUuid());
  result.append(".mp4");
  return result;
}

void VideoEditExporter::checkPlaces(const ValidatedVideoEditExportRequest& request,
                                    const std::string& temporary) const {
  FileSystem& files = services_.files;
  try {
    require(regularFileSize(files, request.sourceURL).value_or(0) >= 1, invalidRequest);
    require(!exists(files, request.outputURL) && !exists(files, temporary), invalidRequest);
    require(isDirectory(files, directoryOf(request.outputURL)), invalidRequest);
  } catch (const FileFailure&) {
    fail(invalidRequest);
  }
}

void VideoEditExporter::write(const VideoEditProjectDTO& project, const VideoEditComposition& composition,
                              const std::string& path) const {
  try {
    services_.movies.run({.composition = composition.movie,
                          .isPassthrough = !requiresTranscoding(project),
                          .codec = project.source.codec.value_or(RecordingCodec::h264),
                          .frameDuration = composition.frameDuration,
                          .composited = {},
                          .outputPath = path},
                         services_.progress, services_.stop);
  } catch (const MovieEditingFailure& failure) {
    fail(failure.error() == MovieEditingError::notComposable ? compositionFailed : exportFailed);
  }
}

VideoEditExportPayload VideoEditExporter::validateOutput(const std::string& path, const SizeDTO& expectedSize,
                                                         std::optional<RecordingCodec> expectedCodec) const {
  try {
    const std::int64_t sizeBytes = regularFileSize(services_.files, path).value_or(0);
    require(sizeBytes >= 1, exportFailed);
    const MediaAsset asset = services_.assets.asset(path);
    require(asset.duration.isNumeric() && asset.duration > MediaTime::zero(), exportFailed);
    require(!asset.videoTracks.empty(), exportFailed);
    const AssetVideoTrack& video = asset.videoTracks.front();
    require(!expectedCodec || isCodedAs(video, *expectedCodec), exportFailed);
    const RectDTO shown = video.preferredTransform.boundsOf({0, 0, video.naturalWidth, video.naturalHeight});
    require(std::isfinite(shown.width) &&
                std::round(shown.width) == static_cast<double>(expectedSize.width) &&
                std::isfinite(shown.height) &&
                std::round(shown.height) == static_cast<double>(expectedSize.height),
            exportFailed);
    require(std::all_of(asset.audioTracks.begin(), asset.audioTracks.end(), isAac), exportFailed);
    return {path, asset.duration.wholeMilliseconds(), expectedSize.width, expectedSize.height, sizeBytes};
  } catch (const FileFailure&) {
    fail(exportFailed);
  } catch (const MovieEditingFailure&) {
    fail(exportFailed);
  }
}

VideoEditExportPayload VideoEditExporter::exportVideo(const ValidatedVideoEditExportRequest& request) const {
  FileSystem& files = services_.files;
  const std::string path = temporaryOutputURL(request.outputURL);
  checkPlaces(request, path);
  TemporaryFile temporary(files, path);
  const VideoEditProjectDTO& project = request.request.project;
  const ValidatedVideoEditExportRequest prepared =
      project.narrationAudio ? services_.prepareNarration(request) : request;
  const VideoEditComposition composition = buildComposition(prepared, services_.assets, files);
  if (composition.instruction)
    throw NoCompositor();
  write(project, composition, path);
  VideoEditExportPayload payload = validateOutput(path, composition.expectedSize, project.source.codec);
  files.renameExclusive(path, request.outputURL);
  temporary.keep();
  syncDirectoryQuietly(files, directoryOf(request.outputURL));
  payload.outputPath = request.outputURL;
  return payload;
}

} // namespace tessarin
