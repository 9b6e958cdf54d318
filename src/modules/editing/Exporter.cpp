#include "modules/editing/Exporter.hpp"

#include "base/FileSystem.hpp"
#include "base/SafeFile.hpp"
#include "modules/editing/CutExport.hpp"
#include "modules/editing/Transcode.hpp"

#include <algorithm>
#include <exception>
#include <thread>
#include <utility>

namespace tessarin::editing {

namespace {

// Frames are made beside decoding and coding, which have threads of their own.
unsigned frameMakers() {
  return std::clamp(std::thread::hardware_concurrency(), 1U, 8U);
}

} // namespace

void Exporter::run(const MovieExport& movie, const std::function<void(int permille)>& progress,
                   std::stop_token stop) {
  const auto write = [&](auto& work) {
    const auto output = files_.open(movie.outputPath, OpenMode::createExclusive);
    TemporaryFile unfinished(files_, movie.outputPath);
    work.run(*output, progress, std::move(stop));
    syncDirectoryQuietly(files_, directoryOf(movie.outputPath));
    unfinished.keep();
  };
  try {
    if (movie.isPassthrough) {
      CutExport cut(files_, movie);
      write(cut);
    } else {
      Transcode transcode(files_, movie, frameMakers());
      write(transcode);
    }
  } catch (const MovieEditingFailure&) {
    throw;
  } catch (const std::exception&) {
    throw MovieEditingFailure(MovieEditingError::notWritten);
  }
}

} // namespace tessarin::editing
