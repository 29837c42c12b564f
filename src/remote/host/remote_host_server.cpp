#include "remote/host/remote_host_server.h"

#include "platform/queues/mailbox.h"
#include "platform/queues/weakly.h"
#include "remote/host/remote_peers.h"
#include "remote/protocol/remote_crypto.h"

namespace vantrell {

using Phase = RemoteHostState::Phase;

std::string RemoteHostState::label() const {
  switch (phase) {
    case Phase::disabled: return "Off";
    case Phase::starting: return "Starting…";
    case Phase::listening: return "Available on port " + std::to_string(port);
    case Phase::failed: return "Needs attention";
  }
  return {};
}

namespace {

/// Runs its work when the last message that holds it has been taken.
struct Untaken {
  Untaken(MainQueue& mainQueue, Work work) : main(mainQueue), whenTaken(std::move(work)) {}
  ~Untaken() { main.post(std::move(whenTaken)); }
  Untaken(const Untaken&) = delete;
  Untaken& operator=(const Untaken&) = delete;

  MainQueue& main;
  Work whenTaken;
};

}  // namespace

/// The main queue's part.
class RemoteHostServer::Impl : public std::enable_shared_from_this<Impl> {
 public:
  Impl(MainQueue& main, BackgroundPool& pool, Options options, RemoteHostServer& server)
      : main_(main), pool_(pool), options_(std::move(options)), server_(&server) {}

  void start(const std::string& keyData, const std::string& pairingURL, std::uint16_t port) {
    endTurn();
    if (keyData.size() != RemoteCrypto::keySize) {
      return become({.phase = Phase::failed, .message = "Could not create a valid pairing key."});
    }
    become({.phase = Phase::starting});
    if (const auto begun = beginThread(); !begun) return fail(begun.error());
    onThread([turn = turn_, keyData](RemotePeers& peers) { peers.begin(turn, keyData); });
    startRelay(keyData, pairingURL);
    stallTimer_ = main_.every(
        stallLimit, [this] { onThread([](RemotePeers& peers) { peers.dropStalled(); }); });
    auto bound = TcpListener::bind(options_.address, port);
    if (!bound) return fail(bound.error());
    listener_ = std::move(*bound);
    onThread([listener = listener_](RemotePeers& peers) { peers.listen(listener); });
    become({.phase = Phase::listening, .port = listener_->port()});
  }

  void stop() {
    endTurn();
    become({});
  }

  /// The server is being destroyed.
  void end() {
    server_ = nullptr;
    endTurn();
    if (thread_) thread_->end();
  }

  void update(SnapshotJson snapshot) {
    if (!thread_) {
      earlySnapshot_ = std::move(snapshot);
      return;
    }
    onThread([snapshot = std::move(snapshot)](RemotePeers& peers) mutable {
      peers.update(std::move(snapshot));
    });
  }

  void send(RemoteEnvelope envelope, Work whenTaken) {
    std::shared_ptr<void> untaken;
    if (whenTaken) untaken = std::make_shared<Untaken>(main_, std::move(whenTaken));
    if (!thread_) return;
    onThread([envelope = std::move(envelope), untaken](RemotePeers& peers) mutable {
      peers.broadcast(envelope, std::move(untaken));
    });
  }

 private:
  template <typename Body>
  void onThread(Body body) {
    if (!thread_) return;
    thread_->post([peers = peers_, body = std::move(body)]() mutable { body(*peers); });
  }

  std::expected<void, TcpError> beginThread() {
    if (thread_) return {};
    auto started = SocketThread::start();
    if (!started) return std::unexpected(started.error());
    thread_ = std::move(*started);
    if (options_.relayURL) makeRelay();
    peers_ = std::make_shared<RemotePeers>(
        *thread_, RemotePeers::Limits{mostConnections, mostBytes, mostUnsent},
        RemotePeers::Handlers{
            .onCountChange =
                [&main = main_, weak = weak_from_this()](std::size_t count) {
                  main.post([weak, count] {
                    if (const auto self = weak.lock()) self->countPeers(count);
                  });
                },
            .onMessage =
                [mailbox = mailbox_, weak = weak_from_this()](
                    std::uint64_t turn, RemoteEnvelope envelope, std::size_t bytes) {
                  mailbox->deliver(
                      [weak, turn, envelope = std::move(envelope)]() mutable {
                        if (const auto self = weak.lock()) self->deliver(turn, std::move(envelope));
                      },
                      bytes + sizeof(RemoteEnvelope));
                },
            .toRelay =
                [relay = relay_](RemoteOutgoing message) {
                  if (relay) relay->send(std::move(message));
                }});
    mailbox_->whenFullChanges([thread = *thread_, weak = std::weak_ptr(peers_),
                               weakRelay = std::weak_ptr(relay_)](bool isFull) {
      thread.post([weak, isFull] {
        if (const auto peers = weak.lock()) peers->setPaused(isFull);
      });
      if (const auto relay = weakRelay.lock()) relay->setPaused(isFull);
    });
    if (earlySnapshot_) update(std::exchange(earlySnapshot_, nullptr));
    return {};
  }

  void makeRelay() {
    const auto onState = [](Impl& self, const RemoteRelayState& state) {
      if (self.server_ && self.server_->onRelayStateChange) self.server_->onRelayStateChange(state);
    };
    const auto onPeerCount = [](Impl& self, std::int64_t count) {
      self.relayPeerCount_ = count;
      self.onThread([count](RemotePeers& peers) { peers.relayHasClients(count > 0); });
      self.reportCount();
    };
    const auto onReady = [](Impl& self) {
      self.onThread([](RemotePeers& peers) { peers.relayIsReady(); });
    };
    const auto onCode = [](Impl& self, const auto& code, const auto& expiresIn) {
      if (self.server_ && self.server_->onPairingCodeChange) {
        self.server_->onPairingCodeChange(code, expiresIn);
      }
    };
    relay_ = std::make_shared<RemoteRelayClient>(
        main_, pool_, mailbox_,
        RemoteRelayClient::Options{*options_.relayURL, options_.trustedCertificates},
        RemoteRelayClient::Handlers{.onStateChange = weakly(this, onState),
                                    .onPeerCountChange = weakly(this, onPeerCount),
                                    .onReady = weakly(this, onReady),
                                    .onPairingCodeChange = weakly(this, onCode)});
  }

  void startRelay(const std::string& keyData, const std::string& pairingURL) {
    if (!relay_) return;
    relay_->start(keyData, pairingURL,
                  [thread = *thread_, weak = std::weak_ptr(peers_), turn = turn_](
                      RemoteEnvelope envelope, std::size_t bytes) {
                    thread.post([weak, turn, envelope = std::move(envelope), bytes]() mutable {
                      if (const auto peers = weak.lock()) {
                        peers->receive(turn, std::move(envelope), bytes);
                      }
                    });
                  });
  }

  /// No message that is under way now is handed out, since its key may be an old one.
  void endTurn() {
    ++turn_;
    stallTimer_.cancel();
    if (const auto listener = std::exchange(listener_, nullptr)) {
      listener->stopListening();  // the next one may want the same port
    }
    onThread([](RemotePeers& peers) { peers.end(); });
    if (relay_) relay_->stop();
    relayPeerCount_ = 0;
  }

  void fail(const TcpError& error) {
    become({.phase = Phase::failed, .message = error.description});
  }

  void become(RemoteHostState state) {
    main_.post(weakly(this, [state = std::move(state)](Impl& self) {
      if (self.server_ && self.server_->onStateChange) self.server_->onStateChange(state);
    }));
  }

  void countPeers(std::size_t count) {
    peerCount_ = static_cast<std::int64_t>(count);
    reportCount();
  }

  void reportCount() {
    if (server_ && server_->onClientCountChange) {
      server_->onClientCountChange(peerCount_ + relayPeerCount_);
    }
  }

  void deliver(std::uint64_t turn, RemoteEnvelope envelope) {
    if (turn == turn_ && server_ && server_->onMessage) server_->onMessage(std::move(envelope));
  }

  MainQueue& main_;
  BackgroundPool& pool_;
  const Options options_;
  RemoteHostServer* server_;
  const std::shared_ptr<Mailbox> mailbox_ = std::make_shared<Mailbox>(main_);
  std::optional<SocketThread> thread_;        // from the first start, as are the next two
  std::shared_ptr<RemotePeers> peers_;        // the thread's
  std::shared_ptr<RemoteRelayClient> relay_;  // null where there is no relay
  SnapshotJson earlySnapshot_;                // until there is a thread
  std::shared_ptr<TcpListener> listener_;
  Timer stallTimer_;
  std::uint64_t turn_ = 0;  // counts starts and stops
  std::int64_t peerCount_ = 0;
  std::int64_t relayPeerCount_ = 0;
};

RemoteHostServer::RemoteHostServer(MainQueue& main, BackgroundPool& pool, Options options)
    : impl_(std::make_shared<Impl>(main, pool, std::move(options), *this)) {}

RemoteHostServer::~RemoteHostServer() {
  impl_->end();
}

void RemoteHostServer::start(const std::string& keyData, const std::string& pairingURL,
                             std::uint16_t port) {
  impl_->start(keyData, pairingURL, port);
}

void RemoteHostServer::stop() {
  impl_->stop();
}

void RemoteHostServer::update(SnapshotJson snapshot) {
  impl_->update(std::move(snapshot));
}

void RemoteHostServer::update(RemoteSnapshot snapshot) {
  update([snapshot = std::move(snapshot)] { return encodeSnapshot(snapshot); });
}

void RemoteHostServer::send(RemoteEnvelope envelope, Work whenTaken) {
  impl_->send(std::move(envelope), std::move(whenTaken));
}

}  // namespace vantrell
