#include "support/PrivateSoundServer.hpp"

#include <signal.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <thread>

namespace tessarin {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

// Without the monitors of sound cards, cameras and radios, and without anything that outlives the server.
constexpr const char* commonModules = R"(
  { name = libpipewire-module-rt flags = [ ifexists nofail ] }
  { name = libpipewire-module-protocol-native }
  { name = libpipewire-module-client-node }
  { name = libpipewire-module-adapter }
  { name = libpipewire-module-metadata }
)";

constexpr const char* libraries = R"(
context.spa-libs = {
  audio.convert.* = audioconvert/libspa-audioconvert
  support.* = support/libspa-support
}
)";

std::string serverConfiguration(const PrivateSoundServer::Options& options) {
  std::string text = "context.properties = { core.daemon = true core.name = pipewire-0 log.level = 1 "
                     "support.dbus = false link.max-buffers = 16 default.clock.min-quantum = 16 }\n";
  text += libraries;
  text += "context.modules = [";
  text += commonModules;
  text += R"(
  { name = libpipewire-module-spa-device-factory }
  { name = libpipewire-module-spa-node-factory }
  { name = libpipewire-module-client-device }
  { name = libpipewire-module-access }
  { name = libpipewire-module-link-factory }
  { name = libpipewire-module-session-manager }
]
context.objects = [
  { factory = spa-node-factory
    args = { factory.name = support.node.driver node.name = Dummy-Driver node.group = pipewire.dummy
             priority.driver = 20000 } }
)";
  if (options.hasSink) {
    text += "  { factory = adapter args = { factory.name = support.null-audio-sink node.name = \"" +
            options.sinkName + "\" node.description = \"" + options.sinkDescription +
            "\" media.class = Audio/Sink audio.position = \"FL,FR\" monitor.channel-volumes = true "
            "priority.session = 1000 object.linger = true } }\n";
  }
  return text + "]\n";
}

std::string pulseConfiguration() {
  return "context.properties = { log.level = 1 support.dbus = false }\n" + std::string(libraries) +
         "context.modules = [" + commonModules +
         "  { name = libpipewire-module-protocol-pulse args = { } }\n]\n"
         "pulse.properties = { server.address = [ \"unix:native\" ] }\n";
}

std::string managerConfiguration() {
  return "context.properties = { log.level = 1 support.dbus = false "
         "wireplumber.script-engine = lua-scripting }\n" +
         std::string(libraries) + "context.modules = [" + commonModules + R"(
  { name = libpipewire-module-client-device }
  { name = libpipewire-module-session-manager }
]
wireplumber.components = [
  { name = libwireplumber-module-lua-scripting, type = module }
  { name = main.lua, type = config/lua }
  { name = policy.lua, type = config/lua }
]
)";
}

constexpr const char* managerScripts = R"(
load_module("metadata")
load_access("default", { rules = {} })
load_module("default-nodes", { ["use-persistent-storage"] = false })
load_script("intended-roles.lua")
load_script("suspend-node.lua")
)";

std::string busConfiguration(const std::string& socket) {
  return "<busconfig><type>session</type><listen>unix:path=" + socket +
         "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow send_destination=\"*\" "
         "eavesdrop=\"true\"/><allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n";
}

void waitUntil(const std::string& what, const auto& holds) {
  const auto deadline = Clock::now() + seconds(10);
  while (!holds()) {
    if (Clock::now() > deadline) {
      throw std::runtime_error("the sound server has no " + what);
    }
    std::this_thread::sleep_for(milliseconds(5));
  }
}

} // namespace

TestSource::TestSource(const std::vector<std::pair<std::string, std::string>>& environment,
                       const std::vector<std::string>& arguments)
    : process_(
          [&] {
            std::vector<std::string> all = {TESSARIN_TEST_SOURCE};
            all.insert(all.end(), arguments.begin(), arguments.end());
            return all;
          }(),
          {.environment = environment, .hasInput = true}) {
  const auto line = process_.readLine();
  if (line != "ready") {
    throw std::runtime_error("the test source did not start: " + line.value_or("nothing said"));
  }
}

void TestSource::command(const std::string& line) {
  if (!process_.writeLine(line) || process_.readLine() != "done") {
    throw std::runtime_error("the test source did not carry out: " + line);
  }
}

std::int64_t TestSource::beep(std::optional<std::int64_t> at) {
  const bool isWritten = process_.writeLine("beep " + std::to_string(at.value_or(0)));
  const auto line = isWritten ? process_.readLine() : std::nullopt;
  if (!line || !line->starts_with("beeps ")) {
    throw std::runtime_error("the test source did not beep: " + line.value_or("nothing said"));
  }
  return std::stoll(line->substr(6));
}

void TestSource::freeze() {
  kill(process_.pid(), SIGSTOP);
}

void TestSource::thaw() {
  if (process_.isRunning()) {
    kill(process_.pid(), SIGCONT);
  }
}

PrivateSoundServer::PrivateSoundServer(const Options& options)
    : hasSink_(options.hasSink), sinkName_(options.sinkName), runtimeDirectory_(directory_ / "run") {
  const auto home = directory_ / "home";
  const auto configuration = directory_ / "config";
  environment_ = {{"HOME", home},
                  {"XDG_RUNTIME_DIR", runtimeDirectory_},
                  {"XDG_CONFIG_HOME", configuration},
                  {"XDG_STATE_HOME", directory_ / "state"},
                  {"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + runtimeDirectory_ + "/bus"},
                  {"PIPEWIRE_RUNTIME_DIR", runtimeDirectory_},
                  {"PIPEWIRE_REMOTE", "pipewire-0"},
                  {"PULSE_SERVER", "unix:" + runtimeDirectory_ + "/pulse/native"},
                  {"PULSE_RUNTIME_PATH", runtimeDirectory_ + "/pulse"}};
  environment_.insert(environment_.end(), options.environment.begin(), options.environment.end());
  std::filesystem::create_directories(home);
  std::filesystem::create_directories(runtimeDirectory_);
  chmod(runtimeDirectory_.c_str(), S_IRWXU);
  writeConfiguration(options);
  startBus();
  startServer();
}

PrivateSoundServer::~PrivateSoundServer() {
  if (server_) {
    goOn();
  }
  if (bus_ && bus_->isRunning()) {
    kill(bus_->pid(), SIGCONT);
  }
  pulse_.reset();
  manager_.reset();
  server_.reset();
  bus_.reset();
}

void PrivateSoundServer::writeConfiguration(const Options& options) const {
  std::filesystem::create_directories(directory_ / "config/pipewire");
  std::filesystem::create_directories(directory_ / "config/wireplumber/main.lua.d");
  directory_.write("config/pipewire/pipewire.conf", serverConfiguration(options));
  directory_.write("config/pipewire/pipewire-pulse.conf", pulseConfiguration());
  directory_.write("config/wireplumber/wireplumber.conf", managerConfiguration());
  directory_.write("config/wireplumber/main.lua.d/90-enable-all.lua", managerScripts);
  directory_.write("bus.conf", busConfiguration(runtimeDirectory_ + "/bus"));
}

void PrivateSoundServer::startBus() {
  bus_ = start({"dbus-daemon", "--config-file=" + (directory_ / "bus.conf"), "--nofork", "--print-address"});
  if (!bus_->readLine()) {
    throw std::runtime_error("the session bus did not start");
  }
}

void PrivateSoundServer::startServer() {
  const auto isThere = [this](const std::string& name) {
    return std::filesystem::exists(runtimeDirectory_ + "/" + name);
  };
  server_ = start({"pipewire"});
  waitUntil("socket", [&] { return isThere("pipewire-0"); });
  manager_ = start({"wireplumber"});
  pulse_ = start({"pipewire-pulse"});
  waitUntil("second socket", [&] { return isThere("pulse/native"); });
  if (hasSink_) {
    waitUntil("default output", [&] { return defaultNode("audio.sink") == sinkName_; });
  } else {
    waitUntil("session manager", [&] {
      return run({"pw-cli", "list-objects", "Metadata"}).find("\"default\"") != std::string::npos;
    });
  }
}

std::unique_ptr<TestSource> PrivateSoundServer::source(const std::vector<std::string>& arguments) const {
  auto source = std::make_unique<TestSource>(environment_, arguments);
  if (arguments.at(0) == "microphone" || arguments.at(0) == "camera") {
    // A node that nobody has chosen is a default as soon as the session manager has taken note of it; a sink
    // stands in for a source that is not there.
    const std::string kind = arguments[0] == "camera" ? "video.source" : "audio.source";
    waitUntil("default " + kind, [&] {
      const auto name = defaultNode(kind);
      return !name.empty() && name != sinkName_;
    });
  }
  return source;
}

std::unique_ptr<ChildProcess> PrivateSoundServer::start(std::vector<std::string> arguments) const {
  return std::make_unique<ChildProcess>(std::move(arguments),
                                        ChildProcess::Settings{.environment = environment_});
}

std::string PrivateSoundServer::run(const std::vector<std::string>& arguments) const {
  const auto process = start(arguments);
  std::string text;
  while (const auto line = process->readLine()) {
    text += *line + "\n";
  }
  if (process->waitForEnd() != 0) {
    throw std::runtime_error(arguments.front() + " failed");
  }
  return text;
}

std::string PrivateSoundServer::defaultNode(const std::string& kind) const {
  const auto text = run({"pw-metadata", "0", "default." + kind});
  const std::string opening = "{\"name\":\"";
  const auto begin = text.find(opening);
  const auto end = text.find("\"}", begin);
  if (begin == std::string::npos || end == std::string::npos) {
    return "";
  }
  return text.substr(begin + opening.size(), end - begin - opening.size());
}

void PrivateSoundServer::setDefaultNode(const std::string& kind, const std::string& name) const {
  run({"pw-metadata", "0", "default.configured." + kind, "{\"name\":\"" + name + "\"}", "Spa:String:JSON"});
  waitUntil("default " + kind + " " + name, [&] { return defaultNode(kind) == name; });
}

std::string PrivateSoundServer::addSink(const std::string& name, const std::string& description) const {
  auto module = run({"pactl", "load-module", "module-null-sink", "sink_name=" + name,
                     "sink_properties=device.description=\"" + description + "\""});
  module.resize(module.find_last_not_of('\n') + 1);
  return module;
}

void PrivateSoundServer::removeSink(const std::string& module) const {
  run({"pactl", "unload-module", module});
}

void PrivateSoundServer::killServer() {
  server_->end(SIGKILL);
}

void PrivateSoundServer::restartServer() {
  pulse_.reset();
  manager_.reset();
  server_.reset();
  for (const auto* trace : {"pipewire-0", "pipewire-0.lock", "pulse"}) {
    std::filesystem::remove_all(runtimeDirectory_ + "/" + trace);
  }
  startServer();
}

void PrivateSoundServer::stopAnswering() {
  kill(server_->pid(), SIGSTOP);
}

void PrivateSoundServer::goOn() {
  if (server_->isRunning()) {
    kill(server_->pid(), SIGCONT);
  }
}

void PrivateSoundServer::stopBus() {
  kill(bus_->pid(), SIGSTOP);
}

ProcessEnvironment::ProcessEnvironment(const std::vector<std::pair<std::string, std::string>>& variables) {
  for (const auto& [name, value] : variables) {
    const char* before = std::getenv(name.c_str());
    before_.emplace_back(name, before ? std::optional<std::string>(before) : std::nullopt);
    setenv(name.c_str(), value.c_str(), 1);
  }
}

ProcessEnvironment::~ProcessEnvironment() {
  for (auto entry = before_.rbegin(); entry != before_.rend(); ++entry) {
    if (entry->second) {
      setenv(entry->first.c_str(), entry->second->c_str(), 1);
    } else {
      unsetenv(entry->first.c_str());
    }
  }
}

} // namespace tessarin
