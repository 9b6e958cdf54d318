#include "ClientOptions.hpp"

#include <cstdio>
#include <functional>
#include <map>
#include <stdexcept>

namespace tessarin::client {

namespace {

std::string bytesFromHex(const std::string& hex) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<char>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

template<class T> T oneOf(const std::string& text, const std::map<std::string, T>& values) {
  const auto found = values.find(text);
  if (found == values.end()) {
    throw std::runtime_error("unknown value " + text);
  }
  return found->second;
}

using Setter = std::function<void(Options&, const std::string&)>;

void require(bool isGood) {
  if (!isGood) {
    throw std::runtime_error("malformed numbers");
  }
}

const std::map<std::string, Setter>& settersWithValue() {
  static const std::map<std::string, Setter> setters = {
      {"--wait-for", [](Options& o, const std::string& v) { o.waitFor = v; }},
      {"--at",
       [](Options& o, const std::string& v) { require(std::sscanf(v.c_str(), "%d,%d", &o.x, &o.y) == 2); }},
      {"--size",
       [](Options& o, const std::string& v) {
         require(std::sscanf(v.c_str(), "%dx%d", &o.width, &o.height) == 2);
       }},
      {"--title", [](Options& o, const std::string& v) { o.title = v; }},
      {"--title-bytes", [](Options& o, const std::string& v) { o.title = bytesFromHex(v); }},
      {"--title-type", [](Options& o, const std::string& v) { o.titleType = v; }},
      {"--class",
       [](Options& o, const std::string& v) {
         const auto comma = v.find(',');
         require(comma != std::string::npos);
         o.windowClass = {v.substr(0, comma), v.substr(comma + 1)};
       }},
      {"--style",
       [](Options& o, const std::string& v) {
         o.style = oneOf<Style>(v, {{"decorated", Style::decorated},
                                    {"borderless", Style::borderless},
                                    {"override", Style::overrideRedirect}});
       }},
      {"--paint",
       [](Options& o, const std::string& v) {
         o.painting = oneOf<Painting>(v, {{"solid", Painting::solid},
                                          {"photo", Painting::photo},
                                          {"text", Painting::text},
                                          {"counter", Painting::counter}});
       }},
      {"--shape",
       [](Options& o, const std::string& v) {
         o.shape = oneOf<Shape>(v, {{"circle", Shape::circle}, {"corner", Shape::corner}});
       }},
      {"--colour", [](Options& o, const std::string& v) { o.colour = parseColour(v); }},
      {"--type", [](Options& o, const std::string& v) { o.types.push_back(v); }},
      {"--border", [](Options& o, const std::string& v) { o.borderWidth = std::stoi(v); }},
      {"--shadow",
       [](Options& o, const std::string& v) {
         auto& s = o.shadow.emplace();
         require(std::sscanf(v.c_str(), "%u,%u,%u,%u", &s[0], &s[1], &s[2], &s[3]) == 4);
       }},
      {"--pid-property",
       [](Options& o, const std::string& v) { o.pidProperty = static_cast<std::uint32_t>(std::stoul(v)); }},
      {"--machine", [](Options& o, const std::string& v) { o.machine = v; }},
      {"--embed-in",
       [](Options& o, const std::string& v) { o.parent = static_cast<std::uint32_t>(std::stoul(v)); }},
      {"--fps", [](Options& o, const std::string& v) { o.frameRate = std::stoi(v); }},
      {"--repaint-delay", [](Options& o, const std::string& v) { o.repaintDelay = std::stoi(v); }},
  };
  return setters;
}

const std::map<std::string, bool Options::*>& flags() {
  static const std::map<std::string, bool Options::*> table = {{"--argb", &Options::hasAlpha},
                                                               {"--above", &Options::isAbove},
                                                               {"--full-screen", &Options::isFullScreen},
                                                               {"--iconic", &Options::isIconic},
                                                               {"--tray", &Options::isTrayIcon}};
  return table;
}

} // namespace

Options parseOptions(const std::vector<std::string>& arguments) {
  Options options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (const auto flag = flags().find(arguments[i]); flag != flags().end()) {
      options.*(flag->second) = true;
      continue;
    }
    const auto setter = settersWithValue().find(arguments[i]);
    if (setter == settersWithValue().end() || i + 1 == arguments.size()) {
      throw std::runtime_error("unknown or incomplete argument " + arguments[i]);
    }
    setter->second(options, arguments[++i]);
  }
  return options;
}

std::uint32_t parseColour(const std::string& text) {
  if (text.size() != 8 || text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
    throw std::runtime_error("a colour is AARRGGBB");
  }
  return static_cast<std::uint32_t>(std::stoul(text, nullptr, 16));
}

} // namespace tessarin::client
