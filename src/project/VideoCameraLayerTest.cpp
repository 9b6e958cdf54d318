#include "project/VideoCameraLayer.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace tessarin {
namespace {

using Positions = std::vector<VideoCameraPositionDTO>;
using Path =
    std::vector<std::pair<std::int64_t, double>>; // moments, and the x by which places are told apart

NormalizedVideoRectDTO place(double x) {
  return {x, 0.25, 0.2, 0.15};
}

VideoCameraLayerDTO layerWithout() {
  return {true, place(0.9), VideoCameraShapeDTO::circle, true, false, std::nullopt};
}

VideoCameraLayerDTO layerAlong(const Path& path) {
  VideoCameraLayerDTO layer = layerWithout();
  layer.recordedPositions.emplace();
  for (const auto& [timeMs, x] : path)
    layer.recordedPositions->push_back({timeMs, place(x)});
  return layer;
}

TEST(VideoCameraLayer, TakesTheLastPositionAtOrBeforeTheMoment) {
  const VideoCameraLayerDTO layer = layerAlong({{0, 0.1}, {100, 0.2}, {100, 0.3}, {250, 0.4}});
  const std::pair<std::int64_t, double> table[] = {{0, 0.1},   {1, 0.1},         {99, 0.1},       {100, 0.3},
                                                   {101, 0.3}, {249, 0.3},       {250, 0.4},      {251, 0.4},
                                                   {-1, 0.1},  {INT64_MAX, 0.4}, {INT64_MIN, 0.1}};
  for (const auto& [timeMs, x] : table) {
    VideoCameraLayerDTO expected = layerWithout();
    expected.rect = place(x);
    EXPECT_EQ(layer.at(timeMs), expected) << timeMs;
  }
}

TEST(VideoCameraLayer, TakesTheFirstPositionBeforeIt) {
  const VideoCameraLayerDTO layer = layerAlong({{500, 0.1}, {600, 0.2}});
  EXPECT_EQ(layer.at(0).rect, place(0.1));
  EXPECT_EQ(layer.at(499).rect, place(0.1));
  EXPECT_EQ(layer.at(500).rect, place(0.1));
  EXPECT_EQ(layer.at(600).rect, place(0.2));
}

TEST(VideoCameraLayer, StaysAsItIsWithoutPositions) {
  for (const VideoCameraLayerDTO& layer : {layerWithout(), layerAlong({})}) {
    EXPECT_EQ(layer.at(0), layer);
    EXPECT_EQ(layer.mappedToOutput({{0, 1000, 1}}), layer);
    EXPECT_EQ(layer.mappedToOutput({}), layer);
  }
}

struct Mapping {
  const char* name;
  Path source;
  std::vector<ClipSpan> clips;
  Path output;
};

const Mapping mappings[] = {
    {"one position, two clips", {{0, 0.1}}, {{5000, 6000, 1}, {9000, 9500, 1}}, {{0, 0.1}, {1000, 0.1}}},
    {"at a clip's start: once", {{0, 0.1}, {1000, 0.2}}, {{1000, 2000, 1}}, {{0, 0.2}}},
    {"just after its start", {{0, 0.1}, {1001, 0.2}}, {{1000, 2000, 1}}, {{0, 0.1}, {1, 0.2}}},
    {"just before its end", {{0, 0.1}, {1999, 0.2}}, {{1000, 2000, 1}}, {{0, 0.1}, {999, 0.2}}},
    {"at a clip's end: not", {{0, 0.1}, {2000, 0.2}}, {{1000, 2000, 1}}, {{0, 0.1}}},
    {"at one's end and the next's start",
     {{0, 0.1}, {2000, 0.2}},
     {{1000, 2000, 1}, {2000, 3000, 1}},
     {{0, 0.1}, {1000, 0.2}}},
    {"before the first position", {{500, 0.1}, {700, 0.2}}, {{100, 600, 1}}, {{0, 0.1}, {400, 0.1}}},
    {"between clips",
     {{0, 0.1}, {300, 0.2}, {400, 0.3}},
     {{0, 200, 1}, {500, 600, 1}},
     {{0, 0.1}, {200, 0.3}}},
    {"twice as fast",
     {{0, 0.1}, {301, 0.2}},
     {{100, 500, 2}, {600, 700, 1}},
     {{0, 0.1}, {101, 0.2}, {200, 0.2}}},
    {"half as fast",
     {{0, 0.1}, {301, 0.2}},
     {{100, 500, 0.5}, {600, 700, 1}},
     {{0, 0.1}, {402, 0.2}, {800, 0.2}}},
    // 1 / 2 and 3 / 2 are halves; 2 / 3 rounds up and 4 / 3 down.
    {"halves up",
     {{0, 0.1}, {1, 0.2}, {3, 0.3}},
     {{0, 5, 2}, {5, 6, 1}},
     {{0, 0.1}, {1, 0.2}, {2, 0.3}, {3, 0.3}}},
    {"thirds to nearest",
     {{0, 0.1}, {2, 0.2}, {4, 0.3}},
     {{0, 7, 3}, {7, 8, 1}},
     {{0, 0.1}, {1, 0.2}, {1, 0.3}, {2, 0.3}}},
    {"a stretch used twice",
     {{0, 0.1}, {50, 0.2}},
     {{0, 100, 1}, {0, 100, 1}},
     {{0, 0.1}, {50, 0.2}, {100, 0.1}, {150, 0.2}}},
    {"backwards order",
     {{0, 0.1}, {150, 0.2}},
     {{100, 200, 1}, {0, 100, 1}},
     {{0, 0.1}, {50, 0.2}, {100, 0.1}}},
    {"a clip of nothing", {{0, 0.1}, {10, 0.2}}, {{10, 10, 1}, {20, 30, 1}}, {{0, 0.2}, {0, 0.2}}},
    {"no clips", {{0, 0.1}, {10, 0.2}}, {}, {}},
};

TEST(VideoCameraLayer, MovesItsPathToTheOutput) {
  for (const Mapping& mapping : mappings)
    EXPECT_EQ(layerAlong(mapping.source).mappedToOutput(mapping.clips), layerAlong(mapping.output))
        << mapping.name;
}

const std::string rectJson = R"({"height":0.15,"width":0.2,"x":0.5,"y":0.25})";

TEST(VideoCameraLayer, EncodesWithoutWhatIsAbsent) {
  VideoCameraLayerDTO layer{true,         place(0.5),   VideoCameraShapeDTO::rounded,
                            std::nullopt, std::nullopt, std::nullopt};
  EXPECT_EQ(json::encode(layer), R"({"rect":)" + rectJson + R"(,"shape":"rounded","visible":true})");
  layer.mirrored = false;
  layer.borderVisible = true;
  layer.shape = VideoCameraShapeDTO::circle;
  layer.recordedPositions = Positions{{0, place(0.5)}};
  EXPECT_EQ(json::encode(layer), R"({"borderVisible":true,"mirrored":false,"recordedPositions":[{"rect":)" +
                                     rectJson + R"(,"sourceTimeMs":0}],"rect":)" + rectJson +
                                     R"(,"shape":"circle","visible":true})");
  layer.shape = VideoCameraShapeDTO::rectangle;
  layer.recordedPositions = Positions{};
  layer.mirrored.reset();
  layer.borderVisible.reset();
  EXPECT_EQ(json::encode(layer),
            R"({"recordedPositions":[],"rect":)" + rectJson + R"(,"shape":"rectangle","visible":true})");
}

TEST(VideoCameraLayer, DecodesWhatItEncodes) {
  for (const VideoCameraLayerDTO& layer :
       {layerWithout(), layerAlong({}), layerAlong({{0, 0.1}, {0, 0.2}, {7, 1.0 / 3}})})
    EXPECT_EQ(json::decode<VideoCameraLayerDTO>(json::encode(layer)), layer);
}

TEST(VideoCameraLayer, TakesNullForAbsentAndLooksAtNoOtherKey) {
  const auto layer = json::decode<VideoCameraLayerDTO>(
      R"({"visible":false,"rect":{"x":-1,"y":2,"width":0,"height":-3.5,"z":true},"shape":"circle",)"
      R"("mirrored":null,"borderVisible":null,"recordedPositions":null,"opacity":"none"})");
  EXPECT_EQ(layer, (VideoCameraLayerDTO{false, {-1, 2, 0, -3.5}, VideoCameraShapeDTO::circle, {}, {}, {}}));
}

struct Refusal {
  const char* json;
  const char* reason;
};

// The first key that fails, in the order of declaration and not of the text, decides.
const Refusal refusals[] = {
    {"[]", "expected an object"},
    {"{}", "missing key: visible"},
    {R"({"shape":"oval","rect":7})", "missing key: visible"},
    {R"({"shape":"oval","rect":7,"visible":1})", "visible: expected a Boolean"},
    {R"({"shape":"oval","rect":7,"visible":null})", "visible: expected a Boolean"},
    {R"({"shape":"oval","rect":7,"visible":true})", "rect: expected an object"},
    {R"({"shape":"oval","visible":true})", "missing key: rect"},
    {R"({"shape":"oval","rect":{"y":0,"width":"1"},"visible":true})", "rect: missing key: x"},
    {R"({"shape":"oval","rect":{"x":0,"y":0,"height":1,"width":"1"},"visible":true})",
     "rect: width: expected a number"},
    {R"({"rect":{"x":0,"y":0,"width":1,"height":1},"visible":true})", "missing key: shape"},
    {R"({"shape":"oval","rect":{"x":0,"y":0,"width":1,"height":1},"visible":true,"mirrored":7})",
     "shape: unknown string"},
    {R"({"shape":"Circle","rect":{"x":0,"y":0,"width":1,"height":1},"visible":true})",
     "shape: unknown string"},
    {R"({"shape":2,"rect":{"x":0,"y":0,"width":1,"height":1},"visible":true})", "shape: expected a string"},
    {R"({"shape":"circle","rect":{"x":0,"y":0,"width":1,"height":1},"visible":true,"borderVisible":0,"mirrored":0})",
     "mirrored: expected a Boolean"},
    {R"({"shape":"circle","rect":{"x":0,"y":0,"width":1,"height":1},"visible":true,"borderVisible":"no"})",
     "borderVisible: expected a Boolean"},
    {R"({"shape":"circle","rect":{"x":0,"y":0,"width":1,"height":1},"visible":true,"recordedPositions":{}})",
     "recordedPositions: expected an array"},
    {R"({"shape":"circle","rect":{"x":0,"y":0,"width":1,"height":1},"visible":true,"recordedPositions":[null]})",
     "recordedPositions: expected an object"},
    {R"({"shape":"circle","rect":{"x":0,"y":0,"width":1,"height":1},"visible":true,)"
     R"("recordedPositions":[{"rect":0}]})",
     "recordedPositions: missing key: sourceTimeMs"},
    {R"({"shape":"circle","rect":{"x":0,"y":0,"width":1,"height":1},"visible":true,)"
     R"("recordedPositions":[{"rect":0,"sourceTimeMs":1.5}]})",
     "recordedPositions: sourceTimeMs: expected an integer"},
    {R"({"shape":"circle","rect":{"x":0,"y":0,"width":1,"height":1},"visible":true,)"
     R"("recordedPositions":[{"sourceTimeMs":0}]})",
     "recordedPositions: missing key: rect"},
};

TEST(VideoCameraLayer, RefusesByTheFirstFieldThatFails) {
  for (const Refusal& refusal : refusals) {
    try {
      json::decode<VideoCameraLayerDTO>(refusal.json);
      ADD_FAILURE() << refusal.json;
    } catch (const json::DecodingFailure& failure) {
      EXPECT_STREQ(failure.what(), refusal.reason) << refusal.json;
    }
  }
}

} // namespace
} // namespace tessarin
