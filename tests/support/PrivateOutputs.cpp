#include "support/PrivateOutputs.hpp"

#include <csignal>
#include <stdexcept>

namespace tessarin {

namespace {

constexpr const char* configuration = R"(
Section "ServerFlags"
  Option "AutoAddDevices" "false"
  Option "AutoEnableDevices" "false"
EndSection
Section "Device"
  Identifier "none"
  Driver "dummy"
  VideoRam 256000
EndSection
Section "Screen"
  Identifier "screen"
  Device "none"
  DefaultDepth 24
EndSection
)";

std::string nameOf(int output) {
  return "DUMMY" + std::to_string(output);
}

} // namespace

// On a seat of its own it leaves the machine's consoles alone, and needs none.
PrivateOutputs::PrivateOutputs() {
  const std::string file = directory_.write("xorg.conf", configuration);
  server_ = std::make_unique<ChildProcess>(
      std::vector<std::string>{"Xorg", "-displayfd", "1", "-config", file, "-logfile", directory_ / "log",
                               "-nolisten", "tcp", "-noreset", "-ac", "-seat", "seat-tests", "-novtswitch",
                               "-sharevts", "-keeptty"},
      ChildProcess::Settings());
  const auto number = server_->readLine(std::chrono::seconds(20));
  if (!number || number->empty())
    throw std::runtime_error("the X server with outputs did not start:\n" + directory_.read("log"));
  display_ = ":" + *number;
}

PrivateOutputs::~PrivateOutputs() {
  server_->end(SIGTERM);
}

void PrivateOutputs::arrange(const std::vector<Output>& outputs) const {
  std::vector<std::string> command = {"xrandr"};
  for (int i = 0; i < most; ++i) {
    command.insert(command.end(), {"--output", nameOf(i)});
    if (static_cast<std::size_t>(i) >= outputs.size()) {
      command.emplace_back("--off");
      continue;
    }
    const Output& output = outputs[static_cast<std::size_t>(i)];
    // Only the first one has modes from the beginning. It takes no harm of one that it has.
    run({"xrandr", "--addmode", nameOf(i), output.mode});
    command.insert(command.end(), {"--mode", output.mode, "--pos",
                                   std::to_string(output.x) + "x" + std::to_string(output.y)});
    if (i == 0)
      command.emplace_back("--primary");
  }
  run(command);
}

std::unique_ptr<TestClient> PrivateOutputs::client(const std::vector<std::string>& arguments) const {
  return std::make_unique<TestClient>(display_, arguments);
}

void PrivateOutputs::run(std::vector<std::string> arguments) const {
  arguments.insert(arguments.begin(), {"/bin/sh", "-c", R"(exec "$0" "$@" 2>&1)"});
  ChildProcess process(std::move(arguments), {.environment = {{"DISPLAY", display_}}});
  std::string text;
  while (const auto line = process.readLine())
    text += *line + "\n";
  if (process.waitForEnd() != 0)
    throw std::runtime_error("the outputs cannot be arranged: " + text);
}

} // namespace tessarin
