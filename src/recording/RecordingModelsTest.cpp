#include "recording/RecordingModels.hpp"

#include "support/RecordingRequests.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessarin {
namespace {

using namespace tessarin::testing;
using ::testing::HasSubstr;

// ---- Decoding

const std::string settingsJson =
    R"({"microphone":false,"systemAudio":false,"camera":false,"cameraPosition":"bottomRight",)"
    R"("showsCursor":true,"showMouseClicks":false,"frameRate":30,"quality":"standard",)"
    R"("outputScale":"original"})";

std::string requestJson(const std::string& settings = settingsJson) {
  return R"({"sessionId":")" + sampleSessionID +
         R"(","kind":"region","displayId":"77","rectPoints":{"x":1,"y":2,"width":3,"height":4},)"
         R"("outputDirectory":"/tmp/a","settings":)" +
         settings + "}";
}

std::string with(std::string text, const std::string& from, const std::string& to) {
  const std::size_t place = text.find(from);
  EXPECT_NE(place, std::string::npos) << from;
  return text.replace(place, from.size(), to);
}

std::string decodingFailureOf(const std::string& text) {
  try {
    json::decode<RecordingRequestDTO>(text);
  } catch (const json::DecodingFailure& failure) {
    return failure.what();
  }
  return "decoded";
}

TEST(RecordingRequestDecoding, TakesTheSmallestRequestAndLeavesOptionalsAbsent) {
  const auto request = json::decode<RecordingRequestDTO>(requestJson());
  EXPECT_EQ(request.sessionID, sampleSessionID);
  EXPECT_EQ(request.kind, CaptureKind::region);
  EXPECT_EQ(request.displayID, "77");
  EXPECT_EQ(request.windowID, std::nullopt);
  EXPECT_EQ(request.rectPoints, (RectDTO{1, 2, 3, 4}));
  EXPECT_EQ(request.outputDirectory, "/tmp/a");
  RecordingSettingsDTO settings;
  settings.showsCursor = true;
  EXPECT_EQ(request.settings, settings);
}

TEST(RecordingRequestDecoding, TakesEveryOptionalKey) {
  const std::string settings =
      R"({"presentation":{"cameraPlacement":{"x":0,"y":10000},"cursorStyle":"dark",)"
      R"("cursorScale":150,"cameraBorder":true},"microphone":true,"systemAudio":true,)"
      R"("camera":true,"microphoneDeviceId":"m","cameraDeviceId":"c",)"
      R"("cameraPreviewMirrored":true,"cameraOutputMirrored":false,)"
      R"("cameraPosition":"topLeft","showsCursor":false,"showMouseClicks":true,)"
      R"("recordKeyboardShortcuts":true,"cursorFollow":true,"frameRate":60,)"
      R"("quality":"high","outputScale":"720p","codec":"hevc"})";
  const auto decoded = json::decode<RecordingRequestDTO>(
      with(requestJson(settings), R"("displayId")", R"("windowId":"9","displayId")"));
  EXPECT_EQ(decoded.windowID, "9");
  RecordingSettingsDTO expected;
  expected.presentation =
      RecordingPresentationDTO{RecordingCameraPlacementDTO{0, 10000}, RecordingCursorStyle::dark, 150, true};
  expected.microphone = true;
  expected.microphoneDeviceID = "m";
  expected.systemAudio = true;
  expected.camera = true;
  expected.cameraDeviceID = "c";
  expected.cameraPreviewMirrored = true;
  expected.cameraOutputMirrored = false;
  expected.cameraPosition = CameraPosition::topLeft;
  expected.cursorFollow = true;
  expected.showMouseClicks = true;
  expected.recordKeyboardShortcuts = true;
  expected.frameRate = 60;
  expected.quality = RecordingQuality::high;
  expected.outputScale = RecordingOutputScale::hd720;
  expected.codec = RecordingCodec::hevc;
  EXPECT_EQ(decoded.settings, expected);
}

TEST(RecordingRequestDecoding, TakesNullForAbsentAndIgnoresUnknownKeys) {
  const std::string settings =
      with(settingsJson, "{", R"({"presentation":null,"codec":null,"colour":"red",)");
  const auto request = json::decode<RecordingRequestDTO>(requestJson(settings));
  EXPECT_EQ(request.settings.presentation, std::nullopt);
  EXPECT_EQ(request.settings.codec, std::nullopt);
}

TEST(RecordingRequestDecoding, NeedsEveryRequiredKey) {
  const std::string whole = requestJson();
  for (const char* key : {"sessionId", "kind", "displayId", "rectPoints", "outputDirectory", "settings",
                          "microphone", "systemAudio", "camera", "cameraPosition", "showsCursor",
                          "showMouseClicks", "frameRate", "quality", "outputScale"}) {
    const std::string renamed = with(whole, '"' + std::string(key) + '"', R"("other")");
    EXPECT_THAT(decodingFailureOf(renamed), HasSubstr(key));
  }
}

TEST(RecordingRequestDecoding, RefusesUnknownStringsAndWrongTypes) {
  const std::vector<std::pair<std::string, std::string>> changes = {
      {R"("kind":"region")", R"("kind":"Region")"},
      {R"("kind":"region")", R"("kind":1)"},
      {R"("sessionId":")", R"("sessionId":1,"was":")"},
      {R"("quality":"standard")", R"("quality":"best")"},
      {R"("outputScale":"original")", R"("outputScale":"hd1080")"},
      {R"("cameraPosition":"bottomRight")", R"("cameraPosition":"centre")"},
      {R"("frameRate":30)", R"("frameRate":30.5)"},
      {R"("frameRate":30)", R"("frameRate":"30")"},
      {R"("microphone":false)", R"("microphone":0)"},
      {R"("microphone":false)", R"("microphone":null)"},
      {R"("microphone":false)", R"("codec":"H264","microphone":false)"},
      {R"("microphone":false)", R"("codec":"vp9","microphone":false)"},
      {R"("microphone":false)", R"("presentation":{},"microphone":false)"},
      {R"("microphone":false)", R"("presentation":[],"microphone":false)"},
      {R"("microphone":false)", R"("cursorFollow":"yes","microphone":false)"},
  };
  for (const auto& [from, to] : changes)
    EXPECT_NE(decodingFailureOf(with(requestJson(), from, to)), "decoded") << to;
}

TEST(RecordingRequestDecoding, TakesAWholeNumberWrittenAsAFraction) {
  EXPECT_EQ(json::decode<RecordingRequestDTO>(with(requestJson(), ":30", ":30.0")).settings.frameRate, 30);
}

TEST(RecordingRequestDecoding, ReportsTheFirstKeyInDecodingOrder) {
  // Everything is wrong here but what stands in the list's earlier rows.
  const std::vector<std::string> order = {"presentation",
                                          "microphone",
                                          "systemAudio",
                                          "camera",
                                          "microphoneDeviceId",
                                          "cameraDeviceId",
                                          "cameraPreviewMirrored",
                                          "cameraOutputMirrored",
                                          "cameraPosition",
                                          "showsCursor",
                                          "showMouseClicks",
                                          "recordKeyboardShortcuts",
                                          "cursorFollow",
                                          "frameRate",
                                          "quality",
                                          "outputScale",
                                          "codec"};
  const auto keys =
      std::apply([](const auto&... each) { return std::vector<std::string>{std::string(each.key)...}; },
                 RecordingSettingsDTO::fields());
  EXPECT_EQ(keys, order);
  EXPECT_THAT(decodingFailureOf(requestJson("{}")), HasSubstr("microphone"));
  EXPECT_THAT(decodingFailureOf(requestJson(R"({"microphone":true})")), HasSubstr("systemAudio"));
}

TEST(RecordingRequestDecoding, KnowsEveryString) {
  const auto all = []<class E>(std::type_identity<E>) {
    std::vector<std::string> strings;
    for (const auto& [value, text] : jsonNames(E{}))
      strings.emplace_back(text);
    return strings;
  };
  EXPECT_EQ(all(std::type_identity<RecordingQuality>{}), (std::vector<std::string>{"standard", "high"}));
  EXPECT_EQ(all(std::type_identity<RecordingOutputScale>{}),
            (std::vector<std::string>{"original", "1080p", "720p"}));
  EXPECT_EQ(all(std::type_identity<RecordingCodec>{}), (std::vector<std::string>{"h264", "hevc"}));
  EXPECT_EQ(all(std::type_identity<CameraPosition>{}),
            (std::vector<std::string>{"topLeft", "topRight", "bottomLeft", "bottomRight"}));
  EXPECT_EQ(all(std::type_identity<RecordingCursorStyle>{}),
            (std::vector<std::string>{"system", "light", "dark"}));
  EXPECT_EQ(all(std::type_identity<RecordingPhase>{}),
            (std::vector<std::string>{"idle", "starting", "recording", "pausing", "paused", "resuming",
                                      "stopping", "completed", "cancelling", "failed"}));
}

// ---- Derived properties

TEST(RecordingSettings, UseH264UnlessToldOtherwise) {
  RecordingSettingsDTO settings;
  EXPECT_EQ(settings.effectiveCodec(), RecordingCodec::h264);
  settings.codec = RecordingCodec::h264;
  EXPECT_EQ(settings.effectiveCodec(), RecordingCodec::h264);
  settings.codec = RecordingCodec::hevc;
  EXPECT_EQ(settings.effectiveCodec(), RecordingCodec::hevc);
}

TEST(RecordingSettings, TraceWhatIsToBeDrawnOrFollowed) {
  struct Row {
    bool showsCursor;
    bool showMouseClicks;
    std::optional<bool> cursorFollow;
    std::optional<bool> shortcuts;
    bool cursorEvents, clickEvents, anyEvents;
  };
  const std::optional<bool> absent;
  for (const Row& row : {Row{false, false, absent, absent, false, false, false},
                         Row{false, false, false, false, false, false, false},
                         Row{true, false, absent, absent, true, false, true},
                         Row{false, true, absent, absent, false, true, true},
                         Row{false, false, true, absent, true, true, true},
                         Row{false, false, absent, true, false, false, true}}) {
    RecordingSettingsDTO settings;
    settings.showsCursor = row.showsCursor;
    settings.showMouseClicks = row.showMouseClicks;
    settings.cursorFollow = row.cursorFollow;
    settings.recordKeyboardShortcuts = row.shortcuts;
    EXPECT_EQ(settings.recordsCursorEvents(), row.cursorEvents);
    EXPECT_EQ(settings.recordsClickEvents(), row.clickEvents);
    EXPECT_EQ(settings.recordsInteractionEvents(), row.anyEvents);
  }
}

} // namespace
} // namespace tessarin
