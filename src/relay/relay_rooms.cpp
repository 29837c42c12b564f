#include "relay/relay_rooms.h"

#include <algorithm>
#include <array>

#include "platform/crypto/crypto.h"
#include "relay/relay_message.h"

namespace vantrell::relay {

namespace {

constexpr std::uint16_t normalClose = 1000;
constexpr std::uint16_t policyClose = 1008;

/// Each character is equally likely: bytes that would favour some are drawn again.
std::string randomCode() {
  constexpr auto count = RelayRooms::codeAlphabet.size();
  constexpr auto usable = 256 / count * count;
  std::string code;
  while (code.size() < RelayRooms::codeLength) {
    std::array<std::byte, 16> random{};
    crypto::fillRandom(random);
    for (const auto each : random) {
      const auto value = std::to_integer<std::size_t>(each);
      if (value < usable && code.size() < RelayRooms::codeLength) {
        code += RelayRooms::codeAlphabet[value % count];
      }
    }
  }
  return code;
}

}  // namespace

RelayRooms::RelayRooms(Connections& connections, const Limits& limits)
    : connections_(connections), limits_(limits), addresses_(limits.addresses) {}

void RelayRooms::opened(PeerID peer, std::string address, Duration now) {
  addresses_.opened(address, now);
  peers_[peer] = {.address = std::move(address), .helloEnds = now + limits_.helloTime};
}

void RelayRooms::receivedText(PeerID peer, std::string_view text, Duration now) {
  const auto found = peers_.find(peer);
  // Ends of a pair have nothing more to say to the relay.
  if (found == peers_.end() || !found->second.pairID.empty()) return;
  auto hello = readHello(text);
  if (!hello) return refuse(peer, hello.error());
  switch (hello->role) {
    case Hello::Role::host: return joinAsHost(peer, hello->pairID, hello->pairingLink, now);
    case Hello::Role::client: return joinAsClient(peer, hello->pairID);
    case Hello::Role::resolve: return resolve(peer, hello->code, now);
  }
}

RelayRooms::Pair* RelayRooms::pairFor(const std::string& pairID) {
  if (pairs_.size() >= limits_.pairs && !pairs_.contains(pairID)) return nullptr;
  return &pairs_[pairID];
}

void RelayRooms::joinAsHost(PeerID peer, const std::string& pairID, std::string link,
                            Duration now) {
  Pair* const pair = pairFor(pairID);
  if (!pair) return refuse(peer, "The relay serves too many pairs at the moment. Try again later.");
  if (const auto before = pair->host) {
    // Mostly the same host, whose connection broke without a word. The pair lives on.
    pair->host = peer;
    refuse(*before, "The host has connected again from elsewhere.");
  }
  pair->host = peer;
  peers_[peer].pairID = pairID;
  peers_[peer].isHost = true;
  connections_.admit(peer);
  connections_.sendText(peer, hostReadyText());
  connections_.sendText(peer, peerCountText(pair->clients.size()));
  pair->link = std::move(link);
  giveNewCode(pairID, *pair, now);
  for (const auto client : pair->clients) connections_.sendText(client, hostOnlineText());
  balance(*pair);
}

void RelayRooms::joinAsClient(PeerID peer, const std::string& pairID) {
  Pair* const pair = pairFor(pairID);
  if (!pair) return refuse(peer, "The relay serves too many pairs at the moment. Try again later.");
  if (pair->clients.size() >= limits_.clientsPerPair) {
    return refuse(peer, "Too many clients are connected to this host.");
  }
  pair->clients.push_back(peer);
  peers_[peer].pairID = pairID;
  connections_.admit(peer);
  connections_.sendText(peer, clientReadyText(pair->host.has_value()));
  if (!pair->host) return;
  connections_.sendText(*pair->host, peerCountText(pair->clients.size()));
  balance(*pair);
}

void RelayRooms::resolve(PeerID peer, const std::string& code, Duration now) {
  const std::string address = peers_[peer].address;
  switch (addresses_.mayGuess(address, now)) {
    case AddressLimits::Guess::allowed: break;
    case AddressLimits::Guess::tooManyOfAddress:
      return refuse(peer,
                    "Too many wrong pairing codes came from your address. Try again in 10 "
                    "minutes, or use the pairing link.");
    case AddressLimits::Guess::tooManyInAll:
      return refuse(peer,
                    "Too many pairing codes are being tried at the moment. Try again in a "
                    "minute, or use the pairing link.");
  }
  const auto found = codes_.find(code);
  if (found == codes_.end() || pairs_[found->second].codeEnds <= now) {
    addresses_.guessedWrong(address, now);
    return refuse(peer,
                  "This pairing code is not known. It may have expired or been used: enter "
                  "the one that the host shows now.");
  }
  const std::string pairID = found->second;
  Pair& pair = pairs_[pairID];
  connections_.sendText(peer, pairingLinkText(pair.link));
  forget(peer);
  connections_.close(peer, normalClose);
  giveNewCode(pairID, pair, now);
}

void RelayRooms::giveNewCode(const std::string& pairID, Pair& pair, Duration now) {
  codes_.erase(pair.code);
  pair.code.clear();
  if (pair.link.empty() || !pair.host) return;
  do {
    pair.code = randomCode();
  } while (codes_.contains(pair.code));
  codes_[pair.code] = pairID;
  pair.codeEnds = now + limits_.codeLife;
  connections_.sendText(*pair.host, pairingCodeText(pair.code, limits_.codeLife));
}

void RelayRooms::receivedBinary(PeerID peer, const Bytes& bytes, Duration now) {
  const auto found = peers_.find(peer);
  if (found == peers_.end()) return;
  if (found->second.pairID.empty()) {
    return refuse(peer, "The relay expects a JSON object first.");
  }
  const Pair& pair = pairs_[found->second.pairID];
  if (!found->second.isHost) {
    if (pair.host) forward(*pair.host, bytes, now);
  } else {
    for (const auto client : pair.clients) forward(client, bytes, now);
  }
}

void RelayRooms::forward(PeerID to, const Bytes& bytes, Duration now) {
  connections_.sendBinary(to, bytes);
  Peer& peer = peers_[to];
  peer.forwarded += bytes->size();
  if (peer.isCongested || connections_.queuedBytes(to) <= limits_.highWater) return;
  peer.isCongested = true;
  peer.watchedSince = now;
  peer.writtenBefore = writtenTo(to, peer);
  balance(pairs_[peer.pairID]);
}

void RelayRooms::written(PeerID peer) {
  const auto found = peers_.find(peer);
  if (found == peers_.end() || !found->second.isCongested) return;
  if (connections_.queuedBytes(peer) >= limits_.lowWater) return;
  found->second.isCongested = false;
  balance(pairs_[found->second.pairID]);
}

void RelayRooms::balance(const Pair& pair) {
  const auto isCongested = [this](PeerID peer) { return peers_[peer].isCongested; };
  if (pair.host) connections_.setPaused(*pair.host, std::ranges::any_of(pair.clients, isCongested));
  const bool isHostCongested = pair.host && isCongested(*pair.host);
  for (const auto client : pair.clients) connections_.setPaused(client, isHostCongested);
}

std::uint64_t RelayRooms::writtenTo(PeerID id, const Peer& peer) const {
  return peer.forwarded - std::min<std::uint64_t>(peer.forwarded, connections_.queuedBytes(id));
}

void RelayRooms::refuse(PeerID peer, std::string_view sentence) {
  connections_.sendText(peer, errorText(sentence));
  forget(peer);
  connections_.close(peer, policyClose);
}

void RelayRooms::closed(PeerID peer) {
  forget(peer);
}

void RelayRooms::forget(PeerID peer) {
  const auto found = peers_.find(peer);
  if (found == peers_.end()) return;
  const Peer gone = std::move(found->second);
  peers_.erase(found);
  addresses_.closed(gone.address);
  if (gone.pairID.empty()) return;
  Pair& pair = pairs_[gone.pairID];
  if (gone.isHost) {
    if (pair.host != peer) return;  // another one has its place already
    pair.host.reset();
    codes_.erase(pair.code);
    pair.code.clear();
    pair.link.clear();
    for (const auto client : pair.clients) connections_.sendText(client, hostOfflineText());
  } else {
    std::erase(pair.clients, peer);
    if (pair.host) connections_.sendText(*pair.host, peerCountText(pair.clients.size()));
  }
  balance(pair);
  if (!pair.host && pair.clients.empty()) pairs_.erase(gone.pairID);
}

void RelayRooms::tick(Duration now) {
  std::vector<PeerID> silent;
  for (const auto& [id, peer] : peers_) {
    if (peer.pairID.empty() && peer.helloEnds <= now) silent.push_back(id);
  }
  for (const auto id : silent) refuse(id, "The relay expects a JSON object first.");
  for (auto& [id, pair] : pairs_) {
    if (!pair.code.empty() && pair.codeEnds <= now) giveNewCode(id, pair, now);
  }
  checkSlow(now);
  checkHeld();
  addresses_.clean(now);
}

void RelayRooms::checkSlow(Duration now) {
  std::vector<PeerID> slow;
  for (auto& [id, peer] : peers_) {
    if (!peer.isCongested || now - peer.watchedSince < limits_.slowTime) continue;
    const auto written = writtenTo(id, peer);
    if (written - peer.writtenBefore < limits_.slowBytes) slow.push_back(id);
    peer.watchedSince = now;
    peer.writtenBefore = written;
  }
  for (const auto id : slow) {
    forget(id);
    connections_.drop(id);
  }
}

void RelayRooms::checkHeld() {
  std::size_t total = 0;
  for (const auto& each : peers_) total += connections_.heldBytes(each.first);
  while (total > limits_.heldBytes) {
    struct Holder {
      std::size_t bytes = 0;
      std::size_t ofLargest = 0;
      PeerID largest = 0;
    };
    std::unordered_map<std::string, Holder> holders;
    for (const auto& [id, peer] : peers_) {
      auto& holder = holders[networkOf(peer.address)];
      const auto bytes = connections_.heldBytes(id);
      holder.bytes += bytes;
      if (bytes >= holder.ofLargest) {
        holder.ofLargest = bytes;
        holder.largest = id;
      }
    }
    const auto worst =
        std::ranges::max_element(holders, {}, [](const auto& each) { return each.second.bytes; });
    const auto [bytes, ofLargest, largest] = worst->second;
    if (ofLargest == 0) return;
    forget(largest);
    connections_.drop(largest);
    total -= ofLargest;
  }
}

}  // namespace vantrell::relay
