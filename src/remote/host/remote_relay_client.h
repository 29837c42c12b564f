// A host's connection to the relay, over which clients reach it from the internet. It connects
// again after every failure for as long as it runs. The relay passes sealed messages on unread and
// is not trusted with anything else, with one exception: to issue a short code it needs the pairing
// link, which holds the key, because it gives that link to the client that sends the code.
//
// Operations on the main queue unless they say otherwise. What comes is handed out through the
// owner's mailbox; while that is full, nothing is read.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/queues/dispatch.h"
#include "platform/queues/mailbox.h"
#include "platform/values/json.h"
#include "platform/values/url.h"
#include "remote/protocol/remote_envelope.h"

namespace vantrell {

struct RemoteRelayState {
  enum class Phase { disabled, connecting, connected, waiting, failed };
  Phase phase = Phase::disabled;
  std::string message;  // a sentence, when waiting or failed

  bool operator==(const RemoteRelayState&) const = default;
};

/// A message that goes to several clients, encoded once. Each connection seals it for itself.
struct RemoteOutgoing {
  /// Bytes: a connection on which more waits to be written gets no snapshot until it has caught up.
  static constexpr std::size_t snapshotLimit = std::size_t{256} << 10;

  std::shared_ptr<const std::string> json;
  /// Only the latest matters.
  bool isSnapshot = false;
  /// Released when the message has been written, or nearly, or will not be; may be absent.
  std::shared_ptr<void> untaken;
};

class RemoteRelayClient : public std::enable_shared_from_this<RemoteRelayClient> {
 public:
  struct Options {
    Url relayURL;
    std::string trustedCertificates;  // as for a WebSocket
  };
  struct Handlers {  // all present
    // On the main queue, never from inside an operation.
    std::function<void(const RemoteRelayState&)> onStateChange;
    std::function<void(std::int64_t)> onPeerCountChange;
    std::function<void()> onReady;
    std::function<void(std::optional<std::string>, std::optional<std::int64_t>)>
        onPairingCodeChange;
  };
  /// On the connection's queue, in order, with the size of the message in bytes.
  using OnMessage = std::function<void(RemoteEnvelope, std::size_t)>;

  /// From the start of an attempt until the relay is ready.
  static constexpr std::chrono::seconds handshakeLimit{15};
  /// After the n-th failure in a row, n from 1: 1, 2, 4, 8, 16, 16 ...
  static std::chrono::seconds reconnectDelay(int failures);

  RemoteRelayClient(MainQueue& main, BackgroundPool& pool, std::shared_ptr<Mailbox> mailbox,
                    Options options, Handlers handlers);

  /// In place of an earlier connection, which ends. `onMessage` gets what was sealed with this key.
  void start(const std::string& keyData, const std::optional<std::string>& pairingLink,
             OnMessage onMessage);
  /// Must be called before the last reference goes.
  void stop();
  /// Any thread. Dropped unless the relay is ready; nothing is kept for later.
  void send(RemoteOutgoing message);
  /// While paused nothing is read. Any thread.
  void setPaused(bool isPaused);

 private:
  struct Link;
  /// What belongs to the queue.
  struct Current {
    std::shared_ptr<Link> link;
    bool isPaused = false;
  };

  void connect();
  void end(std::uint16_t closeCode);
  void fail(std::string message);
  void handle(const JsonObject& control);
  void report(RemoteRelayState::Phase phase, std::string message = {});
  void reportPeerCount(std::int64_t count);
  void reportCode(std::optional<std::string> code, std::optional<std::int64_t> expiresIn);

  MainQueue& main_;
  const SerialQueue queue_;
  const std::shared_ptr<Mailbox> mailbox_;
  const Options options_;
  const Handlers handlers_;
  const std::shared_ptr<Current> current_ = std::make_shared<Current>();
  std::shared_ptr<Link> link_;  // null while there is no attempt
  std::string keyData_;
  std::string hello_;  // what each connection says first; empty if it cannot be said
  OnMessage onMessage_;
  bool isRunning_ = false;
  int failures_ = 0;  // since the last time the relay was ready
  Timer reconnect_;
  Timer handshake_;
};

}  // namespace vantrell
