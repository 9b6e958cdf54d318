#pragma once

#include "base/Diagnostics.hpp"
#include "base/Failure.hpp"
#include "ports/Modules.hpp"

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tessarin {

enum class ModuleFailure : std::uint8_t {
  missing,    // no file of its name
  mismatched, // built from other sources than the program
  broken      // not to be opened: no shared object, lacking a library, or without the symbol
};

// Where the running program's modules lie: "modules" beside the program, else
// "../lib/tessarin-native/modules".
std::vector<std::string> moduleDirectories();

// Opens modules when they are first asked for and keeps them open to the end of the process. Every method
// may be called on any thread.
class ModuleLoader {
 public:
  ModuleLoader(std::vector<std::string> directories, DiagnosticsSink diagnostics)
      : directories_(std::move(directories)), diagnostics_(std::move(diagnostics)) {}
  ModuleLoader(const ModuleLoader&) = delete;
  ModuleLoader& operator=(const ModuleLoader&) = delete;

  // The module "tessarin-<name>.so" of the first directory that has it. Throws Failure<ModuleFailure>; the
  // first time a diagnostics line tells it, and the answer stays the same from then on.
  const ModuleHeader& open(std::string_view name);

 private:
  using Outcome = std::variant<const ModuleHeader*, ModuleFailure>;
  Outcome load(std::string_view name) const;

  const std::vector<std::string> directories_;
  const DiagnosticsSink diagnostics_;
  std::mutex mutex_;
  std::map<std::string, Outcome, std::less<>> outcomes_; // under the mutex
};

} // namespace tessarin
