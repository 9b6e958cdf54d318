#include "modules/media/H264Repeater.hpp"

#include "modules/media/CoderFailure.hpp"

namespace tessarin::media {

H264Repeater::H264Repeater(const h264::ParameterSets& parameters)
    : parameters_(parameters), repeated_(h264::repeatedPicture(parameters, 0)) {}

std::uint32_t H264Repeater::nextNumber() {
  return (number_ + 1) & ((1U << parameters_.frameNumberBits) - 1);
}

void H264Repeater::fitIn(CodedPicture& picture) {
  if (picture.isKey) {
    number_ = 0;
    key_.clear();
    for (const auto unit : splitSample(picture.sample))
      if (h264::typeOf(unit) == h264::UnitType::idrSlice)
        appendToSample(key_, unit);
    return;
  }
  const std::uint32_t number = nextNumber();
  bool isReference = false;
  Bytes sample;
  for (const auto unit : splitSample(picture.sample)) {
    if (h264::typeOf(unit) != h264::UnitType::slice) {
      appendToSample(sample, unit);
      continue;
    }
    isReference = isReference || h264::isReference(unit);
    if (h264::frameNumberOf(unit, parameters_) == number) {
      appendToSample(sample, unit);
      continue;
    }
    const auto numbered = h264::withFrameNumber(unit, parameters_, number);
    if (!numbered)
      throw CoderFailure("h264", 0);
    appendToSample(sample, *numbered);
  }
  if (isReference)
    number_ = number;
  picture.sample = std::move(sample);
}

CodedPicture H264Repeater::repeated() {
  number_ = nextNumber();
  CodedPicture picture;
  const auto unit = h264::withFrameNumber(repeated_, parameters_, number_);
  if (!unit)
    throw CoderFailure("h264", 0);
  appendToSample(picture.sample, *unit);
  return picture;
}

CodedPicture H264Repeater::repeatedKey() {
  number_ = 0;
  return {key_, true};
}

} // namespace tessarin::media
