#include "RecordingProcess.hpp"

#include "base/Text.hpp"

#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <thread>

namespace tessarin {

namespace {

// A shell that leads standard error into the file named first, and becomes the program.
constexpr const char* intoProgram = R"(exec 2>>"$0"; exec "$@")";

std::vector<std::string> commandLine(const std::string& requestJSON, const std::string& diagnosticsPath,
                                     const std::string& ignoredSignals) {
  std::vector<std::string> command = {"/bin/sh",       "-c",  intoProgram,
                                      diagnosticsPath, "env", "--default-signal=HUP,INT,TERM"};
  if (!ignoredSignals.empty())
    command.push_back("--ignore-signal=" + ignoredSignals);
  command.insert(command.end(), {TESSARIN_PROGRAM, "record", "--request-json", encodedBase64(requestJSON)});
  return command;
}

} // namespace

RecordingProcess::RecordingProcess(const std::string& sessionID, const std::string& requestJSON,
                                   const Environment& environment, const std::string& diagnosticsPath,
                                   const std::string& ignoredSignals)
    : sessionID_(sessionID), process_(commandLine(requestJSON, diagnosticsPath, ignoredSignals),
                                      {.environment = environment, .hasInput = true}) {}

json::Document RecordingProcess::nextEvent(std::chrono::milliseconds limit) {
  const std::optional<std::string> line = process_.readLine(limit);
  if (!line)
    throw std::runtime_error("the recording says nothing more");
  output_ += *line + '\n';
  return json::Document(*line);
}

void RecordingProcess::waitFor(const std::string& phase) {
  for (;;) {
    const json::Document event = waitForEvent("stateChanged");
    if (event.root().member("phase")->string() == phase)
      return;
  }
}

json::Document RecordingProcess::waitForEvent(const std::string& name) {
  for (;;) {
    json::Document event = nextEvent();
    const std::string found = event.root().member("event")->string();
    if (found == name)
      return event;
    if (found == "failed" || found == "completed" || found == "cancelled")
      throw std::runtime_error("the recording ended with " + found);
  }
}

void RecordingProcess::send(const std::string& command) {
  if (!process_.writeLine(R"({"schemaVersion":2,"command":")" + command + R"(","sessionId":")" + sessionID_ +
                          "\"}"))
    throw std::runtime_error("the recording reads no more");
}

std::optional<int> RecordingProcess::waitForEnd(std::chrono::milliseconds limit) {
  const std::optional<int> status = process_.waitForEnd(limit);
  const bool isAlone = ::kill(-process_.pid(), 0) == -1 && errno == ESRCH;
  return isAlone ? status : std::nullopt;
}

void RecordingProcess::recordFor(std::chrono::milliseconds time) {
  waitFor("recording");
  std::this_thread::sleep_for(time);
}

} // namespace tessarin
