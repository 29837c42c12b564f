// The relay's rules, without sockets: which connections belong to a pair, who is told what, pairing
// codes, and every limit. It keeps nothing that outlives a connection, except which addresses
// guessed codes. Time is given with each call, so that a test walks through hours.
//
// A message that one end sends goes to the other ends of its pair as it is. An end that reads too
// slowly first holds the senders of its pair back; if it does not catch up, it is dropped.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/queues/dispatch.h"
#include "relay/address_limits.h"

namespace vantrell::relay {

using PeerID = std::uint64_t;
using Bytes = std::shared_ptr<const std::string>;

/// What the rules do to connections. No call may come back into the rules from inside.
class Connections {
 public:
  virtual ~Connections() = default;
  virtual void sendText(PeerID peer, std::string text) = 0;
  virtual void sendBinary(PeerID peer, const Bytes& bytes) = 0;
  /// It belongs to a pair from now on and may send long messages.
  virtual void admit(PeerID peer) = 0;
  virtual void setPaused(PeerID peer, bool isPaused) = 0;
  /// After what was sent. The peer is forgotten; its end is not reported.
  virtual void close(PeerID peer, std::uint16_t code) = 0;
  /// At once.
  virtual void drop(PeerID peer) = 0;
  /// Bytes that were sent and not taken by the system.
  virtual std::size_t queuedBytes(PeerID peer) const = 0;
  /// These, and those of a message that has not come whole.
  virtual std::size_t heldBytes(PeerID peer) const = 0;
};

class RelayRooms {
 public:
  struct Limits {
    AddressLimits::Limits addresses;
    std::size_t connections = 20'000;
    std::size_t pairs = 10'000;
    std::size_t clientsPerPair = 16;
    std::chrono::seconds helloTime{10};
    std::chrono::seconds codeLife{600};
    /// With more than the first queued for one end, the senders of its pair wait until it has less
    /// than the second.
    std::size_t highWater = std::size_t{4} << 20;
    std::size_t lowWater = std::size_t{1} << 20;
    /// An end that holds others back must read at least so much in each such time.
    std::chrono::seconds slowTime{15};
    std::size_t slowBytes = std::size_t{1} << 20;
    /// Of all connections together. Beyond it, the address that holds most loses its largest one.
    std::size_t heldBytes = std::size_t{512} << 20;
  };
  /// 31 characters, without those that are mistaken for each other.
  static constexpr std::string_view codeAlphabet = "23456789ABCDEFGHJKMNPQRSTUVWXYZ";
  static constexpr std::size_t codeLength = 8;

  RelayRooms(Connections& connections, const Limits& limits);

  AddressLimits& addresses() { return addresses_; }
  bool hasRoom() const { return peers_.size() < limits_.connections; }

  /// A new connection; it has `helloTime` to say what it is.
  void opened(PeerID peer, std::string address, Duration now);
  void receivedText(PeerID peer, std::string_view text, Duration now);
  void receivedBinary(PeerID peer, const Bytes& bytes, Duration now);
  /// The system has taken some of what was sent to it.
  void written(PeerID peer);
  void closed(PeerID peer);
  /// To be called about once a second.
  void tick(Duration now);

  std::size_t peerCount() const { return peers_.size(); }
  std::size_t pairCount() const { return pairs_.size(); }

 private:
  struct Pair {
    std::optional<PeerID> host;
    std::vector<PeerID> clients;
    std::string link;  // empty: the host wants no code
    std::string code;  // empty without a link
    Duration codeEnds{};
  };
  struct Peer {
    std::string address;
    Duration helloEnds{};
    std::string pairID;  // empty before the hello
    bool isHost = false;
    std::uint64_t forwarded = 0;  // bytes that were sent to it
    bool isCongested = false;
    Duration watchedSince{};          // while congested
    std::uint64_t writtenBefore = 0;  // at that time
  };

  void joinAsHost(PeerID peer, const std::string& pairID, std::string link, Duration now);
  void joinAsClient(PeerID peer, const std::string& pairID);
  void resolve(PeerID peer, const std::string& code, Duration now);
  /// The pair, made where it is missing; null when there are too many.
  Pair* pairFor(const std::string& pairID);
  void giveNewCode(const std::string& pairID, Pair& pair, Duration now);
  void forward(PeerID to, const Bytes& bytes, Duration now);
  void refuse(PeerID peer, std::string_view sentence);
  void forget(PeerID peer);
  /// Pauses or resumes the senders of a pair by who of it is congested.
  void balance(const Pair& pair);
  void checkSlow(Duration now);
  void checkHeld();
  std::uint64_t writtenTo(PeerID id, const Peer& peer) const;

  Connections& connections_;
  const Limits limits_;
  AddressLimits addresses_;
  std::unordered_map<PeerID, Peer> peers_;
  std::unordered_map<std::string, Pair> pairs_;
  std::unordered_map<std::string, std::string> codes_;  // to the pair ID
};

}  // namespace vantrell::relay
