// tessarin-bench-still ROUNDS FOLDER
//
// Takes stills of all displays of the desktop of the environment, part by part, in one process that keeps its
// connection: finds what there is, takes the pixels, encodes them, and writes and renames the files. Beside
// that it copies as many bytes, and has a general library compress the same rows on one core, at its levels 1
// and 2. Prints the medians of the rounds in microseconds, and sizes in bytes:
//
//   discovery, grab, encode, write; copy, library1, library2; size, library1Size, library2Size
//
// one a line with its figure. What is left of `write` is the system's, since the files' bytes are written as
// they are.

#include "backends/png/PngEncoding.hpp"
#include "backends/png/PngRows.hpp"
#include "backends/x11/Discovery.hpp"
#include "backends/x11/StillCapture.hpp"
#include "base/HostClock.hpp"

#include <fcntl.h>
#include <libdeflate.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace {

using namespace tessarin;

// Sums within a round, and the rounds' medians.
class Medians {
 public:
  void beginRound() { ++rounds_; }
  template<class Work> auto time(const char* name, Work work) {
    const auto start = std::chrono::steady_clock::now();
    auto result = work();
    const std::chrono::duration<double, std::micro> elapsed = std::chrono::steady_clock::now() - start;
    add(name, elapsed.count());
    return result;
  }
  void add(const char* name, double value) {
    auto& values = values_[name];
    values.resize(rounds_);
    values.back() += value;
  }

  void print() {
    for (auto& [name, values] : values_) {
      const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
      std::nth_element(values.begin(), middle, values.end());
      std::printf("%s %.0f\n", name.c_str(), *middle);
    }
  }

 private:
  std::size_t rounds_ = 0;
  std::map<std::string, std::vector<double>> values_;
};

std::vector<std::uint8_t> filtered(const PictureView& picture) {
  const std::size_t rowSize =
      1 + static_cast<std::size_t>(picture.width) * png::bytesPerPixel(picture.format);
  std::vector<std::uint8_t> bytes(rowSize * static_cast<std::size_t>(picture.height), 1);
  for (std::size_t row = 0; row < static_cast<std::size_t>(picture.height); ++row)
    png::filterRow(png::sourceRow(picture, row), png::RowFilter::left, bytes.data() + row * rowSize + 1);
  return bytes;
}

std::size_t compressed(const std::vector<std::uint8_t>& bytes, int level, std::vector<std::uint8_t>& into) {
  libdeflate_compressor* const compressor = libdeflate_alloc_compressor(level);
  const std::size_t size =
      libdeflate_zlib_compress(compressor, bytes.data(), bytes.size(), into.data(), into.size());
  libdeflate_free_compressor(compressor);
  return size;
}

// To a name that is not there yet, as the program does it. Yields the bytes written.
std::size_t writeAndRename(const png::EncodedPicture& file, const std::string& path) {
  const std::string pending = path + ".pending";
  const int descriptor = ::open(pending.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  std::size_t size = 0;
  for (const auto part : file.parts) {
    if (::write(descriptor, part.data(), part.size()) != static_cast<ssize_t>(part.size()))
      std::exit(1);
    size += part.size();
  }
  ::close(descriptor);
  if (std::rename(pending.c_str(), path.c_str()) != 0)
    std::exit(1);
  return size;
}

void measure(const Picture& picture, const std::string& path, Medians& medians) {
  const auto file = medians.time("encode", [&] { return png::encode(picture.view); });
  const auto size = medians.time("write", [&] { return writeAndRename(file, path); });
  medians.add("size", static_cast<double>(size));
  ::unlink(path.c_str());

  const auto pixelBytes =
      static_cast<std::size_t>(picture.view.height) * static_cast<std::size_t>(picture.view.stride);
  std::vector<std::uint8_t> target(pixelBytes + pixelBytes / 8 + 4096);
  medians.time("copy", [&] { return std::memcpy(target.data(), picture.view.data, pixelBytes); });
  const auto rows = filtered(picture.view);
  const auto library1 = medians.time("library1", [&] { return compressed(rows, 1, target); });
  const auto library2 = medians.time("library2", [&] { return compressed(rows, 2, target); });
  medians.add("library1Size", static_cast<double>(library1));
  medians.add("library2Size", static_cast<double>(library2));
}

// One display after another, as the program prepares a capture.
void round(DesktopContent& desktop, StillCapturer& stills, const std::string& folder, Medians& medians) {
  medians.beginRound();
  const ShareableContent content = medians.time("discovery", [&] { return desktop.content(); });
  for (const ShareableDisplay& display : content.displays) {
    ContentFilter filter;
    filter.displayID = display.displayID;
    const Picture picture = medians.time("grab", [&] { return stills.captureImage(filter, {}); });
    measure(picture, std::string(folder).append("/bytes"), medians);
  }
}

} // namespace

int main(int count, char** arguments) {
  if (count != 3) {
    std::fputs("usage: tessarin-bench-still ROUNDS FOLDER\n", stderr);
    return 2;
  }
  const MonotonicHostClock clock;
  const auto server = std::make_shared<x11::DisplayServer>();
  const auto desktop = x11::makeDesktopContent(server);
  const auto stills = x11::makeStillCapturer(server, clock);
  Medians warmUp;
  round(*desktop, *stills, arguments[2], warmUp);
  Medians medians;
  for (int i = std::atoi(arguments[1]); i > 0; --i)
    round(*desktop, *stills, arguments[2], medians);
  medians.print();
}
