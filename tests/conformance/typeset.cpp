#include "TypesettingTesting.hpp"
#include "backends/posix/ModuleTypesetter.hpp"

#include <cstdio>

// Sets each text in Helvetica of 28 units, bold, with the fonts that the environment names, and tells how it
// came out: the measures, the picture's place, size and hash.
//
//   tessarin-test-typeset <directory of modules> <text>...
int main(int count, char** arguments) {
  using namespace tessarin;
  if (count < 3)
    return 2;
  ModuleLoader loader({arguments[1]}, [](const std::string& line) { std::puts(line.c_str()); });
  ModuleTypesetter typesetter(loader);
  for (int i = 2; i < count; ++i) {
    try {
      const auto line =
          typesetter.typesetLine(arguments[i], {.family = "Helvetica", .isBold = true, .size = 28});
      const PlacedPicture placed = line->draw(0, 0, 1, Color::gray(1));
      const Ink ink = inkOf(placed);
      std::printf("%.3f %.3f %.3f %.3f | %d %d %d %d | ink=%zu %016llx\n", line->width(), line->ascent(),
                  line->descent(), line->capitalHeight(), placed.x, placed.y, placed.picture.view.width,
                  placed.picture.view.height, ink.pixels, static_cast<unsigned long long>(ink.hash));
    } catch (const TypesettingFailure& failure) {
      std::puts(failure.what());
    }
  }
  return 0;
}
