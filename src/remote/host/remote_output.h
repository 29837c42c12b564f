// The way to all clients of a host, as those that answer commands use it.
#pragma once

#include "platform/queues/dispatch.h"
#include "remote/protocol/remote_envelope.h"

namespace vantrell {

class RemoteOutput {
 public:
  virtual ~RemoteOutput() = default;
  /// Sends the message to every client that is connected now; replies are not addressed, and
  /// nothing is kept for later. Main queue. `whenTaken` runs once on the main queue, never from
  /// inside this call, when every client has taken it, or nearly, or is gone (also when there is no
  /// client). Who sends much, such as a file, waits for it; what is sent without waiting ends the
  /// connection of a client that falls behind by more than `RemoteHostServer::mostUnsent`.
  virtual void send(RemoteEnvelope envelope, Work whenTaken) = 0;
  void send(RemoteEnvelope envelope) { send(std::move(envelope), nullptr); }
};

}  // namespace vantrell
