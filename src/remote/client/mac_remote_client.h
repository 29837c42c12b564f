// Keeps one logical connection from a client to one host, over whichever road works: the host's
// own address first, the relay soon beside it, and again and again until it is told to stop. Knows
// nothing of what the messages mean, acknowledges none and drops no duplicates.
//
// Main queue, from which its callbacks are called too; a callback may call back and may release
// the client. Held by a shared_ptr. While no road is chosen messages are dropped, so that none is
// obeyed long after it was given. Every failure is retried; a wrong key too, which is what a
// changed key of the host looks like.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "remote/client/remote_road.h"

namespace vantrell {

enum class MacRemoteRoute { lan, relay };

struct MacRemoteConnectionState {
  enum class Kind {
    disconnected,    // not running
    connecting,      // a direct attempt has begun
    waitingForHost,  // the relay is reached, the host is not there
    connected,       // messages can flow
    reconnecting,    // the last attempt failed; the next one is scheduled
    failed           // the pairing is unusable; the client itself never reports it
  };
  Kind kind = Kind::disconnected;
  std::optional<MacRemoteRoute> route;  // when connected
  std::string message;                  // when reconnecting or failed, for people

  bool operator==(const MacRemoteConnectionState&) const = default;
};

class MacRemoteClient : public std::enable_shared_from_this<MacRemoteClient> {
 public:
  using State = MacRemoteConnectionState;

  /// The main queue must outlive the pool. `trustedCertificates` as for a WebSocket.
  static std::shared_ptr<MacRemoteClient> make(MainQueue& main, BackgroundPool& pool,
                                               std::string trustedCertificates = {});
  ~MacRemoteClient();

  std::function<void(State)> onStateChange;
  std::function<void()> onReady;  // a road has been chosen
  std::function<void(RemoteEnvelope)> onMessage;

  /// Connects to this host from now on. Ends what ran before without a report.
  void start(MacRemotePairing pairing);
  /// Reports `disconnected`.
  void stop();
  /// Dropped unless a road is chosen, or when it is too long.
  void send(RemoteEnvelope envelope);

  /// After which the relay joins a direct attempt.
  static constexpr std::chrono::milliseconds relayDelay{1500};
  /// From the start of a relay connection to its answer.
  static constexpr std::chrono::seconds relayLimit{15};
  /// Before the next attempt; `failures` in a row, counted from 1.
  static std::chrono::seconds reconnectDelay(int failures);

 private:
  MacRemoteClient(MainQueue& main, BackgroundPool& pool, std::string trustedCertificates);

  void attemptDirect();
  void directReady();
  void directFailed(const std::string& message);
  void beginRelay(const std::string& fallbackError);
  void relayControlled(const RemoteRelayControl& control);
  void selectRelay();
  void relayFailed(const std::string& message);
  void scheduleReconnect(const std::string& message);
  void select(MacRemoteRoute route);
  void cancelDirect();
  void cancelRelay();
  void report(const State& state);
  std::function<void(RemoteEnvelope)> receives();

  MainQueue& main_;
  const RemoteRoad::Options roads_;
  std::optional<MacRemotePairing> pairing_;
  std::shared_ptr<RemoteRoad> directConnection_;  // under way or in use
  std::shared_ptr<RemoteRoad> webSocket_;         // the same, of the relay
  Timer directFallback_;                          // starts the relay
  Timer relayTimeoutWorkItem_;
  Timer reconnectWorkItem_;
  int reconnectAttempt_ = 0;  // failures since the last success
  bool running_ = false;
  std::optional<MacRemoteRoute> route_;  // in use
};

}  // namespace vantrell
