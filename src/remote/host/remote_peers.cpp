#include "remote/host/remote_peers.h"

#include <algorithm>

#include "platform/queues/weakly.h"
#include "remote/protocol/frame_reader.h"

namespace vantrell {

struct RemotePeers::Peer {
  Peer(std::shared_ptr<TcpConnection> connection, std::string_view keyData)
      : tcp(std::move(connection)), reader(keyData), crypto(keyData) {}

  std::size_t held() const { return received + unsent; }

  const std::shared_ptr<TcpConnection> tcp;
  FrameReader reader;
  RemoteCrypto crypto;       // for sealing
  std::size_t received = 0;  // bytes that are no message yet
  std::size_t unsent = 0;    // bytes
  bool isOpen = true;
  bool isProven = false;  // has sent a message that was not sent before
  bool wantsSnapshot = false;
  bool hasTaken = false;    // some of what was sent, since the last look
  bool wasWaiting = false;  // at the last look
};

RemotePeers::RemotePeers(const SocketThread& thread, Limits limits, Handlers handlers)
    : thread_(thread), limits_(limits), handlers_(std::move(handlers)) {}

void RemotePeers::begin(std::uint64_t turn, std::string keyData) {
  end();
  turn_ = turn;
  keyData_ = std::move(keyData);
}

void RemotePeers::listen(std::shared_ptr<TcpListener> listener) {
  listener_ = std::move(listener);
  const auto onConnection = [](RemotePeers& self, std::shared_ptr<TcpConnection> tcp) {
    self.accept(std::move(tcp));
  };
  listener_->start(thread_, {.onConnection = weakly(this, onConnection),
                             .onSocket = {},
                             .onExhausted = weakly(
                                 this, [](RemotePeers& self) { self.closeOldestUnproven(); })});
}

void RemotePeers::end() {
  turn_ = 0;
  keyData_.clear();
  relayWantsSnapshots_ = false;
  if (const auto listener = std::exchange(listener_, nullptr)) listener->close();
  while (!peers_.empty()) close(peers_.front());
  handlers_.onCountChange(0);
}

/// What a connection's handler does, while both it and this live.
template <typename Body>
auto RemotePeers::ifOpen(const PeerPtr& peer, Body body) {
  return weakly(this, [weak = std::weak_ptr(peer), body](RemotePeers& self, auto&&... arguments) {
    if (const auto open = weak.lock(); open && open->isOpen) body(self, open, arguments...);
  });
}

void RemotePeers::accept(std::shared_ptr<TcpConnection> tcp) {
  if (peers_.size() >= limits_.connections && !closeOldestUnproven()) return tcp->close();
  const auto peer = std::make_shared<Peer>(std::move(tcp), keyData_);
  peers_.push_back(peer);
  handlers_.onCountChange(peers_.size());
  const auto onReceive = [](RemotePeers& self, const PeerPtr& from, std::string_view bytes) {
    self.received(from, bytes);
  };
  const auto onEnd = [](RemotePeers& self, const PeerPtr& from, const auto&) { self.close(from); };
  peer->tcp->start({.onReceive = ifOpen(peer, onReceive), .onEnd = ifOpen(peer, onEnd)});
  if (isPaused_) peer->tcp->stopReading();
  sendSnapshot(peer);
}

void RemotePeers::received(const PeerPtr& from, std::string_view bytes) {
  from->reader.append(bytes);
  while (from->isOpen) {
    auto next = from->reader.next();
    if (!next) return close(from);
    if (!*next) break;
    auto& envelope = **next;
    if (!pass(envelope)) continue;
    from->isProven = true;
    handlers_.onMessage(turn_, std::move(envelope), bytes.size());
  }
  if (!from->isOpen) return;
  heldBytes_ -= std::exchange(from->received, from->reader.heldBytes());
  heldBytes_ += from->received;
  keepBounds();
}

void RemotePeers::receive(std::uint64_t turn, RemoteEnvelope envelope, std::size_t bytes) {
  if (turn == turn_ && pass(envelope)) handlers_.onMessage(turn, std::move(envelope), bytes);
}

bool RemotePeers::pass(const RemoteEnvelope& envelope) {
  return envelope.version == RemoteEnvelope::currentVersion &&
         recentMessageIDs_.insert(envelope.id);
}

void RemotePeers::update(SnapshotJson snapshot) {
  snapshotID_ = RemoteEnvelope::make(RemoteMessageType::snapshot).id;
  snapshot_ = std::move(snapshot);
  latestSnapshot_ = nullptr;
  for (const auto& peer : std::vector(peers_.begin(), peers_.end())) sendSnapshot(peer);
  if (relayWantsSnapshots_) sendSnapshotToRelay();
}

std::shared_ptr<const std::string> RemotePeers::snapshotJson() {
  if (snapshot_) {
    latestSnapshot_ = std::make_shared<const std::string>(
        encodeSnapshotEnvelope(snapshotID_, std::exchange(snapshot_, nullptr)()));
  }
  return latestSnapshot_;
}

void RemotePeers::sendSnapshot(const PeerPtr& to) {
  to->wantsSnapshot = to->unsent > RemoteOutgoing::snapshotLimit;
  if (to->wantsSnapshot) return;
  if (auto json = snapshotJson()) send(to, {.json = std::move(json), .untaken = {}});
}

void RemotePeers::sendSnapshotToRelay() {
  if (auto json = snapshotJson()) {
    handlers_.toRelay({.json = std::move(json), .isSnapshot = true, .untaken = {}});
  }
}

void RemotePeers::broadcast(const RemoteEnvelope& envelope, std::shared_ptr<void> untaken) {
  const RemoteOutgoing message{.json = std::make_shared<const std::string>(encode(envelope)),
                               .untaken = std::move(untaken)};
  for (const auto& peer : std::vector(peers_.begin(), peers_.end())) send(peer, message);
  handlers_.toRelay(message);
}

void RemotePeers::send(const PeerPtr& to, const RemoteOutgoing& message) {
  if (!to->isOpen) return;
  auto frame = to->crypto.seal(*message.json);
  if (!frame) return;  // too large for any client
  if (to->unsent > 0 && to->unsent + frame->size() > limits_.unsentBytes) return close(to);
  to->unsent += frame->size();
  heldBytes_ += frame->size();
  const auto onSent = [untaken = message.untaken](RemotePeers& self, const PeerPtr& peer,
                                                  std::size_t bytes) { self.sent(peer, bytes); };
  to->tcp->send(std::move(*frame), ifOpen(to, onSent));
  keepBounds();
}

void RemotePeers::sent(const PeerPtr& to, std::size_t bytes) {
  to->unsent -= bytes;
  heldBytes_ -= bytes;
  to->hasTaken = true;
  if (!to->wantsSnapshot || to->unsent > RemoteOutgoing::snapshotLimit) return;
  to->wantsSnapshot = false;
  // Later, since the connection is in the middle of writing.
  const auto latest = [](RemotePeers& self, const PeerPtr& peer) { self.sendSnapshot(peer); };
  thread_.post(ifOpen(to, latest));
}

void RemotePeers::close(const PeerPtr& peer) {
  if (!peer->isOpen) return;
  const auto kept = peer;  // the list may hold the last reference
  kept->isOpen = false;
  heldBytes_ -= kept->held();
  std::erase(peers_, kept);
  kept->tcp->close();
  handlers_.onCountChange(peers_.size());
}

bool RemotePeers::closeOldestUnproven() {
  const auto oldest =
      std::ranges::find_if(peers_, [](const PeerPtr& peer) { return !peer->isProven; });
  if (oldest == peers_.end()) return false;
  close(*oldest);
  return true;
}

void RemotePeers::keepBounds() {
  while (heldBytes_ > limits_.bytes) {
    const auto worst = std::ranges::max_element(peers_, {}, [](const PeerPtr& peer) {
      return std::pair(!peer->isProven && peer->held() > 0, peer->held());
    });
    close(*worst);
  }
}

void RemotePeers::relayIsReady() {
  relayWantsSnapshots_ = true;
  sendSnapshotToRelay();
}

void RemotePeers::relayHasClients(bool hasClients) {
  const bool hadClients = std::exchange(relayWantsSnapshots_, hasClients);
  if (hasClients && !hadClients) sendSnapshotToRelay();
}

void RemotePeers::setPaused(bool isPaused) {
  isPaused_ = isPaused;
  for (const auto& peer : peers_) {
    isPaused ? peer->tcp->stopReading() : peer->tcp->resumeReading();
  }
}

void RemotePeers::dropStalled() {
  for (const auto& peer : std::vector(peers_.begin(), peers_.end())) {
    if (peer->wasWaiting && peer->unsent > 0 && !peer->hasTaken) close(peer);
    peer->wasWaiting = peer->unsent > 0;
    peer->hasTaken = false;
  }
}

}  // namespace vantrell
