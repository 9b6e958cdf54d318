#include "Fuzz.hpp"
#include "base/Failure.hpp"
#include "model/MediaErrors.hpp"
#include "project/VideoEditExportRequest.hpp"
#include "project/VideoEffectPlan.hpp"

#include <algorithm>
#include <string>

using namespace tessarin;

namespace {

bool isValid(const VideoEditProjectDTO& project) {
  try {
    project.validate(project.source.sessionID, project.source.path);
    return true;
  } catch (const Failure<VideoEditExportError>& failure) {
    fuzz::require(failure.value() == VideoEditExportError::invalidProject ||
                      failure.value() == VideoEditExportError::invalidCrop,
                  "a project is refused as a project");
    return false;
  }
}

std::int64_t outputDurationMs(const VideoEditProjectDTO& project) {
  std::int64_t totalMs = 0;
  for (const ClipSpan& clip : project.clipSpans())
    totalMs += clip.outputDurationMs();
  return totalMs;
}

// What is asked of every project, whatever is in it.
void derive(const VideoEditProjectDTO& project) {
  (void)project.activeOutputChangesFrame();
  (void)project.cameraInForce();
  fuzz::require(project.croppedWidthPixels() >= 2 && project.croppedWidthPixels() % 2 == 0,
                "a picture is 2 wide at least, and even");
  fuzz::require(project.outputEffects().size() == project.overlays.size(), "no effect comes or goes");
}

void plan(const VideoEditProjectDTO& project) {
  const std::int64_t totalMs = outputDurationMs(project);
  const std::vector<VideoEditEffectDTO> effects = project.outputEffects();
  for (const VideoEditEffectDTO& effect : effects) {
    fuzz::require(effect.startMs() >= 0 && effect.endMs() <= totalMs, "an effect lies in the output");
    const std::int64_t atMs = effect.startMs() + (effect.endMs() - effect.startMs()) / 2;
    const auto shown = VideoEffectPlan::active(effects, atMs);
    const auto* text = effect.as<VideoEditEffectKind::text>();
    if (text == nullptr || text->visible.value_or(true))
      fuzz::require(std::find(shown.begin(), shown.end(), &effect) != shown.end(),
                    "an effect is shown in its middle");
    if (const auto* zoom = effect.as<VideoEditEffectKind::zoom>()) {
      const double scale = VideoEffectPlan::zoomScale(*zoom, atMs);
      fuzz::require(scale >= 1 && scale <= zoom->scale + 1e-12, "a zoom is between none and all of it");
    }
    (void)VideoEffectPlan::freezeSourceTime(effects, atMs);
  }
  if (const VideoCameraLayerDTO* camera = project.cameraInForce()) {
    const VideoCameraLayerDTO mapped = camera->mappedToOutput(project.clipSpans());
    fuzz::require(mapped.recordedPositions.has_value() == camera->recordedPositions.has_value(),
                  "a way stays a way");
    (void)mapped.at(totalMs / 2);
  }
}

void checkRequest(const VideoEditExportRequestDTO& request) {
  try {
    const ValidatedVideoEditExportRequest validated = request.validated();
    fuzz::require(isValid(request.project), "a valid request has a valid project");
    fuzz::require(validated.sourceURL == request.project.source.path && validated.request == request,
                  "nothing is changed by the check");
  } catch (const Failure<VideoEditExportError>& failure) {
    fuzz::require(failure.value() == VideoEditExportError::invalidRequest || !isValid(request.project) ||
                      request.sessionID != request.project.source.sessionID,
                  "a request is refused by its paths or its project");
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  VideoEditExportRequestDTO request;
  try {
    request = json::decode<VideoEditExportRequestDTO>(fuzz::textOf(data, size));
  } catch (const json::DecodingFailure&) {
    return 0;
  }
  const std::string encoded = json::encode(request);
  fuzz::require(json::decode<VideoEditExportRequestDTO>(std::string_view(encoded)) == request,
                "what is encoded decodes to the same");
  derive(request.project);
  checkRequest(request);
  if (isValid(request.project))
    plan(request.project);
  return 0;
}
