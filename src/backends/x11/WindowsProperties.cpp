#include "backends/x11/WindowsProperties.hpp"

#include "backends/x11/WindowsText.hpp"
#include "base/Text.hpp"

#include <unistd.h>

#include <xcb/res.h>

#include <algorithm>
#include <set>
#include <string_view>

namespace tessarin::x11 {

namespace {

// In units of four bytes; what is longer is cut.
constexpr std::uint32_t longestText = 2048;
constexpr std::uint32_t longestList = 64;

// The value of a property; empty when there is none.
class Property {
 public:
  Property(Connection& connection, xcb_get_property_cookie_t cookie)
      : reply_(connection.reply(xcb_get_property_reply, cookie)) {}

  xcb_atom_t type() const { return reply_ ? reply_->type : static_cast<xcb_atom_t>(XCB_ATOM_NONE); }

  std::string_view text() const {
    return reply_ && reply_->format == 8
               ? std::string_view(static_cast<const char*>(xcb_get_property_value(reply_.get())),
                                  static_cast<std::size_t>(xcb_get_property_value_length(reply_.get())))
               : std::string_view();
  }

  std::vector<std::uint32_t> values() const {
    if (!reply_ || reply_->format != 32) {
      return {};
    }
    const auto* first = static_cast<const std::uint32_t*>(xcb_get_property_value(reply_.get()));
    return {first, first + xcb_get_property_value_length(reply_.get()) / 4};
  }

 private:
  Owned<xcb_get_property_reply_t> reply_;
};

std::string_view untilZero(std::string_view text) {
  return text.substr(0, text.find('\0'));
}

std::string utf8FromUnknown(std::string_view text) {
  return isValidUtf8(text) ? std::string(text) : utf8FromLatin1(text);
}

std::optional<std::string> titleFrom(const Connection& connection, const Property& netName,
                                     const Property& name) {
  if (const auto text = untilZero(netName.text()); !text.empty()) {
    return repairedUtf8(text);
  }
  const auto text = untilZero(name.text());
  if (text.empty()) {
    return std::nullopt;
  }
  if (name.type() == XCB_ATOM_STRING) {
    return utf8FromLatin1(text);
  }
  if (name.type() == connection.atom(Atom::compoundText)) {
    return utf8FromCompoundText(text);
  }
  return name.type() == connection.atom(Atom::utf8String) ? repairedUtf8(text) : utf8FromUnknown(text);
}

bool isThisHost(std::string_view machine) {
  char name[256] = {};
  gethostname(name, sizeof name - 1);
  return machine.empty() || machine == name;
}

} // namespace

PropertiesQuery::PropertiesQuery(Connection& connection, xcb_window_t window) : connection_(&connection) {
  const auto ask = [&](xcb_atom_t property, std::uint32_t longest) {
    return xcb_get_property(connection.get(), 0, window, property, XCB_ATOM_ANY, 0, longest);
  };
  netName_ = ask(connection.atom(Atom::netWmName), longestText);
  name_ = ask(XCB_ATOM_WM_NAME, longestText);
  windowClass_ = ask(XCB_ATOM_WM_CLASS, longestText);
  type_ = ask(connection.atom(Atom::netWmWindowType), longestList);
  state_ = ask(connection.atom(Atom::netWmState), longestList);
  shadow_ = ask(connection.atom(Atom::gtkFrameExtents), 4);
  processID_ = ask(connection.atom(Atom::netWmPid), 1);
  machine_ = ask(XCB_ATOM_WM_CLIENT_MACHINE, longestText);
}

WindowProperties PropertiesQuery::result() {
  auto& connection = *connection_;
  const Property netName(connection, netName_);
  const Property name(connection, name_);
  const Property windowClass(connection, windowClass_);
  const Property type(connection, type_);
  const Property state(connection, state_);
  const Property shadow(connection, shadow_);
  const Property processID(connection, processID_);
  const Property machine(connection, machine_);

  WindowProperties properties;
  properties.title = titleFrom(connection, netName, name);

  const auto classText = windowClass.text();
  const auto instanceName = untilZero(classText);
  properties.instanceName = utf8FromUnknown(instanceName);
  if (instanceName.size() < classText.size()) {
    properties.className = utf8FromUnknown(untilZero(classText.substr(instanceName.size() + 1)));
  }
  properties.types = type.values();
  const auto states = state.values();
  properties.isAbove =
      std::find(states.begin(), states.end(), connection.atom(Atom::netWmStateAbove)) != states.end();
  if (const auto extents = shadow.values(); extents.size() == properties.shadow.size()) {
    std::copy(extents.begin(), extents.end(), properties.shadow.begin());
  }
  if (const auto ids = processID.values(); !ids.empty() && isThisHost(untilZero(machine.text()))) {
    const auto id = static_cast<std::int32_t>(ids.front());
    properties.processID = id > 0 ? std::optional(id) : std::nullopt;
  }
  return properties;
}

ProcessQuery::ProcessQuery(Connection& connection, const std::vector<xcb_window_t>& windows)
    : connection_(&connection) {
  std::set<std::uint32_t> clients;
  for (const auto window : windows) {
    clients.insert(connection.clientBase(window));
  }
  if (clients.empty() || !connection.extension(Extension::res).isAtLeast(1, 2)) {
    return;
  }
  std::vector<xcb_res_client_id_spec_t> specs;
  specs.reserve(clients.size());
  for (const auto client : clients) {
    specs.push_back({client, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID});
  }
  sequence_ =
      xcb_res_query_client_ids(connection.get(), static_cast<std::uint32_t>(specs.size()), specs.data())
          .sequence;
}

std::map<std::uint32_t, std::int32_t> ProcessQuery::result() {
  std::map<std::uint32_t, std::int32_t> processes;
  if (!sequence_) {
    return processes;
  }
  // Clients that are gone, or not on this machine, are left out, and so are those that the server cannot see
  // from where it runs: the number of all of these is 0.
  const auto reply =
      connection_->reply(xcb_res_query_client_ids_reply, xcb_res_query_client_ids_cookie_t{*sequence_});
  if (!reply) {
    return processes;
  }
  for (auto each = xcb_res_query_client_ids_ids_iterator(reply.get()); each.rem > 0;
       xcb_res_client_id_value_next(&each)) {
    if ((each.data->spec.mask & XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID) == 0 || each.data->length < 4) {
      continue;
    }
    if (const auto process = static_cast<std::int32_t>(*xcb_res_client_id_value_value(each.data));
        process > 0) {
      processes[connection_->clientBase(each.data->spec.client)] = process;
    }
  }
  return processes;
}

} // namespace tessarin::x11
