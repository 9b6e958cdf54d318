#pragma once

#include "ports/MovieEditing.hpp"

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tessarin {

// Files that a test makes up. Set up before it is used; then any thread.
class ScriptedMediaAssets final : public MediaAssets {
 public:
  struct Sound {
    std::vector<float> samples;
    MediaTime start;
  };
  struct File {
    MediaAsset asset;
    std::vector<std::vector<Sound>> sounds{}; // for each audio track
    bool soundBreaks = false;                 // behind the last stretch
  };

  std::map<std::string, File> files;
  // What a picture shows: a width in pixels, by the time asked for; nothing fails.
  std::function<std::optional<std::int32_t>(MediaTime)> pictureWidth = [](MediaTime) { return 1; };

  MediaAsset asset(const std::string& path) override { return fileAt(path).asset; }

  Picture picture(const std::string& path, MediaTime time) override {
    (void)fileAt(path);
    {
      const std::lock_guard lock(mutex_);
      pictureTimes_.push_back(time);
    }
    const std::optional<std::int32_t> width = pictureWidth(time);
    if (!width)
      throw MovieEditingFailure(MovieEditingError::unreadable);
    const auto pixels = std::make_shared<std::vector<std::uint8_t>>(static_cast<std::size_t>(*width) * 4);
    return {{pixels->data(), *width, 1, *width * 4, PixelFormat::bgrx8}, pixels};
  }

  void decodeSound(const std::string& path, std::size_t audioTrackIndex,
                   const std::function<void(const DecodedSound&)>& handler) override {
    const File& file = fileAt(path);
    if (audioTrackIndex < file.sounds.size())
      for (const Sound& sound : file.sounds[audioTrackIndex])
        handler({sound.samples, sound.start});
    if (file.soundBreaks)
      throw MovieEditingFailure(MovieEditingError::unreadable);
  }

  std::vector<MediaTime> pictureTimes() const {
    const std::lock_guard lock(mutex_);
    return pictureTimes_;
  }

 private:
  const File& fileAt(const std::string& path) const {
    const auto found = files.find(path);
    if (found == files.end())
      throw MovieEditingFailure(MovieEditingError::unreadable);
    return found->second;
  }

  mutable std::mutex mutex_;
  std::vector<MediaTime> pictureTimes_; // guarded by mutex_
};

// Remembers what it was asked to make, and makes of it what a test says.
class ScriptedMovieExporter final : public MovieExporter {
 public:
  std::vector<MovieExport> movies;
  bool wasToldToStop = false; // when it was asked last
  // Stands for the work.
  std::function<void(const MovieExport&, const std::function<void(int)>& progress)> work =
      [](const MovieExport&, const std::function<void(int)>&) {};

  void run(const MovieExport& movie, const std::function<void(int)>& progress,
           std::stop_token stop) override {
    movies.push_back(movie);
    wasToldToStop = stop.stop_requested();
    work(movie, progress);
  }
};

} // namespace tessarin
