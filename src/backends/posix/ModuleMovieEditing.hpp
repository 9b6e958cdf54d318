#pragma once

#include "backends/posix/ModuleLoader.hpp"
#include "ports/MovieEditing.hpp"

#include <memory>
#include <mutex>

namespace tessarin {

class FileSystem;

// Serve looking into media files and making edited ones by the module "editing", which is opened when it is
// first needed. Every operation throws MovieEditingFailure(unavailable) when the module cannot be had; the
// loader has told why. Any thread.
class ModuleMediaAssets final : public MediaAssets {
 public:
  // Both outlive the assets.
  ModuleMediaAssets(ModuleLoader& loader, FileSystem& files) : loader_(loader), files_(files) {}

  MediaAsset asset(const std::string& path) override;
  Picture picture(const std::string& path, MediaTime time) override;
  void decodeSound(const std::string& path, std::size_t audioTrackIndex,
                   const std::function<void(const DecodedSound&)>& handler) override;

 private:
  MediaAssets& assets();

  ModuleLoader& loader_;
  FileSystem& files_;
  std::mutex mutex_;
  std::unique_ptr<MediaAssets> assets_; // made under the mutex, then unchanged
};

class ModuleMovieExporter final : public MovieExporter {
 public:
  // Both outlive the exporter.
  ModuleMovieExporter(ModuleLoader& loader, FileSystem& files) : loader_(loader), files_(files) {}

  void run(const MovieExport& movie, const std::function<void(int permille)>& progress,
           std::stop_token stop) override;

 private:
  MovieExporter& exporter();

  ModuleLoader& loader_;
  FileSystem& files_;
  std::mutex mutex_;
  std::unique_ptr<MovieExporter> exporter_; // made under the mutex, then unchanged
};

} // namespace tessarin
