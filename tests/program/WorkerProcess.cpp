#include "WorkerProcess.hpp"

#include "base/Text.hpp"

#include <stdexcept>

namespace tessarin {

namespace {

std::vector<std::string> commandLine(bool isBehindShell) {
  if (isBehindShell)
    return {"/bin/sh", "-c", R"("$0" capture-worker; exit $?)", TESSARIN_PROGRAM};
  return {TESSARIN_PROGRAM, "capture-worker"};
}

} // namespace

std::string workerRequest(const std::vector<std::string>& arguments, std::string_view requestID) {
  std::string line = R"({"schemaVersion":1,"requestId":")" + std::string(requestID) + R"(","arguments":[)";
  for (const std::string& argument : arguments) {
    if (&argument != &arguments.front())
      line += ',';
    json::appendString(line, argument);
  }
  return line + "]}";
}

std::string workerListing(std::string_view requestID) {
  return workerRequest({"list", "--exclude-parent-application"}, requestID);
}

std::vector<std::string> preparation(const std::string& directory) {
  std::string request =
      R"({"schemaVersion":1,"sessionId":")" + std::string(lastPathComponent(directory)) + R"(","directory":)";
  json::appendString(request, directory);
  return {"prepare-capture", "--request-json", encodedBase64(request + "}")};
}

std::string envelopeOf(const std::string& response, std::string_view requestID) {
  std::string text = response;
  const std::string member = R"("requestId":")" + std::string(requestID) + R"(",)";
  const std::size_t at = text.find(member);
  if (at == std::string::npos)
    throw std::runtime_error("a response to another request: " + response);
  text.erase(at, member.size());
  for (std::size_t slash = 0; (slash = text.find("\\/", slash)) != std::string::npos; ++slash)
    text.erase(slash, 1);
  return text;
}

WorkerProcess::WorkerProcess(const std::string& display, bool isBehindShell)
    : process_(commandLine(isBehindShell), {.environment = {{"DISPLAY", display}}, .hasInput = true}) {
  if (process_.readLine() != R"({"schemaVersion":1,"ready":true})")
    throw std::runtime_error("the worker does not get ready");
}

std::string WorkerProcess::ask(const std::string& line, std::chrono::milliseconds limit) {
  if (!process_.writeLine(line))
    throw std::runtime_error("the worker reads no more");
  const std::optional<std::string> response = process_.readLine(limit);
  if (!response)
    throw std::runtime_error("the worker does not answer");
  return *response;
}

std::optional<int> WorkerProcess::end() {
  process_.closeInput();
  return process_.waitForEnd();
}

} // namespace tessarin
