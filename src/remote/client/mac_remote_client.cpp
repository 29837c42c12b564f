#include "remote/client/mac_remote_client.h"

#include <algorithm>

#include "platform/queues/weakly.h"

namespace vantrell {

using Kind = MacRemoteConnectionState::Kind;

namespace {

/// Callbacks are copied before they are called: the owner may replace them, or release the client.
template <typename Callback, typename... Arguments>
void call(Callback callback, Arguments&&... arguments) {
  if (callback) callback(std::forward<Arguments>(arguments)...);
}

}  // namespace

std::shared_ptr<MacRemoteClient> MacRemoteClient::make(MainQueue& main, BackgroundPool& pool,
                                                       std::string trustedCertificates) {
  return std::shared_ptr<MacRemoteClient>(
      new MacRemoteClient(main, pool, std::move(trustedCertificates)));
}

MacRemoteClient::MacRemoteClient(MainQueue& main, BackgroundPool& pool,
                                 std::string trustedCertificates)
    : main_(main),
      roads_{main, SerialQueue(pool, "com.local.vantrell.remote-client"),
             std::move(trustedCertificates)} {}

MacRemoteClient::~MacRemoteClient() {
  cancelDirect();
  cancelRelay();
}

void MacRemoteClient::start(MacRemotePairing pairing) {
  pairing_ = std::move(pairing);
  running_ = true;
  reconnectAttempt_ = 0;
  attemptDirect();
}

void MacRemoteClient::stop() {
  running_ = false;
  route_ = std::nullopt;
  reconnectWorkItem_.cancel();
  cancelDirect();
  cancelRelay();
  pairing_ = std::nullopt;
  report({});
}

void MacRemoteClient::send(RemoteEnvelope envelope) {
  if (!route_) return;
  (*route_ == MacRemoteRoute::lan ? directConnection_ : webSocket_)->send(std::move(envelope));
}

std::chrono::seconds MacRemoteClient::reconnectDelay(int failures) {
  return std::chrono::seconds(std::min(30, 1 << (std::min(failures, 5) - 1)));
}

void MacRemoteClient::attemptDirect() {
  if (!running_ || !pairing_) return;
  reconnectWorkItem_.cancel();
  cancelDirect();
  cancelRelay();
  route_ = std::nullopt;
  directConnection_ = RemoteRoad::direct(
      roads_, *pairing_,
      {.onOpen = weakly(this, [](MacRemoteClient& client) { client.directReady(); }),
       .onControl = nullptr,
       .onMessage = receives(),
       .onEnd = weakly(this, [](MacRemoteClient& client, const MacRemoteTransportError& error) {
         client.directFailed(error.message);
       })});
  directFallback_ =
      main_.after(relayDelay, weakly(this, [](MacRemoteClient& client) { client.beginRelay(""); }));
  report({Kind::connecting, std::nullopt, ""});
}

void MacRemoteClient::directReady() {
  if (route_) return;
  cancelRelay();
  select(MacRemoteRoute::lan);
}

void MacRemoteClient::directFailed(const std::string& message) {
  cancelDirect();
  if (route_ == MacRemoteRoute::lan) route_ = std::nullopt;
  if (!webSocket_) beginRelay(message);
}

void MacRemoteClient::beginRelay(const std::string& fallbackError) {
  if (!running_ || route_) return;
  if (!pairing_->relayURL) {
    return scheduleReconnect(fallbackError.empty()
                                 ? "The pairing link does not include an automatic relay."
                                 : fallbackError);
  }
  if (webSocket_) return;
  webSocket_ = RemoteRoad::relay(
      roads_, *pairing_,
      {.onOpen = nullptr,
       .onControl =
           weakly(this, [](MacRemoteClient& client,
                           const RemoteRelayControl& control) { client.relayControlled(control); }),
       .onMessage = receives(),
       .onEnd = weakly(this, [](MacRemoteClient& client, const MacRemoteTransportError& error) {
         client.relayFailed(error.message);
       })});
  relayTimeoutWorkItem_ = main_.after(relayLimit, weakly(this, [](MacRemoteClient& client) {
                                        if (client.route_) return;
                                        client.relayFailed(
                                            "The internet relay did not respond within 15 "
                                            "seconds.");
                                      }));
}

std::function<void(RemoteEnvelope)> MacRemoteClient::receives() {
  return weakly(this, [](MacRemoteClient& client, RemoteEnvelope envelope) {
    call(client.onMessage, std::move(envelope));
  });
}

void MacRemoteClient::relayControlled(const RemoteRelayControl& control) {
  using Control = RemoteRelayControl::Kind;
  if (control.isReady) relayTimeoutWorkItem_.cancel();
  switch (control.kind) {
    case Control::hostOnline: return selectRelay();
    case Control::hostOffline:
      if (route_ == MacRemoteRoute::relay) route_ = std::nullopt;
      return report({Kind::waitingForHost, std::nullopt, ""});
    case Control::error: return relayFailed(control.message);
    case Control::other: return;
  }
}

void MacRemoteClient::selectRelay() {
  relayTimeoutWorkItem_.cancel();
  cancelDirect();
  select(MacRemoteRoute::relay);
}

void MacRemoteClient::select(MacRemoteRoute route) {
  directFallback_.cancel();
  reconnectWorkItem_.cancel();
  reconnectAttempt_ = 0;
  route_ = route;
  report({Kind::connected, route, ""});
  if (route_ == route) call(onReady);  // the owner may have stopped
}

void MacRemoteClient::relayFailed(const std::string& message) {
  if (route_ == MacRemoteRoute::relay) route_ = std::nullopt;
  cancelRelay();
  scheduleReconnect(message);
}

void MacRemoteClient::scheduleReconnect(const std::string& message) {
  ++reconnectAttempt_;
  reconnectWorkItem_ =
      main_.after(reconnectDelay(reconnectAttempt_),
                  weakly(this, [](MacRemoteClient& client) { client.attemptDirect(); }));
  report({Kind::reconnecting, std::nullopt, message});
}

void MacRemoteClient::cancelDirect() {
  directFallback_.cancel();
  if (const auto road = std::exchange(directConnection_, nullptr)) road->close();
}

void MacRemoteClient::cancelRelay() {
  relayTimeoutWorkItem_.cancel();
  if (const auto road = std::exchange(webSocket_, nullptr)) road->close();
}

void MacRemoteClient::report(const State& state) {
  call(onStateChange, state);
}

}  // namespace vantrell
