// Preloaded into a program, moves its wall clock by the whole seconds that the file named by
// TESSARIN_TEST_WALL_CLOCK holds at the moment of each reading, as somebody who sets the clock does. Clocks
// that nobody can set stay as they are.

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

namespace {

time_t offset() {
  const char* const path = std::getenv("TESSARIN_TEST_WALL_CLOCK");
  const int file = path ? open(path, O_RDONLY | O_CLOEXEC) : -1;
  if (file < 0) {
    return 0;
  }
  char text[32] = {};
  const auto count = read(file, text, sizeof text - 1);
  close(file);
  return count > 0 ? std::strtol(text, nullptr, 10) : 0;
}

} // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* result) noexcept {
  const auto status = static_cast<int>(syscall(SYS_clock_gettime, clock, result));
  if (status == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE || clock == CLOCK_TAI)) {
    result->tv_sec += offset();
  }
  return status;
}

int gettimeofday(timeval* result, void* /*zone*/) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  *result = {now.tv_sec, now.tv_nsec / 1000};
  return 0;
}

time_t time(time_t* result) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  if (result) {
    *result = now.tv_sec;
  }
  return now.tv_sec;
}
}
