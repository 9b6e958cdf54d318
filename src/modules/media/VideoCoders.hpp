#pragma once

#include "modules/media/CodingEffort.hpp"
#include "modules/media/VideoCoder.hpp"
#include "ports/MediaWriting.hpp"
#include "ports/Modules.hpp"

#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>

namespace tessarin::media {

enum class EncoderKind : std::uint8_t { software, vaapi, nvenc };

// An encoder of the codec library that this program knows to set up.
struct Encoder {
  RecordingCodec codec = RecordingCodec::h264;
  EncoderKind kind = EncoderKind::software;
  const char* name = "";
};

// Whether settings make sense for any coder.
bool areCodable(const VideoSettings& settings);

// The encoder of this name; nothing when this program does not know to set it up.
std::optional<Encoder> encoderNamed(const std::string& name);

// Where coders come from. Every function may be called on any thread.
struct EncoderCatalogue {
  // Whether the codec library was built with the encoder.
  std::function<bool(const std::string& name)> has;
  // Whether a hardware encoder works on this machine. May be null: then none does.
  HardwareEncoderProbe probe;
  // Throws CoderFailure. Only software has efforts.
  std::function<std::unique_ptr<VideoCoder>(const Encoder&, const VideoSettings&, CodingEffort)> make;
};

// That of the codec library.
EncoderCatalogue libraryEncoders(HardwareEncoderProbe probe);

// A coder with the encoder's name, for its failures.
struct NamedCoder {
  std::unique_ptr<VideoCoder> coder;
  std::string encoderName;
};

// Chooses the coders of a session's tracks, segment after segment. A hardware encoder comes first where the
// library has it and the probe has seen it work; software takes its place when it cannot be opened, and from
// the next coder on when it has failed in the middle of its work: a coder of another name has another
// description, so that it cannot go on in the same file.
//
// Software coders of H.264 whose pictures come in real time follow the session's effort. Any thread.
class VideoCoders {
 public:
  explicit VideoCoders(EncoderCatalogue catalogue) : catalogue_(std::move(catalogue)) {}
  VideoCoders(const VideoCoders&) = delete;
  VideoCoders& operator=(const VideoCoders&) = delete;

  // Whether there is a coder for settings like these. Asks the probe only where there is no software.
  bool canCode(const VideoSettings& settings) const;
  // May ask the probe. What is made refers to this object. Throws CoderFailure.
  NamedCoder make(const VideoSettings& settings);
  // A coder gave up. Hardware is not used again.
  void failed(const std::string& encoderName);

  SharedEffort& effort() { return effort_; }

 private:
  bool isUsable(const Encoder& encoder) const;
  std::unique_ptr<VideoCoder> make(const Encoder& encoder, const VideoSettings& settings);

  const EncoderCatalogue catalogue_;
  SharedEffort effort_;
  mutable std::mutex mutex_;
  std::set<std::string> failedNames_; // under the mutex
};

} // namespace tessarin::media
