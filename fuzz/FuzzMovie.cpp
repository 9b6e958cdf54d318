#include "Fuzz.hpp"
#include "MemoryFile.hpp"
#include "container/Movie.hpp"

using namespace tessarin;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::MemoryFile file(std::as_bytes(std::span(data, size)));
  try {
    const container::Movie movie = container::readMovie(file);
    fuzz::require(movie.usableBytes <= size, "no more is usable than there is");
    for (const container::Track& track : movie.tracks) {
      fuzz::require(track.timescale > 0, "a timescale is positive");
      fuzz::require(!track.descriptions.empty(), "a track has a description");
      for (const container::Sample& sample : track.samples)
        fuzz::require(sample.offset <= movie.usableBytes && sample.size <= movie.usableBytes - sample.offset,
                      "a sample lies inside the file");
    }
  } catch (const container::ContainerFailure&) {
    // Refused, as most inputs are.
  }
  return 0;
}
