// One connection of a client, over one of the two roads to its host: a TCP connection to the host
// itself, or a WebSocket to the relay. Seals, opens and reads messages on the client's queue, and
// hands everything to the main queue, where it belongs. A host or relay that sends faster than the
// main queue takes is held back.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/queues/dispatch.h"
#include "remote/protocol/remote_envelope.h"
#include "remote/protocol/remote_pairing.h"

namespace vantrell {

/// Why a road ended, or could not be opened; a sentence for people.
struct MacRemoteTransportError {
  std::string message;
};

/// What a relay tells a client about the host.
struct RemoteRelayControl {
  enum class Kind { hostOnline, hostOffline, error, other };
  Kind kind = Kind::other;
  bool isReady = false;  // the answer to the client's greeting
  std::string message;   // of an error
};

class RemoteRoad {
 public:
  /// Called on the main queue, in order, never from inside a call of the road, and not after
  /// close(). They are released with the road.
  struct Handlers {
    std::function<void()> onOpen;
    std::function<void(RemoteRelayControl)> onControl;  // of a relay
    std::function<void(RemoteEnvelope)> onMessage;
    std::function<void(MacRemoteTransportError)> onEnd;  // the last one
  };
  struct Options {
    MainQueue& main;    // must outlive the queue's pool
    SerialQueue queue;  // of the client
    /// PEM, trusted in place of the system's certificates. Empty: the system's.
    std::string trustedCertificates;
  };
  /// To the pairing's host and port.
  static std::shared_ptr<RemoteRoad> direct(const Options& options, const MacRemotePairing& pairing,
                                            Handlers handlers);
  /// To the pairing's relay, which it must have. Greets the relay once it is reached.
  static std::shared_ptr<RemoteRoad> relay(const Options& options, const MacRemotePairing& pairing,
                                           Handlers handlers);
  virtual ~RemoteRoad() = default;

  /// What cannot be encoded or sealed is dropped, as is what comes after the end.
  virtual void send(RemoteEnvelope envelope) = 0;
  /// Ends it; a relay gets close code 1000.
  virtual void close() = 0;
};

}  // namespace vantrell
