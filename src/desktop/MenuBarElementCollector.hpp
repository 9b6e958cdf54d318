#pragma once

#include "model/Geometry.hpp"
#include "ports/Desktop.hpp"

#include <vector>

namespace tessarin::MenuBarElementCollector {

// The menu bars (layer 24, owned by "Menubar") and the status items that lie on them (layer 25), in list
// order, each cut at the edge of the display that holds most of it. Pure, any thread.
std::vector<UIElementInfoDTO> collect(const std::vector<WindowListEntry>& frontToBack,
                                      const std::vector<DisplayInfoDTO>& displays);

} // namespace tessarin::MenuBarElementCollector
