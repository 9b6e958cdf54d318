#include "SourceOptions.hpp"

#include <cstdio>
#include <functional>
#include <map>
#include <stdexcept>

namespace tessarin::source {

namespace {

template<class T> T oneOf(const std::string& text, const std::map<std::string, T>& values) {
  const auto found = values.find(text);
  if (found == values.end()) {
    throw std::runtime_error("unknown value " + text);
  }
  return found->second;
}

using Setter = std::function<void(Options&, const std::string&)>;

const std::map<std::string, Setter>& settersWithValue() {
  static const std::map<std::string, Setter> setters = {
      {"--name", [](Options& o, const std::string& v) { o.name = v; }},
      {"--description", [](Options& o, const std::string& v) { o.description = v; }},
      {"--rate", [](Options& o, const std::string& v) { o.rate = std::stoi(v); }},
      {"--channels", [](Options& o, const std::string& v) { o.channels = std::stoi(v); }},
      {"--format",
       [](Options& o, const std::string& v) {
         o.format = oneOf<SampleFormat>(v, {{"u8", SampleFormat::u8},
                                            {"s16", SampleFormat::s16},
                                            {"s32", SampleFormat::s32},
                                            {"f32", SampleFormat::f32}});
       }},
      {"--frequency", [](Options& o, const std::string& v) { o.frequency = std::stod(v); }},
      {"--amplitude", [](Options& o, const std::string& v) { o.amplitude = std::stod(v); }},
      {"--beep-length", [](Options& o, const std::string& v) { o.beepLength = std::stod(v); }},
      {"--offer", [](Options& o, const std::string& v) { o.offers.push_back(parseOffer(v)); }},
      {"--padding", [](Options& o, const std::string& v) { o.padding = std::stoi(v); }},
      {"--offset", [](Options& o, const std::string& v) { o.offset = std::stoi(v); }},
  };
  return setters;
}

bool setFlag(Options& options, const std::string& argument) {
  if (argument == "--bt709") {
    options.rules.isBt709 = true;
  } else if (argument == "--full-range") {
    options.rules.isFullRange = true;
  } else if (argument == "--tell-rules") {
    options.tellsRules = true;
  } else if (argument == "--no-header") {
    options.hasHeader = false;
  } else if (argument == "--planes") {
    options.hasPlanes = true;
  } else {
    return false;
  }
  return true;
}

} // namespace

CameraOffer parseOffer(const std::string& text) {
  static const std::map<std::string, std::optional<camera::RawFormat>> formats = {
      {"yuy2", camera::RawFormat::yuy2},
      {"uyvy", camera::RawFormat::uyvy},
      {"nv12", camera::RawFormat::nv12},
      {"i420", camera::RawFormat::i420},
      {"bgrx", camera::RawFormat::bgrx},
      {"rgbx", camera::RawFormat::rgbx},
      {"rgb", camera::RawFormat::rgb},
      {"gray8", camera::RawFormat::gray8},
      {"mjpg", std::nullopt}};
  CameraOffer offer;
  const auto comma = text.find(',');
  offer.format = oneOf(text.substr(0, comma), formats);
  if (comma != std::string::npos &&
      std::sscanf(text.c_str() + comma, ",%dx%d,%d", &offer.width, &offer.height, &offer.frameRate) != 3) {
    throw std::runtime_error("an offer is FORMAT,WxH,FPS");
  }
  return offer;
}

Options parseOptions(const std::vector<std::string>& arguments) {
  Options options;
  if (arguments.empty()) {
    throw std::runtime_error("microphone, camera or player");
  }
  options.kind = oneOf<Kind>(
      arguments[0], {{"microphone", Kind::microphone}, {"camera", Kind::camera}, {"player", Kind::player}});
  options.name = "test-" + arguments[0];
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    if (setFlag(options, arguments[i])) {
      continue;
    }
    const auto setter = settersWithValue().find(arguments[i]);
    if (setter == settersWithValue().end() || i + 1 == arguments.size()) {
      throw std::runtime_error("unknown or incomplete argument " + arguments[i]);
    }
    setter->second(options, arguments[++i]);
  }
  if (options.description.empty()) {
    options.description = "Test " + arguments[0];
  }
  if (options.offers.empty()) {
    options.offers.push_back(parseOffer("yuy2,640x480,30"));
  }
  return options;
}

} // namespace tessarin::source
