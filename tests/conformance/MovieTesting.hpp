#pragma once

#include "MediaWriterTesting.hpp"
#include "SoundTesting.hpp"
#include "backends/posix/ModuleMovieEditing.hpp"
#include "base/SafeFile.hpp"
#include "support/FrameCounter.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tessarin {

// Every picture of a painted movie shows its number, upright in the top left corner.
inline constexpr std::int32_t paintedWidth = 320;
inline constexpr std::int32_t paintedHeight = 240;

// A directory with movies that another program has coded, a file layer that may be told to fail, and the real
// module of editing.
class MovieRig {
 public:
  MovieRig();

  // Codes numbered pictures, as the arguments of the other program's output say. `inputs` may bring sound.
  // Yields the path.
  std::string paint(const std::string& name, int pictures, int rate, const std::string& output,
                    const std::string& inputs = "");
  std::string path(const std::string& name) const { return directory_ / name; }
  const TemporaryDirectory& directory() const { return directory_; }

  // The failure of an export; nothing when it went well.
  std::optional<MovieEditingError> run(const MovieExport& movie);

  FaultyFileSystem files;
  ModuleLoader loader;
  ModuleMediaAssets assets{loader, files};
  ModuleMovieExporter exporter{loader, files};

 private:
  TemporaryDirectory directory_;
};

// An input of a sine tone for `paint`.
std::string toneInput(double seconds, int hertz = 1000, int rate = 48000, int channels = 2);

// The numbers that a movie's pictures show, as another program decodes it; -1 where there is none to be read.
// The size is that of the decoded pictures.
std::vector<std::int64_t> numbersIn(const std::string& path, std::int32_t width = paintedWidth,
                                    std::int32_t height = paintedHeight);

// What another program tells of the file: "key=value" lines of the entries asked for.
std::map<std::string, std::string> probed(const std::string& path, const std::string& stream,
                                          const std::string& entries);

// The failure of a call of the port; nothing when it went well.
std::optional<MovieEditingError> editingFailureOf(const std::function<void()>& call);

// One stretch after another from the source, each {start, end} in milliseconds with its rate.
struct Cut {
  std::int64_t start = 0;
  std::int64_t end = 0;
  double rate = 1;
};
MovieComposition compositionOf(const std::string& source, const std::vector<Cut>& cuts);

// Whole crossings of zero upwards in a stretch, by its length: the frequency of a tone, in hertz.
double toneIn(const std::vector<float>& sound, std::int64_t from, std::int64_t to);

} // namespace tessarin
