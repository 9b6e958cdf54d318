#include "narration/NarrationDigest.hpp"

#include <algorithm>
#include <string_view>
#include <vector>

namespace tessarin {

namespace {

constexpr std::size_t chunkBytes = 1'048'576;

std::string hexadecimal(std::span<const std::byte> bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const std::byte byte : bytes) {
    text.push_back(digits[std::to_integer<std::size_t>(byte >> 4)]);
    text.push_back(digits[std::to_integer<std::size_t>(byte & std::byte{15})]);
  }
  return text;
}

} // namespace

std::string narrationDigestSettings(const VideoEditProjectDTO& project) {
  std::string text = project.narrationAudio ? json::encode(*project.narrationAudio) : "null";
  for (const VideoEditClipDTO& clip : project.clips) {
    if (std::count(clip.mutedRoles.begin(), clip.mutedRoles.end(), VideoEditAudioRole::microphone) == 0)
      continue;
    text.append("muted:").append(std::to_string(clip.sourceStartMs)).append("-");
    text.append(std::to_string(clip.sourceEndMs)).append(";");
  }
  std::vector<VideoEditAudioTrackDTO> tracks = project.source.audioTracks;
  std::stable_sort(tracks.begin(), tracks.end(), [](const auto& first, const auto& second) {
    return first.sourceTrackIndex < second.sourceTrackIndex;
  });
  for (const VideoEditAudioTrackDTO& track : tracks)
    text.append(std::to_string(track.sourceTrackIndex))
        .append(":")
        .append(json::nameOf(track.role))
        .append(";");
  return text;
}

std::string narrationDigest(const NarrationFileReader& read, const VideoEditProjectDTO& project,
                            NarrationHash& hash) {
  std::vector<std::byte> chunk(chunkBytes);
  while (const std::size_t count = read(chunk))
    hash.update(std::span(chunk).first(count));
  const std::string settings = narrationDigestSettings(project);
  hash.update(std::as_bytes(std::span(settings)));
  return hexadecimal(hash.finish());
}

} // namespace tessarin
