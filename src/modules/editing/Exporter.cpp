#include "modules/editing/Exporter.hpp"

#include "base/FileSystem.hpp"

namespace tessarin::editing {

void Exporter::run(const MovieExport& movie, const std::function<void(int permille)>& progress,
                   std::stop_token stop) {
  static_cast<void>(movie);
  static_cast<void>(progress);
  static_cast<void>(stop);
  static_cast<void>(files_);
  throw MovieEditingFailure(MovieEditingError::unavailable);
}

} // namespace tessarin::editing
