// The relay's sockets: a WebSocketListener and the connections of hosts and clients, all on one
// SerialQueue, for which RelayRooms decides. Operations are called on the main queue.
#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/queues/dispatch.h"
#include "platform/sockets/web_socket.h"
#include "relay/relay_rooms.h"

namespace vantrell::relay {

class RelayServer {
 public:
  struct Options {
    std::string address = "127.0.0.1";
    std::uint16_t port = 8443;
    std::optional<TlsIdentity> identity;
    /// Whether connections come from a proxy, which names the real address in X-Forwarded-For.
    bool trustsProxy = false;
    RelayRooms::Limits limits;
  };
  static constexpr std::string_view path = "/remote/connect";

  /// The error is a sentence. `onTrouble` gets one, too, on any thread; never an address, a pair or
  /// a code.
  static std::expected<std::shared_ptr<RelayServer>, std::string> start(
      MainQueue& main, BackgroundPool& pool, Options options,
      std::function<void(std::string)> onTrouble);
  virtual ~RelayServer() = default;

  virtual std::uint16_t port() const = 0;
  virtual void setIdentity(TlsIdentity identity) = 0;
  /// Closes all connections with code 1001; `onStopped` is called on the main queue once they have
  /// ended, or a few seconds have passed.
  virtual void stop(std::function<void()> onStopped) = 0;
};

/// The address that counts for the limits: the one that the proxy has added last, if proxies are
/// trusted and it is an address; else that of the connection.
std::string clientAddress(const WebSocketRequest& request, bool trustsProxy);

}  // namespace vantrell::relay
