#include "MediaWriterTesting.hpp"

#include <array>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <future>
#include <mutex>
#include <random>
#include <stdexcept>
#include <sys/wait.h>

// The HEVC library is not built for the sanitizers: they cannot see how its threads agree, and it keeps some
// memory of each of its coders.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions() {
  return "race:libx265.so\n";
}
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
  return "leak:libx265.so\n";
}

namespace tessarin {

void Painting::fill(std::int32_t x, std::int32_t y, std::int32_t width, std::int32_t height, Color color) {
  for (std::int32_t row = y; row < y + height; ++row)
    for (std::int32_t column = x; column < x + width; ++column) {
      std::uint8_t* pixel = bytes_.data() + (std::ptrdiff_t{row} * width_ + column) * 4;
      pixel[0] = color.blue;
      pixel[1] = color.green;
      pixel[2] = color.red;
    }
}

void Painting::scatter(unsigned number) {
  std::minstd_rand random(number + 1);
  for (std::uint8_t& byte : bytes_)
    byte = static_cast<std::uint8_t>(random() >> 7);
}

std::string outputOf(const std::string& command) {
  FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr)
    throw std::runtime_error("no pipe");
  std::string output;
  std::array<char, 65536> part;
  while (const std::size_t size = std::fread(part.data(), 1, part.size(), pipe))
    output.append(part.data(), size);
  const int status = pclose(pipe);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    throw std::runtime_error(command + ": " + output.substr(0, 500));
  return output;
}

MediaModuleRig::MediaModuleRig()
    : files(machineFileSystem()), loader_({TESSARIN_MODULE_DIRECTORY}, [](const std::string&) {}),
      factory_(loader_, files) {}

std::unique_ptr<MediaFileWriter> MediaModuleRig::makeWriter(const std::string& name) {
  options.path = path(name);
  return factory_.makeWriter(options);
}

container::Movie MediaModuleRig::movie(const std::string& name) const {
  return container::readMovie(*machineFileSystem().open(path(name), OpenMode::read));
}

bool MediaModuleRig::has(const std::string& name) const {
  return std::filesystem::exists(path(name));
}

bool waitUntilReady(MediaFileWriter& writer, MediaInput& input) {
  std::mutex mutex;
  std::condition_variable changed;
  bool hasChanged = false;
  const auto observation = input.observeReadiness([&] {
    const std::lock_guard lock(mutex);
    hasChanged = true;
    changed.notify_one();
  });
  while (!input.isReadyForMoreMediaData()) {
    if (writer.status() != MediaWriterStatus::writing)
      return false;
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return hasChanged; });
    hasChanged = false;
  }
  return true;
}

bool appendPatiently(MediaFileWriter& writer, VideoInput& input,
                     const std::shared_ptr<const CodablePicture>& picture, MediaTime time) {
  return waitUntilReady(writer, input) && input.append(picture, time);
}

void finish(MediaFileWriter& writer) {
  std::promise<void> done;
  writer.finishWriting([&] { done.set_value(); });
  done.get_future().wait();
}

VideoSettings smallVideo() {
  return {.codec = RecordingCodec::h264,
          .width = 128,
          .height = 96,
          .averageBitRate = 500'000,
          .expectedFrameRate = 10,
          .maximumKeyFrameInterval = 10,
          .expectsMediaDataInRealTime = false};
}

} // namespace tessarin
