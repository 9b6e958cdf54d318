#include "backends/pipewire/Connection.hpp"

#include <pipewire/extensions/metadata.h>
#include <spa/utils/json.h>
#include <spa/utils/result.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <system_error>
#include <thread>

namespace tessarin::pipewire {

namespace {

// Far longer than any name that a server gives.
constexpr std::size_t longestText = 1024;
// Usually some milliseconds.
constexpr auto contextPatience = std::chrono::milliseconds(1000);

// The library is set up with the first connection and kept: taking it down costs more than the process's end.
// What it has to say would stand among the program's own diagnostics, so that it speaks only when asked to.
void initialiseLibrary() {
  static const bool isInitialised = [] {
    pw_init(nullptr, nullptr);
    if (!std::getenv("PIPEWIRE_DEBUG")) {
      pw_log_set_level(SPA_LOG_LEVEL_NONE);
    }
    return true;
  }();
  static_cast<void>(isInitialised);
}

CaptureDeviceError errorFor(int result) {
  return result == EACCES || result == EPERM ? CaptureDeviceError::denied : CaptureDeviceError::unavailable;
}

const char* text(const spa_dict* properties, const char* key) {
  const auto* found = properties ? spa_dict_lookup(properties, key) : nullptr;
  return found ? found : "";
}

// The name in {"name": "..."}; empty when there is none.
std::string namedIn(const char* value) {
  if (!value) {
    return {};
  }
  spa_json outer{};
  spa_json object{};
  spa_json_init(&outer, value, std::strlen(value));
  if (spa_json_enter_object(&outer, &object) <= 0) {
    return {};
  }
  std::array<char, longestText> key{};
  std::array<char, longestText> name{};
  while (spa_json_get_string(&object, key.data(), key.size()) > 0) {
    if (std::string_view(key.data()) == "name") {
      return spa_json_get_string(&object, name.data(), name.size()) > 0 ? name.data() : std::string();
    }
    const char* skipped = nullptr;
    if (spa_json_next(&object, &skipped) <= 0) {
      break;
    }
  }
  return {};
}

// Making a context may ask the session bus, and waits for it without end, so that it is left to a thread that
// can be left behind.
class ContextMaking {
 public:
  struct Result {
    pw_thread_loop* loop = nullptr; // the caller's, as is
    pw_context* context = nullptr;
  };

  // Both or none.
  static Result run(const char* configuration) {
    const auto making = std::make_shared<ContextMaking>();
    try {
      std::thread([making, configuration] { making->make(configuration); }).detach();
    } catch (const std::system_error&) {
      return {};
    }
    std::unique_lock lock(making->mutex_);
    making->isAbandoned_ =
        !making->done_.wait_for(lock, contextPatience, [&making] { return making->result_.has_value(); });
    return making->isAbandoned_ ? Result() : *making->result_;
  }

 private:
  void make(const char* configuration) {
    Result made;
    made.loop = pw_thread_loop_new("tessarin-sound", nullptr);
    if (made.loop) {
      auto* properties = pw_properties_new(PW_KEY_CONFIG_NAME, configuration, nullptr);
      made.context = pw_context_new(pw_thread_loop_get_loop(made.loop), properties, 0);
    }
    const std::lock_guard lock(mutex_);
    if (isAbandoned_ || !made.context) {
      destroy(made);
      made = {};
    }
    result_ = made;
    done_.notify_one();
  }
  static void destroy(const Result& made) {
    if (made.context) {
      pw_context_destroy(made.context);
    }
    if (made.loop) {
      pw_thread_loop_destroy(made.loop);
    }
  }

  std::mutex mutex_;
  std::condition_variable done_;
  std::optional<Result> result_; // guarded by mutex_, as is
  bool isAbandoned_ = false;
};

} // namespace

struct Connection::Events {
  static Connection& self(void* data) { return *static_cast<Connection*>(data); }

  static void done(void* data, std::uint32_t id, int sequence) { self(data).answered(id, sequence); }
  static void error(void* data, std::uint32_t id, int /*sequence*/, int result, const char* /*message*/) {
    self(data).failed(id, result);
  }
  static void wake(void* data, std::uint64_t /*count*/) {
    for (auto* listener : self(data).listeners_) {
      listener->woken();
    }
  }
  static void global(void* data, std::uint32_t id, std::uint32_t /*permissions*/, const char* type,
                     std::uint32_t /*version*/, const spa_dict* properties) {
    self(data).globalAdded(id, type, properties);
  }
  static void globalRemove(void* data, std::uint32_t id) { self(data).globalRemoved(id); }
  static int property(void* data, std::uint32_t /*subject*/, const char* key, const char* /*type*/,
                      const char* value) {
    self(data).defaultChanged(key, value);
    return 0;
  }

  static const pw_core_events* core() {
    static const pw_core_events events = [] {
      pw_core_events made{};
      made.version = PW_VERSION_CORE_EVENTS;
      made.done = &done;
      made.error = &error;
      return made;
    }();
    return &events;
  }
  static const pw_registry_events* registry() {
    static const pw_registry_events events = {PW_VERSION_REGISTRY_EVENTS, &global, &globalRemove};
    return &events;
  }
  static const pw_metadata_events* metadata() {
    static const pw_metadata_events events = {PW_VERSION_METADATA_EVENTS, &property};
    return &events;
  }
};

Connection::Connection() {
  initialiseLibrary();
  try {
    connect();
    // The first answer comes behind the devices, the second behind the defaults, which are asked for when
    // the object that holds them shows up.
    if (!roundTrip() || !roundTrip()) {
      const std::lock_guard lock(mutex_);
      fail(refusal_.value_or(CaptureDeviceError::unavailable));
    }
  } catch (...) {
    close();
    throw;
  }
}

Connection::~Connection() {
  close();
}

void Connection::connect() {
  // The first has the library ask for a data thread that is served before others; it may not be installed,
  // and those who are asked may not answer.
  auto made = ContextMaking::run("client-rt.conf");
  if (!made.context) {
    made = ContextMaking::run("client.conf");
  }
  loop_.reset(made.loop);
  context_ = made.context;
  wake_ = loop_ ? pw_loop_add_event(loop(), &Events::wake, this) : nullptr;
  if (!context_ || !wake_ || pw_thread_loop_start(loop_.get()) < 0) {
    fail(CaptureDeviceError::unavailable);
  }
  const Lock lock(*this);
  core_ = pw_context_connect(context_, nullptr, 0);
  if (!core_) {
    fail(errorFor(errno));
  }
  pw_core_add_listener(core_, &coreHook_, Events::core(), this);
  watchRegistry();
}

void Connection::watchRegistry() {
  registry_ = pw_core_get_registry(core_, PW_VERSION_REGISTRY, 0);
  if (!registry_) {
    fail(CaptureDeviceError::unavailable);
  }
  pw_registry_add_listener(registry_, &registryHook_, Events::registry(), this);
}

// The loop's thread is ended first, so that nothing is told any more.
void Connection::close() {
  if (!loop_) {
    return;
  }
  pw_thread_loop_stop(loop_.get());
  if (metadata_) {
    pw_proxy_destroy(metadata_);
  }
  if (registry_) {
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry_));
  }
  if (core_) {
    pw_core_disconnect(core_);
  }
  if (context_) {
    pw_context_destroy(context_);
  }
  if (wake_) {
    pw_loop_destroy_source(loop(), wake_);
  }
  loop_.reset();
}

bool Connection::roundTrip(std::chrono::milliseconds limit) {
  int sequence = 0;
  {
    const Lock loopLock(*this);
    if (isLost()) {
      return false;
    }
    sequence = pw_core_sync(core_, PW_ID_CORE, 0);
    if (sequence < 0) {
      return false;
    }
    const std::lock_guard lock(mutex_);
    awaited_.insert(sequence);
  }
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, limit, [&] { return isLost_ || !awaited_.contains(sequence); });
  return awaited_.erase(sequence) == 0 && !isLost_;
}

std::optional<ServerState> Connection::state() {
  if (!roundTrip() || !roundTrip()) {
    return std::nullopt;
  }
  const Lock lock(*this);
  return state_;
}

bool Connection::isLost() const {
  const std::lock_guard lock(mutex_);
  return isLost_;
}

void Connection::addListener(ConnectionListener& listener) {
  listeners_.push_back(&listener);
}

void Connection::removeListener(ConnectionListener& listener) {
  listeners_.erase(std::remove(listeners_.begin(), listeners_.end(), &listener), listeners_.end());
}

void Connection::answered(std::uint32_t id, int sequence) {
  if (id != PW_ID_CORE) {
    return;
  }
  const std::lock_guard lock(mutex_);
  awaited_.erase(sequence);
  changed_.notify_all();
}

// An error of the connection itself ends it; one of an object concerns the object's owner. A message that
// crossed the removal of its object on the way is answered in the connection's name, as not found.
void Connection::failed(std::uint32_t id, int result) {
  if (id != PW_ID_CORE || result == -ENOENT) {
    for (auto* listener : listeners_) {
      listener->serverRefused(errorFor(-result));
    }
    return;
  }
  {
    const std::lock_guard lock(mutex_);
    if (isLost_) {
      return;
    }
    isLost_ = true;
    refusal_ = errorFor(-result);
    changed_.notify_all();
  }
  for (auto* listener : listeners_) {
    listener->connectionLost();
  }
}

void Connection::globalAdded(std::uint32_t id, const char* type, const spa_dict* properties) {
  const std::string_view kind = type;
  if (kind == PW_TYPE_INTERFACE_Node) {
    state_.nodes.push_back({id, text(properties, PW_KEY_NODE_NAME), text(properties, PW_KEY_NODE_DESCRIPTION),
                            text(properties, PW_KEY_NODE_NICK), text(properties, PW_KEY_MEDIA_CLASS),
                            std::atoi(text(properties, PW_KEY_PRIORITY_SESSION))});
  } else if (kind == PW_TYPE_INTERFACE_Metadata && !metadata_ &&
             std::string_view(text(properties, PW_KEY_METADATA_NAME)) == "default") {
    metadata_ = static_cast<pw_proxy*>(pw_registry_bind(registry_, id, type, PW_VERSION_METADATA, 0));
    metadataID_ = id;
    if (metadata_) {
      pw_metadata_add_listener(reinterpret_cast<pw_metadata*>(metadata_), &metadataHook_, Events::metadata(),
                               this);
    }
  }
}

void Connection::globalRemoved(std::uint32_t id) {
  if (metadata_ && id == metadataID_) {
    pw_proxy_destroy(metadata_);
    metadata_ = nullptr;
    defaultChanged(nullptr, nullptr);
    return;
  }
  if (std::erase_if(state_.nodes, [id](const ServerNode& node) { return node.id == id; }) > 0) {
    for (auto* listener : listeners_) {
      listener->nodeRemoved(id);
    }
  }
}

// Without a key, all that was chosen is void.
void Connection::defaultChanged(const char* key, const char* value) {
  const auto takes = [key](std::string_view name) { return !key || name == key; };
  if (takes("default.audio.source")) {
    state_.defaultAudioSource = namedIn(value);
  }
  if (takes("default.audio.sink")) {
    state_.defaultAudioSink = namedIn(value);
  }
  if (takes("default.video.source")) {
    state_.defaultVideoSource = namedIn(value);
  }
}

} // namespace tessarin::pipewire
