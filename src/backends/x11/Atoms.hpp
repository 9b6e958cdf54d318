#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tessarin::x11 {

// Atoms that are interned together when a connection is opened. Add a line to use another one.
#define TESSARIN_X11_ATOMS(ATOM)                                                                             \
  ATOM(utf8String, "UTF8_STRING")                                                                            \
  ATOM(compoundText, "COMPOUND_TEXT")                                                                        \
  ATOM(manager, "MANAGER")                                                                                   \
  ATOM(wmState, "WM_STATE")                                                                                  \
  ATOM(motifWmHints, "_MOTIF_WM_HINTS")                                                                      \
  ATOM(gtkFrameExtents, "_GTK_FRAME_EXTENTS")                                                                \
  ATOM(xembedInfo, "_XEMBED_INFO")                                                                           \
  ATOM(rootPixmap, "_XROOTPMAP_ID")                                                                          \
  ATOM(netSupportingWmCheck, "_NET_SUPPORTING_WM_CHECK")                                                     \
  ATOM(netActiveWindow, "_NET_ACTIVE_WINDOW")                                                                \
  ATOM(netClientList, "_NET_CLIENT_LIST")                                                                    \
  ATOM(netWmName, "_NET_WM_NAME")                                                                            \
  ATOM(netWmPid, "_NET_WM_PID")                                                                              \
  ATOM(netWmState, "_NET_WM_STATE")                                                                          \
  ATOM(netWmStateAbove, "_NET_WM_STATE_ABOVE")                                                               \
  ATOM(netWmWindowType, "_NET_WM_WINDOW_TYPE")                                                               \
  ATOM(typeDesktop, "_NET_WM_WINDOW_TYPE_DESKTOP")                                                           \
  ATOM(typeDock, "_NET_WM_WINDOW_TYPE_DOCK")                                                                 \
  ATOM(typeToolbar, "_NET_WM_WINDOW_TYPE_TOOLBAR")                                                           \
  ATOM(typeMenu, "_NET_WM_WINDOW_TYPE_MENU")                                                                 \
  ATOM(typeUtility, "_NET_WM_WINDOW_TYPE_UTILITY")                                                           \
  ATOM(typeSplash, "_NET_WM_WINDOW_TYPE_SPLASH")                                                             \
  ATOM(typeDialog, "_NET_WM_WINDOW_TYPE_DIALOG")                                                             \
  ATOM(typeDropdownMenu, "_NET_WM_WINDOW_TYPE_DROPDOWN_MENU")                                                \
  ATOM(typePopupMenu, "_NET_WM_WINDOW_TYPE_POPUP_MENU")                                                      \
  ATOM(typeTooltip, "_NET_WM_WINDOW_TYPE_TOOLTIP")                                                           \
  ATOM(typeNotification, "_NET_WM_WINDOW_TYPE_NOTIFICATION")                                                 \
  ATOM(typeCombo, "_NET_WM_WINDOW_TYPE_COMBO")                                                               \
  ATOM(typeDnd, "_NET_WM_WINDOW_TYPE_DND")                                                                   \
  ATOM(typeNormal, "_NET_WM_WINDOW_TYPE_NORMAL")

enum class Atom : std::uint8_t {
#define TESSARIN_X11_ATOM_CASE(name, text) name,
  TESSARIN_X11_ATOMS(TESSARIN_X11_ATOM_CASE)
#undef TESSARIN_X11_ATOM_CASE
};

inline constexpr auto atomTexts = std::to_array<std::string_view>({
#define TESSARIN_X11_ATOM_TEXT(name, text) text,
    TESSARIN_X11_ATOMS(TESSARIN_X11_ATOM_TEXT)
#undef TESSARIN_X11_ATOM_TEXT
});

inline constexpr std::size_t atomCount = atomTexts.size();

} // namespace tessarin::x11
