#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The arguments of tessarin-test-client.
namespace tessarin::client {

enum class Style { decorated, borderless, overrideRedirect };
enum class Painting { solid, photo, text, counter };
enum class Shape { none, circle, corner };

struct Options {
  // --wait-for window-manager|compositing-manager|tray: shows nothing, only waits for the manager.
  std::optional<std::string> waitFor;

  int x = 0; // --at X,Y
  int y = 0;
  int width = 200; // --size WxH
  int height = 150;
  std::string title = "test client"; // --title TEXT, taken as UTF-8 bytes of any kind
  // --title-type utf8|string|compound: the property that holds the title, and its type
  std::string titleType = "utf8";
  // --title-bytes HEX: the title as bytes
  std::array<std::string, 2> windowClass = {"test-client", "TestClient"}; // --class INSTANCE,CLASS
  Style style = Style::decorated;      // --style decorated|borderless|override
  Painting painting = Painting::solid; // --paint solid|photo|text|counter
  Shape shape = Shape::none;           // --shape circle|corner
  std::uint32_t colour = 0xFF3366CC;   // --colour AARRGGBB, colour not yet multiplied by alpha
  bool hasAlpha = false;               // --argb
  std::vector<std::string> types;      // --type NAME: _NET_WM_WINDOW_TYPE_ follows, in capitals
  bool isAbove = false;                // --above
  bool isFullScreen = false;           // --full-screen
  bool isIconic = false; // --iconic: starts iconified; "ready" comes without waiting for the picture
  int borderWidth = 0;   // --border N
  // --shadow LEFT,RIGHT,TOP,BOTTOM: client-drawn, in a colour of its own
  std::optional<std::array<std::uint32_t, 4>> shadow;
  std::optional<std::uint32_t> pidProperty; // --pid-property N: _NET_WM_PID on this host
  std::string machine;                      // --machine NAME: instead of this host
  std::uint32_t parent = 0;                 // --embed-in WINDOW: an icon inside that dock
  bool isTrayIcon = false;                  // --tray: an icon that asks the tray's manager to embed it
  int frameRate = 60;                       // --fps N, of the counter
  int repaintDelay = -1; // --repaint-delay MS: painted by the client, that long after it is exposed
};

// Throws std::runtime_error with a sentence.
Options parseOptions(const std::vector<std::string>& arguments);

// "AARRGGBB". Throws std::runtime_error.
std::uint32_t parseColour(const std::string& text);

} // namespace tessarin::client
