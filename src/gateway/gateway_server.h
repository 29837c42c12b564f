// The gateway's HTTP/1.1 server: one request and one response per connection. It knows no routes
// and no keys. Reading, parsing and writing happen on a thread of its own, which also waits for the
// sockets; requests and states are handed out on the main queue, where all of its operations are
// called.
//
// Silent and slow connections are not timed out. Instead at most `mostConnections` are open, and at
// most `mostBytes` of unfinished requests and `mostResponseBytes` of unread responses are held;
// beyond that the connection that has been silent longest gives way, so that a live one is always
// served. Where the caller may still be sending, the connection stays open for a while after its
// response, since closing it would reset it and could lose the response.
#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <string>

#include "gateway/gateway_message.h"
#include "platform/queues/dispatch.h"
#include "platform/sockets/tcp.h"

namespace vantrell {

class GatewayServer {
 public:
  enum class Phase { stopped, starting, listening, failed };
  struct State {
    Phase phase = Phase::stopped;
    std::string failure;  // a sentence, when failed
    bool operator==(const State&) const = default;
  };
  /// To be called once, on any thread. When all copies are gone without a call, the caller gets
  /// status 503.
  using Respond = std::function<void(GatewayResponse)>;

  static constexpr std::size_t mostConnections = 256;
  static constexpr std::size_t mostBytes = std::size_t{64} << 20;
  static constexpr std::size_t mostResponseBytes = std::size_t{128} << 20;

  /// How long the end waits until callers have taken their responses.
  static constexpr std::chrono::seconds endLimit{1};

  explicit GatewayServer(MainQueue& main);
  /// Ends the listener and all connections. Requests without a response get status 503; the wait
  /// for that is bounded by `endLimit`.
  ~GatewayServer();
  GatewayServer(const GatewayServer&) = delete;
  GatewayServer& operator=(const GatewayServer&) = delete;

  /// Without it every request gets status 503.
  std::function<void(GatewayRequest, Respond)> onRequest;
  /// Never from inside start() or stop().
  std::function<void()> onStateChange;

  /// Listens on exactly this IPv4 address, in place of an earlier listener. Port 0 means any free
  /// one. A failure is also the next state.
  std::expected<void, TcpError> start(const std::string& address, std::uint16_t port);
  /// Connections whose request is not complete are closed; the others get their response.
  void stop();
  const State& state() const;
  /// 0 unless there is a listener.
  std::uint16_t port() const;

 private:
  class Impl;
  const std::shared_ptr<Impl> impl_;
};

/// The response as it is sent. CR, LF and other control characters are left out of header values,
/// so that no value can add a header.
std::string httpText(const GatewayResponse& response);

}  // namespace vantrell
