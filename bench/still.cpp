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

class Medians {
 public:
  template<class Work> auto time(const char* name, Work work) {
    const auto start = std::chrono::steady_clock::now();
    auto result = work();
    const std::chrono::duration<double, std::micro> elapsed = std::chrono::steady_clock::now() - start;
    add(name, elapsed.count());
    return result;
  }
  void add(const char* name, double value) { values_[name].push_back(value); }

  void print() {
    for (auto& [name, values] : values_) {
      const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
      std::nth_element(values.begin(), middle, values.end());
      std::printf("%s %.0f\n", name.c_str(), *middle);
    }
  }

 private:
  std::map<std::string, std::vector<double>> values_;
};

std::vector<Picture> grab(StillCapturer& stills, const ShareableContent& content) {
  std::vector<Picture> pictures;
  pictures.reserve(content.displays.size());
  for (const ShareableDisplay& display : content.displays)
    pictures.push_back(stills.captureImage({.kind = ContentFilter::Kind::display,
                                            .displayID = display.displayID,
                                            .windowID = 0,
                                            .excludedApplications = {}},
                                           {}));
  return pictures;
}

std::vector<std::uint8_t> filtered(const PictureView& picture) {
  const std::size_t rowSize =
      1 + static_cast<std::size_t>(picture.width) * png::bytesPerPixel(picture.format);
  std::vector<std::uint8_t> bytes(rowSize * static_cast<std::size_t>(picture.height), 1);
  for (std::size_t row = 0; row < static_cast<std::size_t>(picture.height); ++row)
    png::filterRow(png::sourceRow(picture, row), png::RowFilter::left, bytes.data() + row * rowSize + 1);
  return bytes;
}

std::size_t compressed(const std::vector<std::vector<std::uint8_t>>& pictures, int level,
                       std::vector<std::uint8_t>& into) {
  libdeflate_compressor* const compressor = libdeflate_alloc_compressor(level);
  std::size_t size = 0;
  for (const auto& bytes : pictures)
    size += libdeflate_zlib_compress(compressor, bytes.data(), bytes.size(), into.data(), into.size());
  libdeflate_free_compressor(compressor);
  return size;
}

bool writeAndRename(const std::vector<png::EncodedPicture>& files, const std::string& folder) {
  for (std::size_t i = 0; i < files.size(); ++i) {
    const std::string name = std::string(folder).append("/bytes").append(std::to_string(i));
    const std::string pending = name + ".pending";
    const int descriptor = ::open(pending.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    for (const auto part : files[i].parts)
      if (::write(descriptor, part.data(), part.size()) != static_cast<ssize_t>(part.size()))
        std::exit(1);
    ::close(descriptor);
    if (std::rename(pending.c_str(), name.c_str()) != 0)
      std::exit(1);
  }
  return true;
}

void round(DesktopContent& desktop, StillCapturer& stills, const std::string& folder, Medians& medians) {
  const ShareableContent content = medians.time("discovery", [&] { return desktop.content(); });
  const std::vector<Picture> pictures = medians.time("grab", [&] { return grab(stills, content); });
  std::vector<png::EncodedPicture> files;
  files.reserve(pictures.size());
  medians.time("encode", [&] {
    for (const Picture& picture : pictures)
      files.push_back(png::encode(picture.view));
    return true;
  });
  std::size_t size = 0;
  std::size_t pixelBytes = 0;
  std::vector<std::vector<std::uint8_t>> rows;
  rows.reserve(pictures.size());
  for (std::size_t i = 0; i < pictures.size(); ++i) {
    for (const auto part : files[i].parts)
      size += part.size();
    pixelBytes +=
        static_cast<std::size_t>(pictures[i].view.height) * static_cast<std::size_t>(pictures[i].view.stride);
    rows.push_back(filtered(pictures[i].view));
  }
  medians.time("write", [&] { return writeAndRename(files, folder); });

  std::vector<std::uint8_t> target(pixelBytes + (pixelBytes >> 3) + 4096);
  medians.time("copy", [&] {
    std::uint8_t* next = target.data();
    for (const Picture& picture : pictures) {
      const auto count =
          static_cast<std::size_t>(picture.view.height) * static_cast<std::size_t>(picture.view.stride);
      std::memcpy(next, picture.view.data, count);
      next += count;
    }
    return next;
  });
  medians.add("library1Size",
              static_cast<double>(medians.time("library1", [&] { return compressed(rows, 1, target); })));
  medians.add("library2Size",
              static_cast<double>(medians.time("library2", [&] { return compressed(rows, 2, target); })));
  medians.add("size", static_cast<double>(size));
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
