#include "MovieTesting.hpp"

#include <cmath>
#include <fstream>
#include <sstream>

namespace tessarin {

MovieRig::MovieRig()
    : files(machineFileSystem()), loader({TESSARIN_MODULE_DIRECTORY}, [](const std::string&) {}) {}

std::string MovieRig::paint(const std::string& name, int pictures, int rate, const std::string& output,
                            const std::string& inputs) {
  const std::string raw = path(name + ".raw");
  {
    std::ofstream stream(raw, std::ios::binary);
    Painting painting(paintedWidth, paintedHeight);
    for (int number = 0; number < pictures; ++number) {
      const auto shade = static_cast<std::uint8_t>(60 + number * 7 % 120);
      painting.fill({shade, 120, 200});
      for (int block = 0; block < frameCounter::columns * frameCounter::rows; ++block) {
        const std::uint8_t value = frameCounter::isWhite(static_cast<std::uint32_t>(number), block) ? 255 : 0;
        painting.fill(block % frameCounter::columns * frameCounter::blockSize,
                      block / frameCounter::columns * frameCounter::blockSize, frameCounter::blockSize,
                      frameCounter::blockSize, {value, value, value});
      }
      stream.write(reinterpret_cast<const char*>(painting.view().data),
                   std::streamsize{paintedWidth} * paintedHeight * 4);
    }
  }
  std::ostringstream command;
  command << "ffmpeg -v error -nostdin -y -f rawvideo -pix_fmt bgr0 -s " << paintedWidth << 'x'
          << paintedHeight << " -r " << rate << " -i '" << raw << "' " << inputs << " " << output << " '"
          << path(name) << "'";
  outputOf(command.str());
  return path(name);
}

std::optional<MovieEditingError> MovieRig::run(const MovieExport& movie) {
  return editingFailureOf([&] { exporter.run(movie, [](int) {}, {}); });
}

std::string toneInput(double seconds, int hertz, int rate, int channels) {
  std::ostringstream wave;
  wave << "0.5*sin(2*PI*" << hertz << "*t)";
  std::ostringstream input;
  input << "-f lavfi -i \"aevalsrc=" << wave.str() << (channels == 2 ? "|" + wave.str() : "") << ":s=" << rate
        << ":d=" << seconds << "\"";
  return input.str();
}

std::vector<std::int64_t> numbersIn(const std::string& path, std::int32_t width, std::int32_t height) {
  const std::string pixels =
      outputOf("ffmpeg -v error -nostdin -i '" + path +
               "' -map 0:v:0 -fps_mode passthrough -enc_time_base -1 -f rawvideo -pix_fmt bgr0 -");
  const std::size_t size = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4;
  std::vector<std::int64_t> numbers;
  for (std::size_t at = 0; at + size <= pixels.size(); at += size) {
    const PictureView view{reinterpret_cast<const std::uint8_t*>(pixels.data()) + at, width, height,
                           width * 4, PixelFormat::bgrx8};
    const auto number = frameCounter::read(view);
    numbers.push_back(number ? std::int64_t{*number} : -1);
  }
  return numbers;
}

std::map<std::string, std::string> probed(const std::string& path, const std::string& stream,
                                          const std::string& entries) {
  std::istringstream lines(outputOf("ffprobe -v error " +
                                    (stream.empty() ? "" : "-select_streams " + stream) + " -show_entries " +
                                    entries + " -of default=nw=1 '" + path + "'"));
  std::map<std::string, std::string> values;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t equals = line.find('=');
    if (equals != std::string::npos)
      values[line.substr(0, equals)] = line.substr(equals + 1);
  }
  return values;
}

std::optional<MovieEditingError> editingFailureOf(const std::function<void()>& call) {
  try {
    call();
    return std::nullopt;
  } catch (const MovieEditingFailure& failure) {
    return failure.error();
  }
}

MovieComposition compositionOf(const std::string& source, const std::vector<Cut>& cuts) {
  MovieComposition composition;
  composition.sourcePath = source;
  std::int64_t cursor = 0;
  for (const Cut& cut : cuts) {
    const std::int64_t length = std::llround(static_cast<double>(cut.end - cut.start) / cut.rate);
    composition.segments.push_back(
        {{MediaTime::milliseconds(cut.start), MediaTime::milliseconds(cut.end - cut.start)},
         {MediaTime::milliseconds(cursor), MediaTime::milliseconds(length)}});
    cursor += length;
  }
  return composition;
}

double toneIn(const std::vector<float>& sound, std::int64_t from, std::int64_t to) {
  std::int64_t first = -1;
  std::int64_t last = -1;
  int waves = -1;
  for (std::int64_t i = from + 1; i < to && i < std::ssize(sound); ++i) {
    if (sound[static_cast<std::size_t>(i - 1)] < 0 && sound[static_cast<std::size_t>(i)] >= 0) {
      first = first < 0 ? i : first;
      last = i;
      ++waves;
    }
  }
  return waves < 1 ? 0 : 48000.0 * waves / static_cast<double>(last - first);
}

} // namespace tessarin
