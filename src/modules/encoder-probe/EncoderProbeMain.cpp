#include "modules/media/EncoderCheck.hpp"

#include <unistd.h>

// Codes a few pictures with the encoder named by the one argument and exits with 0 when they came out right.
// A process of its own, because a driver may crash or hang on it.
int main(int argc, char** argv) {
  // The one who asks waits less long. This is for one that has died meanwhile.
  constexpr unsigned longestSeconds = 20;
  alarm(longestSeconds);
  if (argc != 2)
    return 2;
  return tessarin::media::encodesRightly(tessarin::media::libraryEncoders(nullptr), argv[1]) ? 0 : 1;
}
