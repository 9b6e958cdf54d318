#include "RecordedFiles.hpp"

#include "base/JsonDocument.hpp"
#include "support/PrivateDesktop.hpp"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace tessarin {

namespace {

// Lines of what the tool says of the first video track. Complaints go to the same place, as lines that are
// no numbers.
std::vector<std::string> probed(const std::string& path, const std::vector<std::string>& question) {
  std::vector<std::string> arguments = {"sh",  "-c",     R"(exec ffprobe "$@" 2>&1)", "ffprobe",
                                        "-v",  "error",  "-select_streams",           "v:0",
                                        "-of", "csv=p=0"};
  arguments.insert(arguments.end(), question.begin(), question.end());
  arguments.push_back(path);
  ChildProcess tool(arguments, {});
  std::vector<std::string> lines;
  while (const auto line = tool.readLine(std::chrono::seconds(20)))
    lines.push_back(*line);
  if (tool.waitForEnd() != 0 || lines.empty())
    throw std::runtime_error(path + " cannot be read" + (lines.empty() ? "" : ": " + lines.front()));
  return lines;
}

} // namespace

std::vector<ManifestSegment> manifestSegments(const std::string& session) {
  const std::string path = session + "/native-manifest.json";
  if (!std::filesystem::exists(path))
    return {};
  std::ifstream file(path);
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  const json::Document manifest(text);
  const json::Value entries = *manifest.root().member("segments");
  std::vector<ManifestSegment> segments;
  for (std::size_t i = 0; i < entries.arraySize(); ++i) {
    const json::Value entry = entries.at(i);
    segments.push_back({entry.member("path")->string(),
                        static_cast<std::int64_t>(entry.member("durationMs")->number()),
                        static_cast<std::int64_t>(entry.member("sizeBytes")->number())});
  }
  return segments;
}

std::vector<double> pictureTimes(const std::string& path) {
  std::vector<double> times;
  for (const std::string& line : probed(path, {"-show_entries", "packet=pts_time"}))
    times.push_back(std::stod(line));
  return times;
}

int decodedPictures(const std::string& path) {
  const auto lines = probed(path, {"-count_frames", "-show_entries", "stream=nb_read_frames"});
  if (lines.size() != 1)
    throw std::runtime_error(path + ": " + lines.front());
  return std::stoi(lines.front());
}

} // namespace tessarin
