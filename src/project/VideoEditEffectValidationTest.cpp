#include "project/VideoEditEffect.hpp"

#include "project/EditValidationTesting.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace tessarin {
namespace {

using namespace editTesting;

constexpr std::int64_t sourceDurationMs = 3'600'000;

template<Kind K> bool isValid(VideoEditEffectDTO::RecordOf<K> record) {
  return effect<K>(std::move(record)).payloadIsValid(sourceDurationMs);
}

// Tries the bounds of a number on a kind of effect.
template<Kind K, class Number>
void expectBounds(const VideoEditEffectDTO::RecordOf<K>& record,
                  Number VideoEditEffectDTO::RecordOf<K>::*field, Number lowest, Number highest) {
  const auto holds = [&](Number value) {
    auto changed = record;
    changed.*field = value;
    return isValid<K>(changed);
  };
  EXPECT_TRUE(holds(lowest));
  EXPECT_TRUE(holds(highest));
  if constexpr (std::is_floating_point_v<Number>) {
    EXPECT_FALSE(holds(std::nextafter(lowest, -infinite)));
    EXPECT_FALSE(holds(std::nextafter(highest, infinite)));
    EXPECT_FALSE(holds(noNumber));
    EXPECT_FALSE(holds(infinite));
  } else {
    EXPECT_FALSE(holds(lowest - 1));
    EXPECT_FALSE(holds(highest + 1));
  }
}

template<Kind K>
void expectColor(const VideoEditEffectDTO::RecordOf<K>& record,
                 std::string VideoEditEffectDTO::RecordOf<K>::*field) {
  for (const auto& [color, holds] : colors) {
    auto changed = record;
    changed.*field = color;
    EXPECT_EQ(isValid<K>(changed), holds) << color;
  }
}

template<Kind K> void expectRect(const VideoEditEffectDTO::RecordOf<K>& record) {
  Project project = plainProject();
  project.overlays = {effect<K>(record)};
  for (const Case& each : rectCases<NormalizedVideoRectDTO>(
           [](Project & changed) -> auto& { return changed.overlays[0].template as<K>()->rect; }, fails)) {
    Project changed = project;
    each.change(changed);
    EXPECT_EQ(changed.overlays[0].payloadIsValid(sourceDurationMs), each.outcome == passes) << each.name;
  }
}

// Tries the bounds of a point, and keeps it far from (0.5, 0.5).
template<Kind K>
void expectPoint(const VideoEditEffectDTO::RecordOf<K>& record,
                 NormalizedVideoPointDTO VideoEditEffectDTO::RecordOf<K>::*field) {
  const std::pair<NormalizedVideoPointDTO, bool> points[] = {{{0, 0}, true},
                                                             {{1, 1}, true},
                                                             {{0, 1}, true},
                                                             {{-1e-12, 0}, false},
                                                             {{0, -1e-12}, false},
                                                             {{1, std::nextafter(1.0, 2.0)}, false},
                                                             {{std::nextafter(1.0, 2.0), 1}, false},
                                                             {{noNumber, 0}, false},
                                                             {{0, noNumber}, false},
                                                             {{infinite, 0}, false}};
  for (const auto& [point, holds] : points) {
    auto changed = record;
    changed.*field = point;
    EXPECT_EQ(isValid<K>(changed), holds) << point.x << ", " << point.y;
  }
}

TEST(VideoEditEffectValidation, TakesOneOfEachKind) {
  for (const VideoEditEffectDTO& each : everyEffect())
    EXPECT_TRUE(each.payloadIsValid(sourceDurationMs)) << each.id();
}

TEST(VideoEditEffectValidation, ChecksZooms) {
  expectPoint<Kind::zoom>(zoom(), &ZoomVideoEffectDTO::center);
  expectBounds<Kind::zoom>(zoom(), &ZoomVideoEffectDTO::scale, 1.25, 4.0);
}

TEST(VideoEditEffectValidation, ChecksRedactions) {
  expectRect<Kind::redaction>(redaction());
  expectBounds<Kind::redaction>(redaction(), &RedactionVideoEffectDTO::strength, 1.0, 100.0);
  expectColor<Kind::redaction>(redaction(), &RedactionVideoEffectDTO::color);
  for (const char* const tracking : {"", "face"}) {
    RedactionVideoEffectDTO tracked = redaction();
    tracked.tracking = tracking;
    EXPECT_FALSE(isValid<Kind::redaction>(tracked));
  }
}

TEST(VideoEditEffectValidation, ChecksTexts) {
  expectRect<Kind::text>(text());
  expectColor<Kind::text>(text(), &TextVideoEffectDTO::color);
  expectColor<Kind::text>(text(), &TextVideoEffectDTO::backgroundColor);
  expectBounds<Kind::text>(text(), &TextVideoEffectDTO::fontScale, 0.02, 0.2);
  const auto repeated = [](const std::string& piece, int count) {
    std::string all;
    for (int i = 0; i < count; ++i)
      all.append(piece);
    return all;
  };
  const std::string family = "\U0001f468\u200d\U0001f469\u200d\U0001f467\u200d\U0001f466"; // seven scalars
  const std::pair<std::string, bool> texts[] = {
      {"", false},
      {"   ", false},
      {" \n\t\r\v\f\u0085\u00a0\u1680\u2003\u2028\u2029\u202f\u205f\u3000", false},
      {" x\n", true},
      {"\u200b", true}, // a space of no width is none
      {std::string(200, 'x'), true},
      {std::string(201, 'x'), false},
      {repeated("\u5b57", 200), true},
      {repeated("\u5b57", 201), false},
      {repeated("\U0001f600", 200), true},
      {repeated("\U0001f600", 201), false},
      {repeated("e\u0301", 100), true}, // scalars count, not what a reader sees
      {repeated("e\u0301", 100) + "x", false},
      {repeated(family, 28) + "abcd", true},
      {repeated(family, 28) + "abcde", false},
      {std::string(200, ' ') + "x", false}};
  for (const auto& [each, holds] : texts) {
    TextVideoEffectDTO changed = text();
    changed.text = each;
    EXPECT_EQ(isValid<Kind::text>(changed), holds) << each;
  }
}

TEST(VideoEditEffectValidation, ChecksArrows) {
  expectPoint<Kind::arrow>(arrow(), &ArrowVideoEffectDTO::end);
  ArrowVideoEffectDTO other = arrow();
  other.end = {0.3, 0.6};
  expectPoint<Kind::arrow>(other, &ArrowVideoEffectDTO::start);
  expectColor<Kind::arrow>(arrow(), &ArrowVideoEffectDTO::color);
  expectBounds<Kind::arrow>(arrow(), &ArrowVideoEffectDTO::strokeWidth, 0.002, 0.05);
  const std::pair<NormalizedVideoPointDTO, bool> ends[] = {
      {{0, 0}, false},         {{0.01, 0}, true},
      {{0, 0.01}, true},       {{std::nextafter(0.01, 0), 0}, false},
      {{0.006, 0.008}, true},  {{0.006, 0.0079}, false},
      {{0.007, 0.007}, false}, {{0.0072, 0.0072}, true}};
  for (const auto& [end, holds] : ends) {
    ArrowVideoEffectDTO changed = arrow();
    changed.start = {0, 0};
    changed.end = end;
    EXPECT_EQ(isValid<Kind::arrow>(changed), holds) << end.x << ", " << end.y;
    std::swap(changed.start, changed.end);
    EXPECT_EQ(isValid<Kind::arrow>(changed), holds) << end.x << ", " << end.y;
  }
}

TEST(VideoEditEffectValidation, ChecksShapes) {
  const auto all = [](auto kind) {
    constexpr Kind K = decltype(kind)::value;
    expectRect<K>(shape(K));
    expectColor<K>(shape(K), &ShapeVideoEffectDTO::color);
    expectColor<K>(shape(K), &ShapeVideoEffectDTO::fillColor);
    expectBounds<K>(shape(K), &ShapeVideoEffectDTO::strokeWidth, 0.002, 0.05);
  };
  all(std::integral_constant<Kind, Kind::rectangle>{});
  all(std::integral_constant<Kind, Kind::ellipse>{});
}

TEST(VideoEditEffectValidation, ChecksHighlights) {
  expectRect<Kind::highlight>(highlight());
  expectColor<Kind::highlight>(highlight(), &HighlightVideoEffectDTO::color);
  expectBounds<Kind::highlight>(highlight(), &HighlightVideoEffectDTO::opacity, 0.05, 1.0);
}

TEST(VideoEditEffectValidation, ChecksNumbers) {
  expectPoint<Kind::number>(number(), &NumberVideoEffectDTO::center);
  expectColor<Kind::number>(number(), &NumberVideoEffectDTO::color);
  expectBounds<Kind::number, std::int64_t>(number(), &NumberVideoEffectDTO::value, 1, 999);
}

TEST(VideoEditEffectValidation, ChecksFrozenMoments) {
  expectBounds<Kind::freeze, std::int64_t>(freeze(), &FreezeVideoEffectDTO::sourceTimeMs, 0,
                                           sourceDurationMs - 1);
}

TEST(VideoEditEffectValidation, ChecksTraces) {
  expectBounds<Kind::interaction>(interaction(), &InteractionVideoEffectDTO::cursorSize, 0.5, 3.0);
  expectBounds<Kind::interaction, std::int64_t>(interaction(), &InteractionVideoEffectDTO::dwellThresholdMs,
                                                400, 3000);
  expectColor<Kind::interaction>(interaction(), &InteractionVideoEffectDTO::cursorColor);
  expectColor<Kind::interaction>(interaction(), &InteractionVideoEffectDTO::clickColor);
  const std::pair<std::string, bool> paths[] = {{"/anywhere/interaction-events.jsonl", true},
                                                {"interaction-events.jsonl", true},
                                                {"", false},
                                                {"/", false},
                                                {"/x/interaction-events.json", false},
                                                {"/x/Interaction-events.jsonl", false},
                                                {"/interaction-events.jsonl/x", false}};
  for (const auto& [path, holds] : paths) {
    InteractionVideoEffectDTO changed = interaction();
    changed.sourcePath = path;
    EXPECT_EQ(isValid<Kind::interaction>(changed), holds) << path;
  }
}

} // namespace
} // namespace tessarin
