#pragma once

#include "ports/MediaWriting.hpp"
#include "ports/MovieEditing.hpp"
#include "ports/Permissions.hpp"
#include "ports/SecureInput.hpp"
#include "ports/Typesetting.hpp"

#include <functional>
#include <memory>
#include <string>

namespace tessarin {

class FileSystem;

// The contract between the program and its modules: shared objects that carry a heavy library and are
// opened when a command first needs them. A module exports one C symbol, a function without arguments that
// returns a ModuleHeader of static storage, the first member of the module's own structure. Nothing behind
// the header may be looked at before its build id has been found equal to the program's.
struct ModuleHeader {
  const char* buildId; // zero-terminated
};

inline constexpr char moduleSymbol[] = "tessarin_module";
using ModuleEntry = const ModuleHeader*();

// Of the sources that lie between program and modules and of the compiler: equal ids mean equal layouts.
const char* moduleBuildId();

// Whether a hardware encoder, by its name in the codec library, has coded pictures in a process of its own.
// May take seconds the first time; the answer stays the same. Any thread.
using HardwareEncoderProbe = std::function<bool(const std::string& encoderName)>;

// The module "media".
struct MediaModule {
  ModuleHeader header;
  // The file system outlives what is made.
  std::unique_ptr<MediaFileWriterFactory> (*makeFileWriterFactory)(FileSystem& files,
                                                                   HardwareEncoderProbe probe);
  std::unique_ptr<AudioReencoder> (*makeAudioReencoder)(FileSystem& files);
};

// The module "editing". The file system outlives what is made.
struct EditingModule {
  ModuleHeader header;
  std::unique_ptr<MediaAssets> (*makeMediaAssets)(FileSystem& files);
  std::unique_ptr<MovieExporter> (*makeMovieExporter)(FileSystem& files);
};

// The module "portal".
struct PortalModule {
  ModuleHeader header;
  std::unique_ptr<DevicePortal> (*makeDevicePortal)();
};

// The module "accessibility".
struct AccessibilityModule {
  ModuleHeader header;
  std::unique_ptr<PasswordFocus> (*makePasswordFocus)();
};

// The module "typesetting".
struct TypesettingModule {
  ModuleHeader header;
  std::unique_ptr<TextTypesetter> (*makeTypesetter)();
};

} // namespace tessarin
