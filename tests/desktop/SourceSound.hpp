#pragma once

#include "SourceOptions.hpp"
#include "SourceServer.hpp"

#include <pipewire/stream.h>

#include <atomic>
#include <cstdint>
#include <string>

namespace tessarin::source {

// A microphone that hears a tone and beeps, or a player of them on the default output.
//
// Commands: "hold" (hands nothing over, which the server makes silence of), "release", "amplitude A" (of the
// tone); "beep T" plays a beep whose first sample is heard at T nanoseconds on the monotonic clock, or at
// once when that has passed, and is answered by "beeps T" with the moment as it was; the others by "done".
class SoundSource {
 public:
  SoundSource(Server& server, const Options& options);
  ~SoundSource();
  SoundSource(const SoundSource&) = delete;
  SoundSource& operator=(const SoundSource&) = delete;

  void carryOut(const std::string& line);

 private:
  void connect();
  void setState(pw_stream_state state);
  void process();
  std::int64_t timeOfFirstFrame(const pw_time& time, std::uint32_t frames) const;
  void fill(std::uint8_t* data, std::uint32_t frames, std::int64_t firstTime);
  void put(std::uint8_t* place, double value) const;

  Server& server_;
  const Options options_;
  const int sampleSize_;
  pw_stream* stream_ = nullptr;
  spa_hook listener_{};
  pw_stream_events events_{};
  spa_source* beepEvent_ = nullptr;
  bool isReady_ = false;

  // Between the main loop and the thread that makes the sound.
  std::atomic<bool> isHolding_ = false;
  std::atomic<double> amplitude_;
  std::atomic<std::int64_t> beepAt_ = -1; // asked for; -1 when there is nothing to play
  std::atomic<std::int64_t> beepsAt_ = -1;

  // On the thread that makes the sound.
  std::uint64_t framesMade_ = 0;
  std::int64_t beepFramesLeft_ = 0;
  std::int64_t beepFrame_ = 0;
};

} // namespace tessarin::source
