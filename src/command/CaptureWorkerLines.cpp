#include "command/CaptureWorkerLines.hpp"

#include "base/Failure.hpp"

#include <algorithm>
#include <utility>

namespace tessarin {

std::optional<std::string> CaptureWorkerLines::take(std::string_view& bytes) {
  const std::size_t end = std::min(bytes.find('\n'), bytes.size());
  if (end > longest - line_.size())
    fail(CaptureWorkerLineError::tooLong);
  line_.append(bytes.substr(0, end));
  const bool isWhole = end < bytes.size();
  bytes.remove_prefix(isWhole ? end + 1 : end);
  if (!isWhole)
    return std::nullopt;
  if (line_.empty())
    fail(CaptureWorkerLineError::empty);
  return std::exchange(line_, {});
}

} // namespace tessarin
