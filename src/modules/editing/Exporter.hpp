#pragma once

#include "ports/MovieEditing.hpp"

namespace tessarin {
class FileSystem;
}

namespace tessarin::editing {

// Makes edited files. No state but the file system, which outlives it; any thread.
class Exporter final : public MovieExporter {
 public:
  explicit Exporter(FileSystem& files) : files_(files) {}

  void run(const MovieExport& movie, const std::function<void(int permille)>& progress,
           std::stop_token stop) override;

 private:
  FileSystem& files_;
};

} // namespace tessarin::editing
