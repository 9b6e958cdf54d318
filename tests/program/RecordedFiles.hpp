#pragma once

#include <cstdint>
#include <string>
#include <vector>

// What a recording has left on the disk, read without the program's own code for it.
namespace tessarin {

struct ManifestSegment {
  std::string path;
  std::int64_t durationMs = 0;
  std::int64_t sizeBytes = 0;
};

// Of a session's manifest; nothing where there is none. Throws when it is not whole.
std::vector<ManifestSegment> manifestSegments(const std::string& session);

// The times of the first video track's coded pictures, in the order of the file, in seconds. Throws
// std::runtime_error when the file cannot be read without a complaint.
std::vector<double> pictureTimes(const std::string& path);

// Decodes the first video track whole; the number of its pictures. Throws as above.
int decodedPictures(const std::string& path);

} // namespace tessarin
