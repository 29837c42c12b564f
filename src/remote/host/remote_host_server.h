// The network end of a host: a listener for direct clients, the connection to the relay for those
// that come over the internet, and the latest snapshot. It moves sealed messages and knows nothing
// of tasks. A direct client needs no log-in: a frame that does not open under the pairing key ends
// its connection. Main queue; encoding, sealing and reading happen on a thread of its own.
//
// Whoever can reach the port can make it hold memory, with the key or without: at most
// `mostConnections` are open and `mostBytes` held for them. Beyond that the oldest connection gives
// way that has not sent a message of its own, else the one for which most is held.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/queues/dispatch.h"
#include "platform/values/url.h"
#include "remote/host/remote_output.h"
#include "remote/host/remote_relay_client.h"

namespace vantrell {

struct RemoteHostState {
  enum class Phase { disabled, starting, listening, failed };
  Phase phase = Phase::disabled;
  std::uint16_t port = 0;  // when listening
  std::string message;     // a sentence, when failed

  std::string label() const;
  bool operator==(const RemoteHostState&) const = default;
};

class RemoteHostServer final : public RemoteOutput {
 public:
  static constexpr std::uint16_t defaultPort = 43765;
  static constexpr std::size_t mostConnections = 64;
  /// Of what has been received and is no message yet, and of what waits to be written.
  static constexpr std::size_t mostBytes = std::size_t{256} << 20;
  /// Bytes that may wait to be written to one client. One message always fits.
  static constexpr std::size_t mostUnsent = std::size_t{64} << 20;
  /// A client that takes nothing for this long while something waits is dropped, at most twice as
  /// late.
  static constexpr std::chrono::seconds stallLimit{30};

  struct Options {
    std::string address = "0.0.0.0";  // numeric; links name IPv4 addresses
    std::optional<Url> relayURL;      // absent: direct clients only
    std::string trustedCertificates;  // of the relay, as for a WebSocket
  };
  /// JSON of a snapshot. Called at most once, and not at all if a newer one comes before a client
  /// needs it. Not on the main queue, so it owns all that it reads.
  using SnapshotJson = std::move_only_function<std::string()>;

  /// The main queue must outlive the pool and this.
  RemoteHostServer(MainQueue& main, BackgroundPool& pool, Options options);
  ~RemoteHostServer() override;
  RemoteHostServer(const RemoteHostServer&) = delete;
  RemoteHostServer& operator=(const RemoteHostServer&) = delete;

  // All on the main queue and never from inside an operation.
  std::function<void(const RemoteHostState&)> onStateChange;
  std::function<void(const RemoteRelayState&)> onRelayStateChange;
  /// Direct clients and those that the relay reports.
  std::function<void(std::int64_t)> onClientCountChange;
  /// Each message once, in the order of its connection. None of an earlier key after start().
  std::function<void(RemoteEnvelope)> onMessage;
  /// The short code and the seconds until it expires; absent where the relay gives none.
  std::function<void(std::optional<std::string>, std::optional<std::int64_t>)> onPairingCodeChange;

  /// Ends all clients, and listens and connects to the relay with this key. `pairingURL` is the
  /// link that the relay hands out. A port that cannot be had fails the listener, not the relay;
  /// nothing tries it again. The latest snapshot stays.
  void start(const std::string& keyData, const std::string& pairingURL,
             std::uint16_t port = defaultPort);
  void stop();
  /// The state that every client is to see from now on.
  void update(SnapshotJson snapshot);
  void update(RemoteSnapshot snapshot);
  using RemoteOutput::send;
  void send(RemoteEnvelope envelope, Work whenTaken) override;

 private:
  class Impl;
  const std::shared_ptr<Impl> impl_;
};

}  // namespace vantrell
