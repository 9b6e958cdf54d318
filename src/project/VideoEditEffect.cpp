#include "project/VideoEditEffect.hpp"

namespace tessarin {

namespace {

struct KindCodingKey {
  VideoEditEffectKind kind = VideoEditEffectKind::zoom;

  static constexpr auto fields() { return json::table(json::field("kind", &KindCodingKey::kind)); }
};

template<VideoEditEffectKind Kind> VideoEditEffectDTO decoded(const json::Value& value) {
  return VideoEditEffectDTO::make<Kind>(json::decode<VideoEditEffectDTO::RecordOf<Kind>>(value));
}

} // namespace

const std::string& VideoEditEffectDTO::id() const {
  return std::visit([](const auto& one) -> const std::string& { return one.id; }, record);
}

std::int64_t VideoEditEffectDTO::startMs() const {
  return std::visit([](const auto& one) { return one.startMs; }, record);
}

std::int64_t VideoEditEffectDTO::endMs() const {
  return std::visit([](const auto& one) { return one.endMs; }, record);
}

VideoEditEffectDTO VideoEditEffectDTO::fromJson(const json::Value& value) {
  switch (json::decode<KindCodingKey>(value).kind) {
  case VideoEditEffectKind::zoom:
    return decoded<VideoEditEffectKind::zoom>(value);
  case VideoEditEffectKind::redaction:
    return decoded<VideoEditEffectKind::redaction>(value);
  case VideoEditEffectKind::text:
    return decoded<VideoEditEffectKind::text>(value);
  case VideoEditEffectKind::arrow:
    return decoded<VideoEditEffectKind::arrow>(value);
  case VideoEditEffectKind::rectangle:
    return decoded<VideoEditEffectKind::rectangle>(value);
  case VideoEditEffectKind::ellipse:
    return decoded<VideoEditEffectKind::ellipse>(value);
  case VideoEditEffectKind::highlight:
    return decoded<VideoEditEffectKind::highlight>(value);
  case VideoEditEffectKind::number:
    return decoded<VideoEditEffectKind::number>(value);
  case VideoEditEffectKind::freeze:
    return decoded<VideoEditEffectKind::freeze>(value);
  case VideoEditEffectKind::interaction:
    break;
  }
  return decoded<VideoEditEffectKind::interaction>(value);
}

void VideoEditEffectDTO::toJson(std::string& out) const {
  std::visit([&out](const auto& one) { json::append(out, one); }, record);
}

} // namespace tessarin
