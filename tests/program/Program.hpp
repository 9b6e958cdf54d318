#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tessarin {

struct ProgramSettings {
  std::optional<std::string> display = std::nullopt; // of the environment; without one there is no display
  std::vector<std::pair<std::string, std::string>> environment = {}; // over what this process has
  std::string workingDirectory = "/";
  // In place of a pipe that collects it; -1 leaves it closed.
  std::optional<int> standardOutput = std::nullopt;
  bool hasStandardInput = true;   // otherwise it is closed
  std::string standardInput = {}; // its bytes
};

struct ProgramResult {
  std::optional<int> exitStatus; // nothing when a signal ended the program
  int signal = 0;
  std::string output;
  std::string diagnostics; // standard error
};

// Runs the built program to its end, at most half a minute. Arguments may be any bytes. Throws
// std::runtime_error when it cannot be run or does not end.
ProgramResult runProgram(const std::vector<std::string>& arguments, const ProgramSettings& settings = {});

// A command with its request in base64.
std::vector<std::string> withRequest(const std::string& command, std::string_view requestJSON);

// The reply of a success to which the JSON is the answer, with its line feed.
std::string successReply(std::string_view dataJSON);

// The reply of a failure, with its line feed.
std::string failureReply(std::string_view code, std::string_view message);

} // namespace tessarin
