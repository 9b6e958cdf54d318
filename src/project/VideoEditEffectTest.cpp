#include "project/VideoEditEffect.hpp"

#include "project/EditProjectTesting.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

using namespace editTesting;

const std::string rectJson = R"({"height":0.4,"width":0.3,"x":0.1,"y":0.2})";

// In the order of everyEffect(), with sorted keys and without what is absent.
const std::string everyJson[] = {
    R"({"center":{"x":0.5,"y":0.5},"endMs":3000,"id":"zoom","kind":"zoom","scale":2,"startMs":1000})",
    R"({"color":"#000000","endMs":3000,"id":"redaction","kind":"redaction","mode":"blur","rect":)" +
        rectJson + R"(,"startMs":1000,"strength":20})",
    R"({"backgroundColor":"#00000080","color":"#ffffff","endMs":3000,"fontScale":0.05,"id":"text",)"
    R"("kind":"text","rect":)" +
        rectJson + R"(,"startMs":1000,"text":"A text"})",
    R"({"color":"#ff0000","end":{"x":0.5,"y":0.5},"endMs":3000,"id":"arrow","kind":"arrow",)"
    R"("start":{"x":0.1,"y":0.1},"startMs":1000,"strokeWidth":0.01})",
    R"({"color":"#ff0000","endMs":3000,"fillColor":"#00ff0000","id":"rectangle","kind":"rectangle","rect":)" +
        rectJson + R"(,"startMs":1000,"strokeWidth":0.01})",
    R"({"color":"#ff0000","endMs":3000,"fillColor":"#00ff0000","id":"ellipse","kind":"ellipse","rect":)" +
        rectJson + R"(,"startMs":1000,"strokeWidth":0.01})",
    R"({"color":"#ffff00","endMs":3000,"id":"highlight","kind":"highlight","opacity":0.5,"rect":)" +
        rectJson + R"(,"startMs":1000})",
    R"({"center":{"x":0.5,"y":0.5},"color":"#0000ff","endMs":3000,"id":"number","kind":"number",)"
    R"("startMs":1000,"value":1})",
    R"({"endMs":3000,"id":"freeze","kind":"freeze","sourceTimeMs":500,"startMs":1000})",
    R"({"clickColor":"#ff0000","clickStyle":"ring","clickVisible":false,"cursorColor":"#000000",)"
    R"("cursorShadow":false,"cursorSize":1,"cursorVisible":true,"dwellStyle":"halo","dwellThresholdMs":800,)"
    R"("dwellVisible":false,"endMs":10000,"id":"interaction","kind":"interaction","shortcutStyle":"dark",)"
    R"("shortcutVisible":false,"sourcePath":")" +
        interactionPath + R"(","startMs":0,"visible":true})",
};

TEST(VideoEditEffect, EncodesTheCasesRecordFlat) {
  const std::vector<VideoEditEffectDTO> effects = everyEffect();
  ASSERT_EQ(effects.size(), std::size(everyJson));
  for (std::size_t i = 0; i < effects.size(); ++i)
    EXPECT_EQ(json::encode(effects[i]), everyJson[i]);
}

TEST(VideoEditEffect, DecodesByItsKind) {
  const std::vector<VideoEditEffectDTO> effects = everyEffect();
  for (std::size_t i = 0; i < effects.size(); ++i) {
    const auto decoded = json::decode<VideoEditEffectDTO>(std::string_view(everyJson[i]));
    EXPECT_EQ(decoded, effects[i]);
    EXPECT_EQ(decoded.kind(), static_cast<VideoEditEffectKind>(i));
  }
}

TEST(VideoEditEffect, CarriesWhatIsOptional) {
  ZoomVideoEffectDTO followed = zoom();
  followed.followCursor = false;
  RedactionVideoEffectDTO tracked = redaction();
  tracked.tracking = "face";
  TextVideoEffectDTO anchored = text();
  anchored.visible = false;
  anchored.anchor = VideoLayerAnchorDTO::canvas;
  const VideoEditEffectDTO effects[] = {effect<Kind::zoom>(followed), effect<Kind::redaction>(tracked),
                                        effect<Kind::text>(anchored)};
  const char* const pieces[] = {R"("followCursor":false)", R"("tracking":"face")", R"("anchor":"canvas")"};
  for (std::size_t i = 0; i < std::size(effects); ++i) {
    const std::string encoded = json::encode(effects[i]);
    EXPECT_NE(encoded.find(pieces[i]), std::string::npos) << encoded;
    EXPECT_EQ(json::decode<VideoEditEffectDTO>(std::string_view(encoded)), effects[i]);
  }
}

TEST(VideoEditEffect, TakesNullForAbsentAndLooksAtNoOtherKey) {
  const auto decoded = json::decode<VideoEditEffectDTO>(
      R"({"kind":"zoom","id":"z","startMs":-5,"endMs":-9,"center":{"x":7,"y":-7},"scale":1e9,)"
      R"("followCursor":null,"rect":"none","sourceTimeMs":false})");
  EXPECT_EQ(decoded,
            effect<Kind::zoom>({std::nullopt, VideoEditEffectKind::zoom, "z", -5, -9, {7, -7}, 1e9}));
}

TEST(VideoEditEffect, IsWhatItsCaseSays) {
  const VideoEditEffectDTO rectangle = effect<Kind::rectangle>(shape(Kind::ellipse));
  EXPECT_EQ(rectangle.kind(), VideoEditEffectKind::rectangle);
  EXPECT_NE(rectangle.as<Kind::rectangle>(), nullptr);
  EXPECT_EQ(rectangle.as<Kind::ellipse>(), nullptr);
  EXPECT_NE(rectangle, effect<Kind::ellipse>(shape(Kind::ellipse)));
  // The record is written as it is.
  EXPECT_NE(json::encode(rectangle).find(R"("kind":"ellipse")"), std::string::npos);
}

TEST(VideoEditEffect, TellsWhatAllKindsHave) {
  for (const VideoEditEffectDTO& each : everyEffect()) {
    const bool isInteraction = each.kind() == VideoEditEffectKind::interaction;
    EXPECT_EQ(each.startMs(), isInteraction ? 0 : 1000);
    EXPECT_EQ(each.endMs(), isInteraction ? 10'000 : 3000);
    EXPECT_FALSE(each.id().empty());
  }
}

// The text without one of its keys, together with the value.
std::string without(std::string json, const std::string& key) {
  std::size_t from = json.find('"' + key + "\":");
  std::size_t to = from;
  for (int depth = 0; depth > 0 || (json[to] != ',' && json[to] != '}'); ++to)
    depth += json[to] == '{' ? 1 : json[to] == '}' ? -1 : 0;
  if (json[to] == '}')
    --from; // the comma before the last one
  else
    ++to;
  return json.erase(from, to - from);
}

std::string refusalOf(std::string_view json) {
  try {
    (void)json::decode<VideoEditEffectDTO>(json);
    return "";
  } catch (const json::DecodingFailure& failure) {
    return failure.what();
  }
}

TEST(VideoEditEffect, MissesEveryKeyOfEveryKind) {
  const std::vector<std::string> common = {"kind", "id", "startMs", "endMs"};
  const std::vector<std::string> shapes = {"rect", "color", "fillColor", "strokeWidth"};
  const std::vector<std::string> own[] = {
      {"center", "scale"},
      {"mode", "rect", "strength", "color"},
      {"rect", "text", "color", "backgroundColor", "fontScale"},
      {"start", "end", "color", "strokeWidth"},
      shapes,
      shapes,
      {"rect", "color", "opacity"},
      {"center", "value", "color"},
      {"sourceTimeMs"},
      {"sourcePath", "visible", "cursorVisible", "cursorSize", "cursorColor", "cursorShadow", "clickVisible",
       "clickStyle", "clickColor", "dwellVisible", "dwellStyle", "dwellThresholdMs", "shortcutVisible",
       "shortcutStyle"},
  };
  for (std::size_t i = 0; i < std::size(everyJson); ++i)
    for (const auto& keys : {common, own[i]})
      for (const std::string& key : keys)
        EXPECT_EQ(refusalOf(without(everyJson[i], key)), "missing key: " + key) << everyJson[i];
}

TEST(VideoEditEffect, RefusesByTheFirstFieldThatFails) {
  const struct {
    const char* json;
    const char* reason;
  } refusals[] = {
      {"7", "expected an object"},
      {"{}", "missing key: kind"},
      {R"({"kind":null})", "kind: expected a string"},
      {R"({"kind":"Zoom"})", "kind: unknown string"},
      {R"({"kind":"spotlight"})", "kind: unknown string"},
      {R"({"kind":"zoom","followCursor":1})", "followCursor: expected a Boolean"},
      {R"({"kind":"zoom"})", "missing key: id"},
      {R"({"kind":"zoom","id":1})", "id: expected a string"},
      {R"({"kind":"zoom","id":"z"})", "missing key: startMs"},
      {R"({"kind":"zoom","id":"z","startMs":0.5})", "startMs: expected an integer"},
      {R"({"kind":"zoom","id":"z","startMs":0,"endMs":"1"})", "endMs: expected an integer"},
      {R"({"kind":"zoom","id":"z","startMs":0,"endMs":1,"center":{"x":0}})", "center: missing key: y"},
      {R"({"kind":"zoom","id":"z","startMs":0,"endMs":1,"center":{"x":0,"y":0}})", "missing key: scale"},
      {R"({"kind":"redaction","id":"r","startMs":0,"endMs":1,"mode":"pixelate"})", "mode: unknown string"},
      {R"({"kind":"number","id":"n","startMs":0,"endMs":1,"center":{"x":0,"y":0},"value":1.5})",
       "value: expected an integer"},
      {R"({"kind":"text","id":"t","startMs":0,"endMs":1,"rect":{"x":0,"y":0,"width":1,"height":1},"text":"",)"
       R"("color":"","backgroundColor":"","fontScale":0,"anchor":"window"})",
       "anchor: unknown string"},
      {R"({"kind":"interaction","id":"i","startMs":0,"endMs":1,"sourcePath":"","visible":true,)"
       R"("cursorVisible":true,"cursorSize":1,"cursorColor":"","cursorShadow":true,"clickVisible":true,)"
       R"("clickStyle":"star"})",
       "clickStyle: unknown string"},
  };
  for (const auto& refusal : refusals)
    EXPECT_EQ(refusalOf(refusal.json), refusal.reason) << refusal.json;
}

template<class E> void expectNames(const std::vector<std::string_view>& names) {
  EXPECT_EQ(jsonNames(E{}).size(), names.size());
  for (std::size_t i = 0; i < names.size(); ++i)
    EXPECT_EQ(json::nameOf(static_cast<E>(i)), names[i]);
}

TEST(VideoEditEffect, NamesItsStyles) {
  expectNames<VideoEditEffectKind>({"zoom", "redaction", "text", "arrow", "rectangle", "ellipse", "highlight",
                                    "number", "freeze", "interaction"});
  expectNames<VideoRedactionMode>({"mosaic", "blur", "solid"});
  expectNames<InteractionClickStyleDTO>({"ring", "pulse", "dot"});
  expectNames<InteractionDwellStyleDTO>({"halo", "spotlight"});
  expectNames<InteractionShortcutStyleDTO>({"dark", "light", "minimal"});
  expectNames<VideoLayerAnchorDTO>({"content", "canvas"});
}

} // namespace
} // namespace tessarin
