#include "trace/InteractionEventDTO.hpp"

namespace tessarin {

namespace {

struct Tag {
  InteractionEventKind kind = InteractionEventKind::cursor;

  static constexpr auto fields() { return json::table(json::field("kind", &Tag::kind)); }
};

} // namespace

std::int64_t InteractionEventDTO::timestampMs() const {
  return std::visit([](const auto& one) { return one.timestampMs; }, event);
}

InteractionEventDTO InteractionEventDTO::at(std::int64_t timestampMs) const {
  InteractionEventDTO moved = *this;
  std::visit([timestampMs](auto& one) { one.timestampMs = timestampMs; }, moved.event);
  return moved;
}

InteractionEventDTO InteractionEventDTO::fromJson(const json::Value& value) {
  switch (json::decode<Tag>(value).kind) {
  case InteractionEventKind::cursor:
    return {json::decode<InteractionCursorEvent>(value)};
  case InteractionEventKind::click:
    return {json::decode<InteractionClickEvent>(value)};
  case InteractionEventKind::shortcut:
    break;
  }
  return {json::decode<InteractionShortcutEvent>(value)};
}

void InteractionEventDTO::toJson(std::string& out) const {
  std::visit([&out](const auto& one) { json::append(out, one); }, event);
}

} // namespace tessarin
