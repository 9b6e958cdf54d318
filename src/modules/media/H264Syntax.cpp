#include "modules/media/H264Syntax.hpp"

#include "modules/media/BitStream.hpp"

#include <algorithm>

namespace tessarin::media::h264 {

namespace {

// Profiles whose sequence parameter sets tell the chroma format.
bool tellsChromaFormat(std::uint32_t profile) {
  constexpr std::uint32_t profiles[] = {100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134, 135};
  return std::find(std::begin(profiles), std::end(profiles), profile) != std::end(profiles);
}

struct Sequence {
  std::uint32_t id = 0;
  int frameNumberBits = 0;
  std::uint32_t macroblocks = 0;
};

std::optional<Sequence> parseSequence(std::span<const std::byte> unit) {
  const Bytes payload = withoutEmulationPrevention(unit);
  BitReader reader(payload);
  reader.bits(8);
  const std::uint32_t profile = reader.bits(8);
  reader.bits(16);
  Sequence sequence;
  sequence.id = reader.ue();
  if (tellsChromaFormat(profile)) {
    const bool is420 = reader.ue() == 1;
    const bool is8Bit = reader.ue() == 0 && reader.ue() == 0;
    reader.flag(); // lossless transform bypass
    const bool hasScaling = reader.flag();
    if (!is420 || !is8Bit || hasScaling)
      return std::nullopt;
  }
  sequence.frameNumberBits = static_cast<int>(reader.ue()) + 4;
  const bool isCodedInOrder = reader.ue() == 2;
  const bool hasOneReference = reader.ue() == 1;
  reader.flag(); // gaps in frame_num
  const std::uint32_t width = reader.ue() + 1;
  const std::uint32_t height = reader.ue() + 1;
  const bool isProgressive = reader.flag();
  if (reader.isBeyondEnd() || !isCodedInOrder || !hasOneReference || !isProgressive ||
      sequence.frameNumberBits > 16 || width > 4096 || height > 4096)
    return std::nullopt;
  sequence.macroblocks = width * height;
  return sequence;
}

// Where frame_num stands in the bits of a slice whose prefix has been read.
std::optional<std::size_t> frameNumberPosition(std::span<const std::byte> payload) {
  BitReader reader(payload);
  reader.bits(8); // unit header
  reader.ue();    // first macroblock
  reader.ue();    // slice type
  reader.ue();    // picture parameter set
  const std::size_t position = reader.position();
  if (position + 16 > payload.size() * 8)
    return std::nullopt;
  return position;
}

// The end of an arithmetically coded slice (9.3.4) that says one thing over and over: this macroblock is
// skipped, and the slice goes on. Since its first macroblock is skipped, every one is coded with the first
// of the contexts for skipping (ctxIdx 11), and always by its more probable value.
class SkipRunEncoder {
 public:
  void skippedMacroblock() {
    const unsigned lessProbable = rangeOfLessProbable[state_ - firstState][range_ >> 6 & 3];
    range_ -= lessProbable;
    state_ = std::min(state_ + 1, lastState);
    renormalize();
  }

  void endOfSlice(bool isEnd) {
    range_ -= 2;
    if (!isEnd) {
      renormalize();
      return;
    }
    low_ += range_;
    range_ = 2;
    renormalize();
    put(low_ >> 9 & 1);
    bits_.bits((low_ >> 7 & 3) | 1, 2); // the last bit is the stop bit of the unit
  }

  const BitWriter& bits() const { return bits_; }

  // The highest quantizer starts the context in the state that costs least: with cabac_init_idc 0 that is
  // ((23 * 51) >> 4) + 33 - 64.
  static constexpr std::int32_t quantizer = 51;

 private:
  static constexpr unsigned firstState = ((23 * quantizer) >> 4) + 33 - 64;
  static constexpr unsigned lastState = 62;
  // Table 9-44 from the first state on.
  static constexpr unsigned char rangeOfLessProbable[lastState - firstState + 1][4] = {
      {16, 20, 23, 27}, {15, 19, 22, 25}, {14, 18, 21, 24}, {14, 17, 20, 23}, {13, 16, 19, 22},
      {12, 15, 18, 21}, {12, 14, 17, 20}, {11, 14, 16, 19}, {11, 13, 15, 18}, {10, 12, 15, 17},
      {10, 12, 14, 16}, {9, 11, 13, 15},  {9, 11, 12, 14},  {8, 10, 12, 14},  {8, 9, 11, 13},
      {7, 9, 11, 12},   {7, 9, 10, 12},   {7, 8, 10, 11},   {6, 8, 9, 11},    {6, 7, 9, 10},
      {6, 7, 8, 9}};

  void renormalize() {
    for (; range_ < 256; range_ <<= 1, low_ <<= 1) {
      if (low_ < 256) {
        put(0);
      } else if (low_ >= 512) {
        low_ -= 512;
        put(1);
      } else {
        low_ -= 256;
        ++outstanding_;
      }
    }
  }

  void put(unsigned bit) {
    if (isFirst_)
      isFirst_ = false;
    else
      bits_.bits(bit, 1);
    for (; outstanding_ > 0; --outstanding_)
      bits_.bits(1 - bit, 1);
  }

  BitWriter bits_;
  unsigned low_ = 0;
  unsigned range_ = 510;
  unsigned outstanding_ = 0;
  unsigned state_ = firstState;
  bool isFirst_ = true;
};

void writeHeader(BitWriter& writer, const ParameterSets& parameters, std::uint32_t frameNumber) {
  constexpr std::uint32_t onlyPredictedSlices = 5;
  writer.bits(0x41, 8); // a slice that is a reference
  writer.ue(0);         // first macroblock
  writer.ue(onlyPredictedSlices);
  writer.ue(parameters.pictureParameterSetId);
  writer.bits(frameNumber, parameters.frameNumberBits);
  writer.flag(true); // one reference picture,
  writer.ue(0);
  writer.flag(false); // in the usual order
  writer.flag(false); // no memory management
  writer.ue(0);       // cabac_init_idc
  writer.se(SkipRunEncoder::quantizer - parameters.initialQuantizer);
  if (parameters.hasDeblockingControl)
    writer.ue(1); // nothing to deblock
  writer.align(true);
}

} // namespace

UnitType typeOf(std::span<const std::byte> unit) {
  return static_cast<UnitType>(unit.empty() ? 0 : std::to_integer<unsigned>(unit[0]) & 31);
}

bool isReference(std::span<const std::byte> unit) {
  return !unit.empty() && (std::to_integer<unsigned>(unit[0]) & 0x60) != 0;
}

std::optional<ParameterSets> parseParameterSets(std::span<const std::byte> sequenceUnit,
                                                std::span<const std::byte> pictureUnit) {
  if (typeOf(sequenceUnit) != UnitType::sequence || typeOf(pictureUnit) != UnitType::picture)
    return std::nullopt;
  const std::optional<Sequence> sequence = parseSequence(sequenceUnit);
  if (!sequence)
    return std::nullopt;

  const Bytes payload = withoutEmulationPrevention(pictureUnit);
  BitReader reader(payload);
  reader.bits(8);
  ParameterSets parameters;
  parameters.pictureParameterSetId = reader.ue();
  const bool isOfSequence = reader.ue() == sequence->id;
  const bool isArithmetic = reader.flag();
  reader.flag(); // bottom field order
  const bool hasSliceGroups = reader.ue() != 0;
  if (hasSliceGroups)
    return std::nullopt;
  reader.ue(); // default numbers of references, which every slice of ours overrides
  reader.ue();
  const bool isWeighted = reader.flag();
  reader.bits(2); // bi-prediction
  parameters.initialQuantizer = reader.se() + 26;
  reader.se(); // second initial quantizer
  reader.se(); // chroma quantizer offset
  parameters.hasDeblockingControl = reader.flag();
  reader.flag(); // constrained intra prediction
  const bool hasRedundantPictures = reader.flag();
  parameters.frameNumberBits = sequence->frameNumberBits;
  parameters.macroblocks = sequence->macroblocks;
  if (reader.isBeyondEnd() || !isOfSequence || !isArithmetic || isWeighted || hasRedundantPictures)
    return std::nullopt;
  return parameters;
}

std::optional<std::uint32_t> frameNumberOf(std::span<const std::byte> slice,
                                           const ParameterSets& parameters) {
  constexpr std::size_t headerBytes = 32; // more than what stands up to the number
  const Bytes payload = withoutEmulationPrevention(slice.first(std::min(slice.size(), headerBytes)));
  const std::optional<std::size_t> position = frameNumberPosition(payload);
  if (!position)
    return std::nullopt;
  BitReader reader(payload);
  for (std::size_t skipped = 0; skipped < *position; ++skipped)
    reader.flag();
  return reader.bits(parameters.frameNumberBits);
}

std::optional<Bytes> withFrameNumber(std::span<const std::byte> slice, const ParameterSets& parameters,
                                     std::uint32_t frameNumber) {
  Bytes payload = withoutEmulationPrevention(slice);
  const std::optional<std::size_t> position = frameNumberPosition(payload);
  if (!position)
    return std::nullopt;
  overwriteBits(payload, *position, frameNumber, parameters.frameNumberBits);
  return withEmulationPrevention(payload);
}

Bytes repeatedPicture(const ParameterSets& parameters, std::uint32_t frameNumber) {
  BitWriter header;
  writeHeader(header, parameters, frameNumber);
  SkipRunEncoder run;
  for (std::uint32_t macroblock = 1; macroblock <= parameters.macroblocks; ++macroblock) {
    run.skippedMacroblock();
    run.endOfSlice(macroblock == parameters.macroblocks);
  }
  Bytes payload = header.bytes();
  payload.insert(payload.end(), run.bits().bytes().begin(), run.bits().bytes().end());
  return withEmulationPrevention(payload);
}

} // namespace tessarin::media::h264
