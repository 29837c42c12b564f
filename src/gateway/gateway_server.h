// The gateway's HTTP/1.1 server: one request and one response per connection. It knows no routes
// and no keys. Reading, parsing and writing happen on a SerialQueue of its own; everything comes in
// and is handed out on the main queue.
//
// Silent and slow connections are not timed out. Instead at most `mostConnections` are open and at
// most `mostBytes` of unfinished requests are held; beyond that the connection that has been silent
// longest gives way, so that a live one is always served. A response that its caller does not read
// gives way in the same manner, but for the newest one.
#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <string>

#include "gateway/gateway_message.h"
#include "platform/queues/dispatch.h"
#include "platform/sockets/tcp.h"

namespace vantrell {

enum class GatewayReach { localhost, privateNetwork };

class GatewayServer {
 public:
  enum class Phase { stopped, starting, listening, failed };
  struct State {
    Phase phase = Phase::stopped;
    std::string failure;  // a sentence, when failed
    bool operator==(const State&) const = default;
  };
  /// To be called once, on any thread. If it is dropped, the caller gets status 503.
  using Respond = std::move_only_function<void(GatewayResponse)>;

  static constexpr std::size_t mostConnections = 256;
  static constexpr std::size_t mostBytes = std::size_t{64} << 20;

  GatewayServer(MainQueue& main, BackgroundPool& pool);
  /// Ends the listener and all connections.
  ~GatewayServer();
  GatewayServer(const GatewayServer&) = delete;
  GatewayServer& operator=(const GatewayServer&) = delete;

  std::function<void(GatewayRequest, Respond)> onRequest;
  std::function<void()> onStateChange;

  /// Replaces an earlier listener. Port 0 means any free one. A failure is also the new state.
  std::expected<void, TcpError> start(GatewayReach reach, std::uint16_t port);
  /// Connections whose request is not complete are closed; the others get their response.
  void stop();
  const State& state() const { return state_; }
  /// 0 unless it listens.
  std::uint16_t port() const;

 private:
  class Connections;
  void become(State state);
  void serve(GatewayRequest request, Respond respond);

  MainQueue& main_;
  const std::shared_ptr<Connections> connections_;
  std::shared_ptr<TcpListener> listener_;
  State state_;
  /// Gone with the server; what comes later from the queue is for nobody.
  std::shared_ptr<GatewayServer*> self_ = std::make_shared<GatewayServer*>(this);
};

}  // namespace vantrell
