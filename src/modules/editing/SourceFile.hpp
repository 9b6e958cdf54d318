#pragma once

#include "base/FileSystem.hpp"
#include "container/Movie.hpp"
#include "ports/MovieEditing.hpp"

#include <memory>
#include <string>

struct AVPacket;

namespace tessarin::editing {

// A media file that is read: its index, and the coded samples that the index tells of. Everything lies in the
// one file; an index that names another one is refused. Any thread.
class SourceFile {
 public:
  // Throws MovieEditingFailure: unreadable, also for an index that points outside the file; notComposable for
  // an index of a form that is not read here.
  SourceFile(FileSystem& files, const std::string& path);

  const container::Movie& movie() const { return movie_; }
  // For copies of what is coded.
  const OpenFile& file() const { return *file_; }
  // The first picture track. Throws MovieEditingFailure when there is none.
  const container::Track& video() const;
  // By its place among the tracks of sound. Throws MovieEditingFailure when there is none.
  const container::Track& sound(std::size_t index) const;

  // Makes the packet hold a sample's bytes, with its times in the units of its track, before the edit. Throws
  // MovieEditingFailure when the file has become shorter.
  void load(AVPacket& packet, const container::Sample& sample) const;

 private:
  std::unique_ptr<OpenFile> file_;
  container::Movie movie_;
};

// A time of the file's time line as one of the track's media, in units of the track, rounded down; and back.
std::int64_t mediaTimeOf(const container::Track& track, std::int64_t fileTime);
std::int64_t fileTimeOf(const container::Track& track, std::int64_t mediaTime);

} // namespace tessarin::editing
