// tessarin-test-source: a microphone, a camera or a player for tests, benchmarks and the demo.
//
// It is a node of the server of sound and cameras that the environment names; ending it is unplugging it.
// Says "ready" on standard output when the node is there, carries out the commands that come on standard
// input, and ends when its input ends or the server goes.

#include "SourceCamera.hpp"
#include "SourceOptions.hpp"
#include "SourceServer.hpp"
#include "SourceSound.hpp"

#include <cstdio>
#include <exception>

int main(int count, char** arguments) {
  using namespace tessarin::source;
  try {
    const auto options = parseOptions({arguments + 1, arguments + count});
    Server server;
    if (options.kind == Kind::camera) {
      CameraSource camera(server, options);
      server.run([&](const std::string& line) { camera.carryOut(line); });
    } else {
      SoundSource sound(server, options);
      server.run([&](const std::string& line) { sound.carryOut(line); });
    }
    return 0;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "tessarin-test-source: %s\n", failure.what());
    return 1;
  }
}
