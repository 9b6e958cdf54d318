// A desktop portal, as far as devices go, with its store of answers, on the bus that the environment names.
// It asks nobody: the answers are scripted.
//
//   tessarin-test-portal [option...]
//     --without device|camera|portal|store   leaves that interface or service out
//     --stored KIND=ANSWER[,ANSWER]          what is stored for processes without a sandbox
//     --stored-for APPLICATION KIND=ANSWER   what is stored for another application
//     --response KIND=NUMBER                 the answer to a request, else 0
//     --when after|before|never|vanish       when that comes: once the request has been taken, before that,
//                                            never; or the portal goes instead
//     --other-path                           requests get a path of the portal's own choosing
//     --decoy                                requests of others are answered first, with the opposite
//     --refuse                               takes no request
//     --mute                                 owns its names and answers nothing
//
// Prints "ready" once it owns its names, and a line for each request that reaches it.
#include <systemd/sd-bus.h>

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct Script {
  std::set<std::string> without;
  std::map<std::string, std::map<std::string, std::vector<std::string>>> stored; // by kind, by application
  std::map<std::string, std::uint32_t> responses;
  std::string when = "after";
  bool hasOwnPaths = false;
  bool hasDecoy = false;
  bool refuses = false;
  bool isMute = false;
};

Script script;

void require(int result, const char* what) {
  if (result < 0)
    throw std::runtime_error(what);
}

void respond(sd_bus* bus, const std::string& path, std::uint32_t response) {
  require(sd_bus_emit_signal(bus, path.c_str(), "org.freedesktop.portal.Request", "Response", "ua{sv}",
                             response, 0),
          "no response");
}

// The path that a caller may expect for its token.
std::string expectedPath(sd_bus_message* call, const std::string& token) {
  std::string sender = sd_bus_message_get_sender(call);
  sender.erase(0, 1);
  for (char& character : sender)
    if (character == '.')
      character = '_';
  return "/org/freedesktop/portal/desktop/request/" + sender + "/" + token;
}

std::string readToken(sd_bus_message* call) {
  require(sd_bus_message_enter_container(call, 'a', "{sv}"), "no options");
  std::string token;
  const char* key = nullptr;
  const char* value = nullptr;
  while (sd_bus_message_enter_container(call, 'e', "sv") > 0) {
    require(sd_bus_message_read(call, "s", &key), "no key");
    require(sd_bus_message_read(call, "v", "s", &value), "no text");
    if (std::string(key) == "handle_token")
      token = value;
    require(sd_bus_message_exit_container(call), "no end");
  }
  return token;
}

int take(sd_bus_message* call, const std::string& kind, sd_bus_error* error) {
  if (script.refuses)
    return sd_bus_error_set(error, "org.freedesktop.portal.Error.NotAllowed", "not here");
  const std::string token = readToken(call);
  std::cout << sd_bus_message_get_member(call) << " " << kind << (token.empty() ? " without token" : "")
            << std::endl;
  const std::string path =
      script.hasOwnPaths ? "/org/freedesktop/portal/desktop/request/own/1" : expectedPath(call, token);
  const std::uint32_t response = script.responses[kind];
  sd_bus* const bus = sd_bus_message_get_bus(call);
  if (script.hasDecoy)
    respond(bus, "/org/freedesktop/portal/desktop/request/somebody/else", response == 0 ? 1 : 0);
  if (script.when == "before")
    respond(bus, path, response);
  require(sd_bus_reply_method_return(call, "o", path.c_str()), "no reply");
  if (script.when == "after")
    respond(bus, path, response);
  if (script.when == "vanish") {
    sd_bus_flush(bus);
    ::_exit(0);
  }
  return 1;
}

int accessDevice(sd_bus_message* call, void*, sd_bus_error* error) {
  std::uint32_t process = 0;
  const char* device = nullptr;
  require(sd_bus_message_read(call, "u", &process), "no process");
  require(sd_bus_message_read(call, "as", 1, &device), "not one device");
  std::cout << "process " << process << std::endl;
  return take(call, device, error);
}

int accessCamera(sd_bus_message* call, void*, sd_bus_error* error) {
  return take(call, "camera", error);
}

int lookup(sd_bus_message* call, void*, sd_bus_error* error) {
  const char* table = nullptr;
  const char* id = nullptr;
  require(sd_bus_message_read(call, "ss", &table, &id), "no entry named");
  const auto entry = script.stored.find(id);
  if (std::string(table) != "devices" || entry == script.stored.end())
    return sd_bus_error_set(error, "org.freedesktop.portal.Error.NotFound", "no entry");
  sd_bus_message* reply = nullptr;
  require(sd_bus_message_new_method_return(call, &reply), "no reply");
  require(sd_bus_message_open_container(reply, 'a', "{sas}"), "no reply");
  for (const auto& [application, permissions] : entry->second) {
    require(sd_bus_message_open_container(reply, 'e', "sas"), "no reply");
    require(sd_bus_message_append(reply, "s", application.c_str()), "no reply");
    require(sd_bus_message_open_container(reply, 'a', "s"), "no reply");
    for (const std::string& permission : permissions)
      require(sd_bus_message_append(reply, "s", permission.c_str()), "no reply");
    require(sd_bus_message_close_container(reply), "no reply");
    require(sd_bus_message_close_container(reply), "no reply");
  }
  require(sd_bus_message_close_container(reply), "no reply");
  require(sd_bus_message_append(reply, "v", "y", 0), "no reply");
  require(sd_bus_send(nullptr, reply, nullptr), "no reply");
  sd_bus_message_unref(reply);
  return 1;
}

int version(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*, sd_bus_error*) {
  return sd_bus_message_append(reply, "u", 1);
}

const sd_bus_vtable deviceTable[] = {
    SD_BUS_VTABLE_START(0), SD_BUS_PROPERTY("version", "u", version, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_METHOD("AccessDevice", "uasa{sv}", "o", accessDevice, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};
const sd_bus_vtable cameraTable[] = {
    SD_BUS_VTABLE_START(0), SD_BUS_PROPERTY("version", "u", version, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_METHOD("AccessCamera", "a{sv}", "o", accessCamera, SD_BUS_VTABLE_UNPRIVILEGED), SD_BUS_VTABLE_END};
const sd_bus_vtable storeTable[] = {
    SD_BUS_VTABLE_START(0), SD_BUS_METHOD("Lookup", "ss", "a{sas}v", lookup, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

// "KIND=VALUE,VALUE".
std::pair<std::string, std::vector<std::string>> assignment(const std::string& text) {
  const auto equals = text.find('=');
  if (equals == std::string::npos)
    throw std::runtime_error("no value: " + text);
  std::vector<std::string> values;
  for (std::size_t start = equals + 1; start <= text.size();) {
    const auto end = std::min(text.find(',', start), text.size());
    values.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return {text.substr(0, equals), values};
}

void read(const std::vector<std::string>& arguments) {
  auto next = arguments.begin();
  const auto value = [&] {
    if (next == arguments.end())
      throw std::runtime_error("a value is missing");
    return *next++;
  };
  while (next != arguments.end()) {
    const std::string option = *next++;
    if (option == "--without") {
      script.without.insert(value());
    } else if (option == "--stored" || option == "--stored-for") {
      const std::string application = option == "--stored" ? "" : value();
      const auto [kind, answers] = assignment(value());
      script.stored[kind][application] = answers;
    } else if (option == "--response") {
      const auto [kind, number] = assignment(value());
      script.responses[kind] = static_cast<std::uint32_t>(std::stoul(number.at(0)));
    } else if (option == "--when") {
      script.when = value();
    } else if (option == "--other-path") {
      script.hasOwnPaths = true;
    } else if (option == "--decoy") {
      script.hasDecoy = true;
    } else if (option == "--refuse") {
      script.refuses = true;
    } else if (option == "--mute") {
      script.isMute = true;
    } else {
      throw std::runtime_error("unknown option: " + option);
    }
  }
}

void serve() {
  sd_bus* bus = nullptr;
  require(sd_bus_open_user(&bus), "no bus");
  const auto add = [&](const std::string& name, const char* path, const char* interface,
                       const sd_bus_vtable* table) {
    if (!script.without.contains(name))
      require(sd_bus_add_object_vtable(bus, nullptr, path, interface, table, nullptr), "no object");
  };
  constexpr char portalPath[] = "/org/freedesktop/portal/desktop";
  add("device", portalPath, "org.freedesktop.portal.Device", deviceTable);
  add("camera", portalPath, "org.freedesktop.portal.Camera", cameraTable);
  add("store", "/org/freedesktop/impl/portal/PermissionStore", "org.freedesktop.impl.portal.PermissionStore",
      storeTable);
  if (!script.without.contains("portal"))
    require(sd_bus_request_name(bus, "org.freedesktop.portal.Desktop", 0), "no name");
  if (!script.without.contains("store"))
    require(sd_bus_request_name(bus, "org.freedesktop.impl.portal.PermissionStore", 0), "no name");
  std::cout << "ready" << std::endl;
  for (;;) {
    if (script.isMute) {
      ::pause();
      continue;
    }
    const int progress = sd_bus_process(bus, nullptr);
    require(progress, "no more bus");
    if (progress == 0)
      require(sd_bus_wait(bus, UINT64_MAX), "no more bus");
  }
}

} // namespace

int main(int count, char** values) {
  try {
    read({values + 1, values + count});
    serve();
  } catch (const std::exception& error) {
    std::cerr << error.what() << std::endl;
    return EXIT_FAILURE;
  }
}
