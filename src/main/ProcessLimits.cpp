#include "main/ProcessLimits.hpp"

#include <sys/resource.h>

#include <algorithm>
#include <csignal>

namespace tessarin::processLimits {

namespace {

constexpr rlim_t manyFiles = 16'384;

} // namespace

void allowManyFiles() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
    return;
  const rlim_t wanted = std::min(limit.rlim_max, manyFiles);
  if (limit.rlim_cur >= wanted)
    return;
  limit.rlim_cur = wanted;
  (void)::setrlimit(RLIMIT_NOFILE, &limit); // as it was, if not
}

void failBeyondLargestFile() {
  std::signal(SIGXFSZ, SIG_IGN);
}

} // namespace tessarin::processLimits
