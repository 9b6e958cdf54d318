#pragma once

#include "modules/media/NalUnits.hpp"

#include <cstdint>
#include <optional>
#include <span>

// As much of H.264 syntax (ITU-T H.264, 7.3) as it takes to number pictures and to write one that repeats
// the picture before it. No state; any thread.
namespace tessarin::media::h264 {

enum class UnitType : std::uint8_t { slice = 1, idrSlice = 5, information = 6, sequence = 7, picture = 8 };

UnitType typeOf(std::span<const std::byte> unit);
// Whether other pictures may be predicted from this one.
bool isReference(std::span<const std::byte> unit);

// What the parameter sets of a stream say, as far as it is needed here.
struct ParameterSets {
  std::uint32_t pictureParameterSetId = 0;
  int frameNumberBits = 4;
  std::uint32_t macroblocks = 0; // in a picture
  std::int32_t initialQuantizer = 26;
  bool hasDeblockingControl = false;
};

// Nothing unless the stream is progressive 4:2:0, orders its pictures as they are coded (picture order
// count type 2), is arithmetically coded, and uses no slice groups, weighted prediction or redundant
// pictures.
std::optional<ParameterSets> parseParameterSets(std::span<const std::byte> sequence,
                                                std::span<const std::byte> picture);

// The slice with another frame_num; nothing when its header cannot be read.
std::optional<Bytes> withFrameNumber(std::span<const std::byte> slice, const ParameterSets& parameters,
                                     std::uint32_t frameNumber);

// frame_num of a slice; nothing when its header cannot be read.
std::optional<std::uint32_t> frameNumberOf(std::span<const std::byte> slice, const ParameterSets& parameters);

// A whole reference picture of one P slice in which every macroblock is skipped: decoded, it is the picture
// before it, bit by bit.
Bytes repeatedPicture(const ParameterSets& parameters, std::uint32_t frameNumber);

} // namespace tessarin::media::h264
