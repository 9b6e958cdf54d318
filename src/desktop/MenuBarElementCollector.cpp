#include "desktop/MenuBarElementCollector.hpp"

#include "base/Text.hpp"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

namespace tessarin::MenuBarElementCollector {

namespace {

constexpr std::int64_t menuBarLayer = 24;
constexpr std::int64_t statusItemLayer = 25;
constexpr std::string_view menuBarOwner = "menubar";

struct Candidate {
  std::int64_t index = 0; // in the window list
  std::string id;
  std::string_view owner;
  std::string_view name;
  std::int64_t layer = 0;
  RectDTO frame;

  bool isMenuBar() const {
    return layer == menuBarLayer &&
           std::equal(owner.begin(), owner.end(), menuBarOwner.begin(), menuBarOwner.end(),
                      [](char a, char b) {
                        return (a >= 'A' && a <= 'Z' ? static_cast<char>(a - 'A' + 'a') : a) == b;
                      });
  }
};

std::vector<Candidate> candidates(const std::vector<WindowListEntry>& frontToBack) {
  std::vector<Candidate> result;
  for (std::size_t index = 0; index < frontToBack.size(); ++index) {
    const WindowListEntry& entry = frontToBack[index];
    if (entry.layer != menuBarLayer && entry.layer != statusItemLayer)
      continue;
    if (!entry.number || !entry.bounds || !(entry.bounds->width > 0) || !(entry.bounds->height > 0))
      continue;
    result.push_back({.index = static_cast<std::int64_t>(index),
                      .id = "macos-ui-" + std::to_string(*entry.number),
                      .owner = entry.ownerName,
                      .name = entry.name,
                      .layer = *entry.layer,
                      .frame = *entry.bounds});
  }
  return result;
}

std::string labelOf(const Candidate& candidate) {
  if (candidate.layer == menuBarLayer)
    return "Menu Bar";
  for (const std::string_view text : {trimmed(candidate.name), trimmed(candidate.owner)})
    if (!text.empty())
      return std::string(text);
  return "Status Item";
}

std::optional<UIElementInfoDTO> element(const Candidate& candidate,
                                        const std::vector<DisplayInfoDTO>& displays) {
  const auto displayID = WindowDisplayAssignment::displayID(candidate.frame, displays);
  if (!displayID)
    return std::nullopt;
  const auto display = std::find_if(displays.begin(), displays.end(),
                                    [&](const DisplayInfoDTO& each) { return each.id == *displayID; });
  const auto visible = candidate.frame.intersection(display->framePoints);
  if (!visible)
    return std::nullopt;
  return UIElementInfoDTO{.id = candidate.id,
                          .displayID = *displayID,
                          .label = labelOf(candidate),
                          .kind = candidate.layer == menuBarLayer ? UIElementKind::menuBar
                                                                  : UIElementKind::menuBarItem,
                          .framePoints = *visible,
                          .zIndex = candidate.index};
}

} // namespace

std::vector<UIElementInfoDTO> collect(const std::vector<WindowListEntry>& frontToBack,
                                      const std::vector<DisplayInfoDTO>& displays) {
  const std::vector<Candidate> all = candidates(frontToBack);
  const auto liesOnMenuBar = [&](const Candidate& item) {
    return std::any_of(all.begin(), all.end(), [&](const Candidate& bar) {
      return bar.isMenuBar() && item.frame.intersection(bar.frame).has_value();
    });
  };

  std::vector<UIElementInfoDTO> elements;
  for (const Candidate& candidate : all) {
    if (!(candidate.isMenuBar() || (candidate.layer == statusItemLayer && liesOnMenuBar(candidate))))
      continue;
    if (auto found = element(candidate, displays))
      elements.push_back(std::move(*found));
  }
  return elements;
}

} // namespace tessarin::MenuBarElementCollector
