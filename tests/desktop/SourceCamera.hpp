#pragma once

#include "SourceOptions.hpp"
#include "SourceServer.hpp"

#include <pipewire/stream.h>
#include <spa/pod/builder.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tessarin::source {

// A camera that shows eight bars and a frame counter, at its own pace while somebody looks.
//
// Commands, answered by "done": "stall" (no more frames), "resume"; "short" and "garbage" (from now on frames
// that end in the middle, or that are noise), "good"; "offer FORMAT,WxH,FPS" (delivers like this from now
// on).
class CameraSource {
 public:
  CameraSource(Server& server, const Options& options);
  ~CameraSource();
  CameraSource(const CameraSource&) = delete;
  CameraSource& operator=(const CameraSource&) = delete;

  void carryOut(const std::string& line);

 private:
  enum class Health { good, shortened, garbage };

  std::vector<const spa_pod*> buildFormats(spa_pod_builder& builder) const;
  void connect();
  void setState(pw_stream_state state);
  void setFormat(const spa_pod* format);
  void sendBufferParameters();
  void setTimer(bool isOn);
  void process();
  void writeFrame(pw_buffer& buffer);
  std::vector<std::uint8_t> nextFrame();
  std::vector<std::uint32_t> planeSizes() const;

  Server& server_;
  Options options_;
  pw_stream* stream_ = nullptr;
  spa_hook listener_{};
  pw_stream_events events_{};
  spa_source* timer_ = nullptr;
  bool isReady_ = false;
  bool isStreaming_ = false;
  bool isStalled_ = false;
  Health health_ = Health::good;
  CameraOffer current_;
  camera::RawPicture picture_;
  std::uint32_t frame_ = 0;
};

} // namespace tessarin::source
