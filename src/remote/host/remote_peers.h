// The direct clients of a host, the latest snapshot, and the filter that lets each message pass
// once. Belongs to a SocketThread, on which all of its operations are called and its handlers run;
// encoding and sealing happen there.
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/sockets/tcp.h"
#include "remote/host/recent_ids.h"
#include "remote/host/remote_relay_client.h"
#include "remote/protocol/remote_envelope.h"

namespace vantrell {

class RemotePeers : public std::enable_shared_from_this<RemotePeers> {
 public:
  struct Handlers {  // all present
    std::function<void(std::size_t)> onCountChange;
    /// With the turn under whose key it was sealed and its size in bytes.
    std::function<void(std::uint64_t turn, RemoteEnvelope, std::size_t)> onMessage;
    std::function<void(RemoteOutgoing)> toRelay;
  };
  struct Limits {
    std::size_t connections;
    std::size_t bytes;        // held for all, as RemoteHostServer says
    std::size_t unsentBytes;  // of one
  };
  using SnapshotJson = std::move_only_function<std::string()>;

  RemotePeers(const SocketThread& thread, Limits limits, Handlers handlers);

  /// From now on messages count that are sealed with this key. The turn is not 0.
  void begin(std::uint64_t turn, std::string keyData);
  /// Serves what the listener accepts.
  void listen(std::shared_ptr<TcpListener> listener);
  /// Ends all clients and the listener. The latest snapshot stays.
  void end();

  void update(SnapshotJson snapshot);
  void broadcast(const RemoteEnvelope& envelope, std::shared_ptr<void> untaken);
  /// A message that has been opened; one of another turn is dropped.
  void receive(std::uint64_t turn, RemoteEnvelope envelope, std::size_t bytes);
  /// The relay has become ready. It gets the latest snapshot, and further ones until it has said
  /// that it has no client.
  void relayIsReady();
  void relayHasClients(bool hasClients);

  /// While paused nothing is read.
  void setPaused(bool isPaused);
  /// Drops each client that has taken nothing since the last call while something waited for it.
  void dropStalled();

 private:
  struct Peer;
  using PeerPtr = std::shared_ptr<Peer>;

  void accept(std::shared_ptr<TcpConnection> tcp);
  void received(const PeerPtr& from, std::string_view bytes);
  void sent(const PeerPtr& to, std::size_t bytes);
  void send(const PeerPtr& to, const RemoteOutgoing& message);
  void sendSnapshot(const PeerPtr& to);
  void sendSnapshotToRelay();
  void close(const PeerPtr& peer);
  bool closeOldestUnproven();
  void keepBounds();
  bool pass(const RemoteEnvelope& envelope);
  /// Null before the first.
  std::shared_ptr<const std::string> snapshotJson();
  template <typename Body>
  auto ifOpen(const PeerPtr& peer, Body body);

  const SocketThread thread_;
  const Limits limits_;
  const Handlers handlers_;
  std::uint64_t turn_ = 0;  // 0: ended
  std::string keyData_;
  std::shared_ptr<TcpListener> listener_;
  std::list<PeerPtr> peers_;   // in the order in which they came
  std::size_t heldBytes_ = 0;  // of all peers
  RecentIDs recentMessageIDs_{2048, 1024};
  std::string snapshotID_;
  SnapshotJson snapshot_;  // until it has been encoded
  std::shared_ptr<const std::string> latestSnapshot_;
  bool relayWantsSnapshots_ = false;
  bool isPaused_ = false;
};

}  // namespace vantrell
