#include "Fuzz.hpp"
#include "desktop/CaptureModels.hpp"
#include "desktop/CapturePreparationRequest.hpp"
#include "model/MediaErrors.hpp"
#include "recording/RecordedCameraLayout.hpp"
#include "recording/RecordingConfiguration.hpp"
#include "recording/RecordingModels.hpp"
#include "recording/RecordingRecoveryModels.hpp"
#include "recording/RecordingSegmentStore.hpp"

using namespace tessarin;

namespace {

const std::vector<DisplayInfoDTO> displays = {{.id = "1",
                                               .framePoints = {0, 0, 1280, 720},
                                               .scaleFactor = 1.5,
                                               .pixelSize = {1920, 1080},
                                               .isPrimary = true},
                                              {.id = "2",
                                               .framePoints = {1280, -100, 1920, 1080},
                                               .scaleFactor = 1,
                                               .pixelSize = {1920, 1080},
                                               .isPrimary = false}};

const std::vector<WindowInfoDTO> windows = {{.id = "7",
                                             .displayID = "1",
                                             .ownerPID = 42,
                                             .ownerName = "Editor",
                                             .title = "notes",
                                             .framePoints = {10, 20, 640, 480},
                                             .layer = 0,
                                             .zIndex = 0,
                                             .isOnScreen = true}};

// A decoded request is written and read back the same.
template<class Request> Request decoded(const json::Document& document) {
  auto request = json::decode<Request>(document.root());
  fuzz::require(json::decode<Request>(json::encode(request)) == request, "a request reads back the same");
  return request;
}

void capture(const json::Document& document) {
  const auto request = decoded<CaptureRequestDTO>(document);
  try {
    request.validateCurrentWindow(&windows.front());
    const ValidatedCaptureRequest validated = request.validated(displays);
    fuzz::require(validated.sourceRectPoints.isFiniteAndPositive(), "a valid capture has a rectangle");
    fuzz::require(validated.outputPixelSize.width > 0 && validated.outputPixelSize.height > 0,
                  "a valid capture has pixels");
  } catch (const Failure<CaptureRequestError>&) {
    // Refused by a rule.
  }
}

void record(const json::Document& document) {
  const auto request = decoded<RecordingRequestDTO>(document);
  try {
    const ValidatedRecordingRequest validated = request.validated(displays, windows);
    const RecordingConfigurationPlan plan = RecordingConfigurationBuilder::plan(validated);
    fuzz::require(plan.outputWidth > 0 && plan.outputWidth % 2 == 0, "a width is positive and even");
    fuzz::require(plan.outputHeight > 0 && plan.outputHeight % 2 == 0, "a height is positive and even");
    fuzz::require(plan.averageBitRate > 0, "a bit rate is positive");
    fuzz::require(plan.sourceRect.isFiniteAndPositive(), "a plan has a rectangle");
  } catch (const Failure<RecordingRequestError>&) {
    // Refused by a rule.
  }
}

void recover(const json::Document& document) {
  const auto request = decoded<RecordingRecoveryRequestDTO>(document);
  try {
    const ValidatedRecordingRecoveryRequest validated = request.validated();
    fuzz::require(!validated.segmentPaths.empty(), "a valid recovery has segments");
    for (const std::string& path : validated.segmentPaths)
      fuzz::require(path.find("/segments/") != std::string::npos && path.find("/../") == std::string::npos,
                    "segments lie in the session's folder");
  } catch (const Failure<RecordingRecoveryError>&) {
    // Refused by a rule.
  }
}

// The camera's way at any time, and over cuts, stays a way.
void follow(const json::Document& document) {
  const auto layout = decoded<RecordedCameraLayout>(document);
  const std::vector<ClipSpan> clips = {{0, 1000, 1}, {4000, 9000, 0.5}, {9000, 9001, 3}};
  for (const std::int64_t time : {std::int64_t{-1}, std::int64_t{0}, std::int64_t{5000}})
    fuzz::require(!layout.camera.at(time).recordedPositions || layout.camera.recordedPositions->empty(),
                  "a moment of a way is none");
  const VideoCameraLayerDTO mapped = layout.camera.mappedToOutput(clips);
  if (layout.camera.recordedPositions && !layout.camera.recordedPositions->empty())
    fuzz::require(mapped.recordedPositions->size() >= clips.size(), "each clip has a place");
}

template<class Call> void ifItDecodes(Call call) {
  try {
    call();
  } catch (const json::DecodingFailure&) {
    // No request of this kind.
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ifItDecodes([&] {
    const json::Document document(fuzz::textOf(data, size));
    ifItDecodes([&] { capture(document); });
    ifItDecodes([&] { record(document); });
    ifItDecodes([&] { decoded<CapturePreparationRequest>(document); });
    ifItDecodes([&] { decoded<NativeRecordingManifest>(document); });
    ifItDecodes([&] { recover(document); });
    ifItDecodes([&] { follow(document); });
  });
  return 0;
}
