#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace tessarin {

// Finds out whether a hardware encoder works on this machine, by having a program of its own code pictures
// with it: what a driver breaks there, breaks nothing here. Each encoder is tried once, and only where the
// device that it needs is there. Every method may be called on any thread.
class EncoderProbe {
 public:
  struct Options {
    // Where the program "tessarin-encoder-probe" may lie, in order.
    std::vector<std::string> directories;
    // A try that takes longer is ended and counts as a failure.
    std::chrono::milliseconds timeLimit{3000};
    std::string deviceDirectory = "/dev";
  };

  explicit EncoderProbe(Options options) : options_(std::move(options)) {}
  EncoderProbe(const EncoderProbe&) = delete;
  EncoderProbe& operator=(const EncoderProbe&) = delete;

  // By the encoder's name in the codec library. May take as long as the time limit for the first one who
  // asks; the answer stays the same. No child process is left behind but one that its driver holds fast even
  // when it is killed, for which nobody waits.
  bool works(const std::string& encoderName);

 private:
  bool hasDevice(std::string_view encoderName) const;
  bool runProgram(const std::string& encoderName) const;

  const Options options_;
  std::mutex mutex_;                    // held while an encoder is tried
  std::map<std::string, bool> answers_; // under the mutex
};

} // namespace tessarin
