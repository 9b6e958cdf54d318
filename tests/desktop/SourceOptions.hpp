#pragma once

#include "support/CameraPicture.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The arguments of tessarin-test-source: what it is ("microphone", "camera" or "player"), then options.
namespace tessarin::source {

enum class Kind { microphone, camera, player };
enum class SampleFormat { u8, s16, s32, f32 };

// One way in which a camera can deliver.
struct CameraOffer {
  std::optional<camera::RawFormat> format; // nothing is MJPEG
  int width = 640;
  int height = 480;
  int frameRate = 30;
};

struct Options {
  Kind kind = Kind::microphone;
  std::string name;        // --name NAME: node.name
  std::string description; // --description TEXT: node.description

  int rate = 48000;                        // --rate HZ
  int channels = 2;                        // --channels N
  SampleFormat format = SampleFormat::f32; // --format u8|s16|s32|f32
  double frequency = 440;                  // --frequency HZ, of the tone
  double amplitude = 0;                    // --amplitude A, of full scale 1; 0 is silence
  double beepLength = 0.1;                 // --beep-length SECONDS

  // --offer FORMAT,WxH,FPS, again for every other; yuy2|uyvy|nv12|i420|bgrx|rgbx|rgb|gray8|mjpg
  std::vector<CameraOffer> offers;
  camera::ColourRules rules; // --bt709, --full-range
  bool tellsRules = false;   // --tell-rules: in the format, where they are left out otherwise
  bool hasHeader = true;     // --no-header: frames without a time of their own
  bool hasPlanes = false;    // --planes: a memory block for each plane
  int padding = 0;           // --padding BYTES at the end of each row
  int offset = 0;            // --offset BYTES before the picture
};

// Throws std::runtime_error with a sentence.
Options parseOptions(const std::vector<std::string>& arguments);
CameraOffer parseOffer(const std::string& text);

} // namespace tessarin::source
