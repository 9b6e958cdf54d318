#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// NAL units, the packets of H.264 and H.265 streams. No state; any thread.
namespace tessarin::media {

using Bytes = std::vector<std::byte>;

// The units of a byte stream with start codes, without the start codes and what trails. Views into the
// stream.
std::vector<std::span<const std::byte>> splitByteStream(std::span<const std::byte> stream);

// The units of a sample with four-byte lengths, as files carry them. A torn sample yields what is whole.
std::vector<std::span<const std::byte>> splitSample(std::span<const std::byte> sample);
void appendToSample(Bytes& sample, std::span<const std::byte> unit);

// A unit without and with the bytes that keep start codes from appearing inside.
Bytes withoutEmulationPrevention(std::span<const std::byte> unit);
Bytes withEmulationPrevention(std::span<const std::byte> payload);

} // namespace tessarin::media
