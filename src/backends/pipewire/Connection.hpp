#pragma once

#include "backends/pipewire/ServerState.hpp"

#include <pipewire/pipewire.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <vector>

// The connection to the PipeWire server on which every stream of this room stands.
namespace tessarin::pipewire {

// Told what happens to the server. On the loop's thread, with the loop locked; must not block, nor destroy
// the connection.
class ConnectionListener {
 public:
  virtual ~ConnectionListener() = default;
  // The server is gone. At most once.
  virtual void connectionLost() = 0;
  // A device has been unplugged.
  virtual void nodeRemoved(std::uint32_t /*nodeID*/) {}
  // The server refused something that one of this connection's streams asked for; it does not say which.
  virtual void serverRefused(CaptureDeviceError /*why*/) {}
  // Somebody has called wakeListeners() since the last time.
  virtual void woken() {}
};

// One connection with a loop thread of its own and the registry of the server's devices. Its methods may be
// called by any thread but the loop's, unless they say otherwise; the last owner lets go on such a thread.
//
// What is made on core() is made, used and destroyed with the loop locked, and its events come on the loop's
// thread with the loop locked. Nobody waits for the server while holding the lock.
class Connection {
 public:
  // How long the server may take to answer.
  static constexpr std::chrono::milliseconds patience = std::chrono::milliseconds(2000);

  // Holds the loop locked; may be nested on one thread.
  class Lock {
   public:
    explicit Lock(const Connection& connection) : loop_(connection.loop_.get()) {
      pw_thread_loop_lock(loop_);
    }
    ~Lock() { pw_thread_loop_unlock(loop_); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

   private:
    pw_thread_loop* loop_;
  };

  // Connects to the server that the environment names, at once refused when there is none, and waits until
  // it has told its devices. Throws Failure<CaptureDeviceError>: denied when the server does not let this
  // session in, unavailable when there is none or it does not answer.
  Connection();
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  pw_core* core() const { return core_; }
  pw_loop* loop() const { return pw_thread_loop_get_loop(loop_.get()); }

  // Whether the server has answered everything that was sent, within the limit.
  bool roundTrip(std::chrono::milliseconds limit = patience);

  // The devices as they are now; nothing when the server does not answer or is gone.
  std::optional<ServerState> state();
  // As last told by the server, which may be some milliseconds old; does not wait. With the loop locked.
  const ServerState& knownState() const { return state_; }

  // Any thread.
  bool isLost() const;

  // Has the listeners told on the loop's thread. Waits for nothing; any thread, also the library's data
  // thread.
  void wakeListeners() const noexcept { pw_loop_signal_event(loop(), wake_); }

  // With the loop locked; the listener outlives its membership. A connection that is lost already tells
  // nothing any more: ask isLost() under the same lock.
  void addListener(ConnectionListener& listener);
  void removeListener(ConnectionListener& listener);

 private:
  struct Events; // the server's, as functions for the library
  struct LoopDeleter {
    void operator()(pw_thread_loop* loop) const { pw_thread_loop_destroy(loop); }
  };

  void connect();
  void close();
  void watchRegistry();
  void answered(std::uint32_t id, int sequence);
  void failed(std::uint32_t id, int result);
  void globalAdded(std::uint32_t id, const char* type, const spa_dict* properties);
  void globalRemoved(std::uint32_t id);
  void defaultChanged(const char* key, const char* value);

  std::unique_ptr<pw_thread_loop, LoopDeleter> loop_;
  // The rest until the mutex: with the loop locked.
  spa_source* wake_ = nullptr;
  pw_context* context_ = nullptr;
  pw_core* core_ = nullptr;
  pw_registry* registry_ = nullptr;
  pw_proxy* metadata_ = nullptr; // the one that holds the defaults
  std::uint32_t metadataID_ = 0;
  spa_hook coreHook_{};
  spa_hook registryHook_{};
  spa_hook metadataHook_{};
  ServerState state_;
  std::vector<ConnectionListener*> listeners_;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  // Guarded by mutex_:
  std::set<int> awaited_;                     // sequences of questions that have not been answered
  bool isLost_ = false;                       // the server is gone
  std::optional<CaptureDeviceError> refusal_; // how it went
};

} // namespace tessarin::pipewire
