#pragma once

#include "project/VideoEditProject.hpp"

#include <array>
#include <cstddef>
#include <functional>
#include <span>
#include <string>

// What tells the cleaned sound of one recording and one choice of settings from that of any other: a hash
// over the recording's bytes and all settings that the result depends on.
namespace tessarin {

// SHA-256 of all that it is fed with. Belongs to one thread.
class NarrationHash {
 public:
  NarrationHash() = default;
  NarrationHash(const NarrationHash&) = delete;
  NarrationHash& operator=(const NarrationHash&) = delete;
  virtual ~NarrationHash() = default;

  virtual void update(std::span<const std::byte> bytes) = 0;
  // Once, at the end.
  virtual std::array<std::byte, 32> finish() = 0;
};

// Reads the next bytes of a file into the memory; how many, 0 at the file's end. May throw.
using NarrationFileReader = std::function<std::size_t(std::span<std::byte>)>;

// The settings in the order in which they are hashed: the narration's as JSON, "null" without one; then
// "muted:START-END;" in milliseconds for each clip that mutes the microphone; then "INDEX:ROLE;" for each
// track of sound, by its index.
std::string narrationDigestSettings(const VideoEditProjectDTO& project);

// The recording, a mebibyte at a time, and then the settings: 64 lower-case hexadecimal digits. What the
// reader throws goes through.
std::string narrationDigest(const NarrationFileReader& read, const VideoEditProjectDTO& project,
                            NarrationHash& hash);

} // namespace tessarin
