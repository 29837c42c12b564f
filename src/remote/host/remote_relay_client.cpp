#include "remote/host/remote_relay_client.h"

#include <algorithm>

#include "platform/queues/weakly.h"
#include "platform/sockets/web_socket.h"
#include "platform/text/text.h"
#include "remote/protocol/frame_reader.h"

namespace vantrell {

using Phase = RemoteRelayState::Phase;

namespace {

constexpr std::size_t longestRelayMessage = 1'000;  // characters that a person is shown
constexpr std::size_t longestCode = 64;             // bytes

std::string textOf(const WebSocketEnd& end) {
  if (end.kind == WebSocketEnd::Kind::closed) {
    return end.closeReason.empty() ? "Connection closed." : end.closeReason;
  }
  return end.description.empty() ? "The internet relay connection ended." : end.description;
}

}  // namespace

/// One connection. Belongs to the queue.
struct RemoteRelayClient::Link : std::enable_shared_from_this<Link> {
  Link(std::weak_ptr<RemoteRelayClient> client, std::shared_ptr<Mailbox> itsMailbox,
       std::string_view keyData, OnMessage handler)
      : owner(std::move(client)),
        mailbox(std::move(itsMailbox)),
        crypto(keyData),
        onMessage(std::move(handler)) {}

  /// Calls the client on the main queue, unless it has another connection by then.
  template <typename Body>
  void tell(std::size_t bytes, Body body) {
    mailbox->deliver(
        [client = owner, link = shared_from_this(), body = std::move(body)]() mutable {
          if (const auto to = client.lock(); to && to->link_ == link) body(*to);
        },
        bytes + sizeof(Link));
  }

  void fail(std::string message) {
    if (std::exchange(hasFailed, true)) return;
    leave();
    tell(message.size(),
         [message = std::move(message)](RemoteRelayClient& client) { client.fail(message); });
  }

  /// Nothing is sent from now on.
  void leave() {
    isReady = false;
    snapshot = nullptr;
    untaken.clear();
  }

  void received(const std::string& text) {
    if (hasFailed) return;
    const auto json = json::parse(text);
    if (!json) return fail("The relay's message cannot be read (" + json.error().message + ").");
    const auto* const control = json->asObject();
    if (!control) return;
    isReady |= json::textOr(*control, "type", "") == "ready";
    tell(text.size(), [control = *control](RemoteRelayClient& client) { client.handle(control); });
  }

  void receivedSealed(const std::string& body) {
    if (hasFailed) return;
    auto envelope = openEnvelope(crypto, body);
    if (!envelope) return fail(envelope.error().description);
    onMessage(std::move(*envelope), body.size());
  }

  void send(RemoteOutgoing message) {
    if (!isReady) return;
    if (message.isSnapshot) {
      if (socket->queuedBytes() > RemoteOutgoing::snapshotLimit) {
        snapshot = std::move(message.json);
        return;
      }
      snapshot = nullptr;
    }
    write(*message.json);
    if (message.untaken) untaken.push_back(std::move(message.untaken));
  }

  void written() {
    if (socket->queuedBytes() > RemoteOutgoing::snapshotLimit) return;
    untaken.clear();
    if (const auto latest = std::exchange(snapshot, nullptr)) write(*latest);
  }

  void write(std::string_view json) {
    auto frame = crypto.seal(json);
    if (!frame) return;  // too large for any client
    frame->erase(0, RemoteCrypto::prefixSize);
    socket->sendBinary(std::move(*frame));
  }

  const std::weak_ptr<RemoteRelayClient> owner;
  const std::shared_ptr<Mailbox> mailbox;
  RemoteCrypto crypto;
  const OnMessage onMessage;
  std::shared_ptr<WebSocket> socket;
  bool isReady = false;  // the relay has said so
  bool hasFailed = false;
  std::shared_ptr<const std::string> snapshot;  // waits until less is queued
  std::vector<std::shared_ptr<void>> untaken;
};

std::chrono::seconds RemoteRelayClient::reconnectDelay(int failures) {
  return std::chrono::seconds(std::min(30, 1 << (std::min(failures, 5) - 1)));
}

RemoteRelayClient::RemoteRelayClient(MainQueue& main, BackgroundPool& pool,
                                     std::shared_ptr<Mailbox> mailbox, Options options,
                                     Handlers handlers)
    : main_(main),
      queue_(pool, "com.local.vantrell.remote-relay"),
      mailbox_(std::move(mailbox)),
      options_(std::move(options)),
      handlers_(std::move(handlers)) {}

void RemoteRelayClient::start(const std::string& keyData,
                              const std::optional<std::string>& pairingLink, OnMessage onMessage) {
  end(1000);
  if (keyData.size() != RemoteCrypto::keySize) {
    return report(Phase::failed, "The relay pairing key is invalid.");
  }
  keyData_ = keyData;
  onMessage_ = std::move(onMessage);
  JsonObject hello{{"version", 1}, {"role", "host"}, {"pairID", RemoteCrypto::pairID(keyData)}};
  if (pairingLink) hello.set("pairingLink", *pairingLink);
  const bool isText = !pairingLink || text::isValidUtf8(*pairingLink);  // writing would repair it
  hello_ = isText ? json::write(hello) : std::string();
  isRunning_ = true;
  failures_ = 0;
  connect();
}

void RemoteRelayClient::stop() {
  end(1000);
  report(Phase::disabled);
}

void RemoteRelayClient::connect() {
  reconnect_.cancel();
  report(Phase::connecting);
  const auto link = std::make_shared<Link>(weak_from_this(), mailbox_, keyData_, onMessage_);
  link_ = link;
  WebSocket::Options options{.trustedCertificates = options_.trustedCertificates};
  options.connectLimit = 2 * handshakeLimit;  // the limit below comes first
  queue_.post([queue = queue_, current = current_, link, url = options_.relayURL,
               options = std::move(options), hello = hello_] {
    current->link = link;
    link->socket = WebSocket::connect(
        queue, url, options,
        {.onOpen =
             [link, hello] {
               if (hello.empty()) return link->fail("Could not prepare the relay handshake.");
               link->socket->sendText(hello);
             },
         .onText = [link](const std::string& text) { link->received(text); },
         .onBinary = [link](const std::string& body) { link->receivedSealed(body); },
         .onWritten = [link] { link->written(); },
         .onEnd = [link](const WebSocketEnd& end) { link->fail(textOf(end)); }});
    link->socket->setPaused(current->isPaused);
  });
  handshake_ = main_.after(
      handshakeLimit, [this] { fail("The internet relay did not respond within 15 seconds."); });
}

void RemoteRelayClient::end(std::uint16_t closeCode) {
  isRunning_ = false;
  reconnect_.cancel();
  handshake_.cancel();
  if (auto link = std::exchange(link_, nullptr)) {
    queue_.post([link, current = current_, closeCode] {
      if (current->link == link) current->link = nullptr;
      link->hasFailed = true;
      link->leave();
      link->socket->close(closeCode);
    });
  }
  reportPeerCount(0);
  reportCode(std::nullopt, std::nullopt);
}

void RemoteRelayClient::fail(std::string message) {
  if (!isRunning_) return;
  end(1001);
  isRunning_ = true;
  report(Phase::waiting, std::move(message));
  reconnect_ = main_.after(reconnectDelay(++failures_), [this] { connect(); });
}

void RemoteRelayClient::handle(const JsonObject& control) {
  const auto type = json::textOr(control, "type", "");
  if (type == "ready") {
    handshake_.cancel();
    failures_ = 0;
    report(Phase::connected);
    main_.post(weakly(this, [](RemoteRelayClient& self) { self.handlers_.onReady(); }));
  } else if (type == "peer_count") {
    const auto count = json::integer(control, "count");
    reportPeerCount(std::max<std::int64_t>(0, count.value_or(0)));
  } else if (type == "pairing_code") {
    const auto* const code = json::text(control, "code");
    if (code && code->size() > longestCode) return;
    reportCode(code ? std::optional(*code) : std::nullopt, json::integer(control, "expiresIn"));
  } else if (type == "error") {
    const auto message = json::textOr(control, "message", "");
    fail(message.empty() ? "The relay rejected the connection."
                         : std::string(text::firstCharacters(message, longestRelayMessage)));
  }
}

void RemoteRelayClient::send(RemoteOutgoing message) {
  queue_.post([current = current_, message = std::move(message)]() mutable {
    if (current->link) current->link->send(std::move(message));
  });
}

void RemoteRelayClient::setPaused(bool isPaused) {
  queue_.post([current = current_, isPaused] {
    current->isPaused = isPaused;
    if (current->link) current->link->socket->setPaused(isPaused);
  });
}

void RemoteRelayClient::report(Phase phase, std::string message) {
  main_.post(weakly(this, [state = RemoteRelayState{phase, std::move(message)}](
                              RemoteRelayClient& self) { self.handlers_.onStateChange(state); }));
}

void RemoteRelayClient::reportPeerCount(std::int64_t count) {
  main_.post(
      weakly(this, [count](RemoteRelayClient& self) { self.handlers_.onPeerCountChange(count); }));
}

void RemoteRelayClient::reportCode(std::optional<std::string> code,
                                   std::optional<std::int64_t> expiresIn) {
  main_.post(weakly(this, [code = std::move(code), expiresIn](RemoteRelayClient& self) {
    self.handlers_.onPairingCodeChange(code, expiresIn);
  }));
}

}  // namespace vantrell
