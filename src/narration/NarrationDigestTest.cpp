#include "narration/NarrationDigest.hpp"

#include "project/EditProjectTesting.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

namespace tessarin {
namespace {

using Role = VideoEditAudioRole;

// Keeps what it is fed with, and ends with the bytes 0x00, 0x07, 0x0e and so on.
class KeepingHash : public NarrationHash {
 public:
  void update(std::span<const std::byte> bytes) override {
    sizes.push_back(bytes.size());
    for (const std::byte byte : bytes)
      fed.push_back(static_cast<char>(byte));
  }
  std::array<std::byte, 32> finish() override {
    std::array<std::byte, 32> digest;
    for (std::size_t i = 0; i < digest.size(); ++i)
      digest[i] = static_cast<std::byte>(i * 7);
    return digest;
  }

  std::vector<std::size_t> sizes;
  std::string fed;
};

// Reads the text, as much as fits or at most `atOnce`.
NarrationFileReader readerOf(std::string text, std::size_t atOnce = SIZE_MAX) {
  return [text = std::move(text), atOnce, position = std::size_t{0}](std::span<std::byte> memory) mutable {
    const std::size_t count = std::min({memory.size(), atOnce, text.size() - position});
    std::copy_n(reinterpret_cast<const std::byte*>(text.data()) + position, count, memory.begin());
    position += count;
    return count;
  };
}

VideoEditClipDTO muting(std::int64_t startMs, std::int64_t endMs, std::vector<Role> roles) {
  VideoEditClipDTO clip = editTesting::clip(std::to_string(startMs), startMs, endMs);
  clip.mutedRoles = std::move(roles);
  return clip;
}

VideoEditProjectDTO someProject() {
  VideoEditProjectDTO project = editTesting::plainProject();
  project.narrationAudio = NarrationAudioSettingsDTO{0.75};
  return project;
}

TEST(NarrationDigestSettings, nameStrengthMutedClipsAndTracks) {
  VideoEditProjectDTO project = someProject();
  EXPECT_EQ(narrationDigestSettings(project), R"({"strength":0.75}0:system;1:microphone;)");
  project.clips = {muting(0, 1000, {Role::microphone}), muting(1000, 2500, {Role::system}),
                   muting(3000, 4000, {Role::system, Role::microphone}), muting(4000, 5000, {})};
  EXPECT_EQ(narrationDigestSettings(project),
            R"({"strength":0.75}muted:0-1000;muted:3000-4000;0:system;1:microphone;)");
}

TEST(NarrationDigestSettings, writeTheStrengthAsShortAsItGoes) {
  const struct {
    double strength;
    const char* text;
  } cases[] = {{0.25, "0.25"}, {0.5, "0.5"}, {0.75, "0.75"}, {1, "1"}};
  for (const auto& it : cases) {
    VideoEditProjectDTO project = someProject();
    project.narrationAudio = NarrationAudioSettingsDTO{it.strength};
    EXPECT_EQ(narrationDigestSettings(project),
              std::string("{\"strength\":") + it.text + "}0:system;1:microphone;");
  }
  VideoEditProjectDTO without = someProject();
  without.narrationAudio = std::nullopt;
  EXPECT_EQ(narrationDigestSettings(without), "null0:system;1:microphone;");
}

TEST(NarrationDigestSettings, sortTracksByTheirIndex) {
  VideoEditProjectDTO project = someProject();
  project.source.audioTracks = {{10, Role::microphone}, {2, Role::mixed}, {0, Role::system}};
  EXPECT_EQ(narrationDigestSettings(project), R"({"strength":0.75}0:system;2:mixed;10:microphone;)");
  project.source.audioTracks = {};
  EXPECT_EQ(narrationDigestSettings(project), R"({"strength":0.75})");
}

TEST(NarrationDigestSettings, areTheSameForAnotherCutWithNothingMuted) {
  VideoEditProjectDTO project = someProject();
  const std::string whole = narrationDigestSettings(project);
  project.clips = {editTesting::clip("a", 0, 1000, 2), editTesting::clip("b", 2000, 5000)};
  project.revision = 99;
  project.crop = {0.1, 0.1, 0.5, 0.5};
  EXPECT_EQ(narrationDigestSettings(project), whole);
}

TEST(NarrationDigest, hashesTheFileAndThenTheSettings) {
  KeepingHash hash;
  EXPECT_EQ(narrationDigest(readerOf("the recording"), someProject(), hash),
            "00070e151c232a31383f464d545b626970777e858c939aa1a8afb6bdc4cbd2d9");
  EXPECT_EQ(hash.fed, R"(the recording{"strength":0.75}0:system;1:microphone;)");
}

TEST(NarrationDigest, readsAMebibyteAtATime) {
  for (const std::size_t size : {std::size_t{0}, std::size_t{1'048'576}, std::size_t{2'500'000}}) {
    KeepingHash hash;
    std::string file(size, 'x');
    narrationDigest(readerOf(file), someProject(), hash);
    EXPECT_EQ(hash.fed, file + R"({"strength":0.75}0:system;1:microphone;)");
    ASSERT_EQ(hash.sizes.size(), (size + 1'048'575) / 1'048'576 + 1);
    if (size > 1'048'576) {
      EXPECT_EQ(hash.sizes[0], 1'048'576U);
    }
  }
}

TEST(NarrationDigest, goesOnAfterAReadThatYieldsLess) {
  KeepingHash hash;
  const std::string file(100'000, 'y');
  narrationDigest(readerOf(file, 999), someProject(), hash);
  EXPECT_EQ(hash.fed, file + R"({"strength":0.75}0:system;1:microphone;)");
}

TEST(NarrationDigest, letsAFailureToReadThrough) {
  KeepingHash hash;
  const NarrationFileReader failing = [](std::span<std::byte>) -> std::size_t {
    throw std::runtime_error("");
  };
  EXPECT_THROW(narrationDigest(failing, someProject(), hash), std::runtime_error);
}

} // namespace
} // namespace tessarin
