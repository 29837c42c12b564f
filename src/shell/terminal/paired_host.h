// The host that this computer is paired with, for a command that works there: connects to it, holds
// its last snapshot, and brings commands to it so that each is obeyed once, over lost connections
// and restarts of the host. Needs no lock on this computer's state. Main queue; kept by the
// context.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/secrets/secret_queue.h"
#include "remote/client/mac_remote_model.h"
#include "remote/client/remote_pairing_store.h"
#include "shell/terminal/command_context.h"

namespace vantrell::shell {

class PairedHost : public std::enable_shared_from_this<PairedHost> {
 public:
  /// Whether a command has been obeyed already, by what a host tells after the connection to it was
  /// lost. Unset: to obey it again does no harm.
  using HasHappened = std::function<bool(const RemoteSnapshot&)>;

  /// Pairs with the host of the link or code, else takes the stored pairing; goes on once the host
  /// has told its state. The command ends as failed where that cannot be.
  static void connect(CommandContext& context, std::optional<std::string> linkOrCode,
                      std::function<void(std::shared_ptr<PairedHost>)> then);
  /// Forgets the stored pairing, and goes on with whether there was one.
  static void forget(CommandContext& context, std::function<void(bool)> then);

  /// Sends a command now or with the next connection, again until the host confirms it. `done` gets
  /// the host's reason where it refuses.
  void deliver(RemoteEnvelope command, HasHappened hasHappened, std::function<void(Result<>)> done);
  /// Asks for the state as it is now; onChange tells that it has come.
  void refresh();
  /// Every snapshot has a number; 0 before the first.
  std::size_t snapshotNumber() const { return snapshotNumber_; }
  const RemoteSnapshot& snapshot() const { return *model_->state().snapshot; }
  MacRemoteModel& model() { return *model_; }
  /// Nothing was heard for so long that the command should end.
  bool isGivenUp() const { return isGivenUp_; }
  const std::string& name() const { return model_->state().pairingName; }
  /// "on the LAN" or "through the relay".
  std::string_view road() const;

  /// The snapshot, an upload or the connection has changed. Replaced by those that follow it.
  std::function<void()> onChange;
  /// A piece of media.
  std::function<void(const RemoteEnvelope&)> onMedia;
  /// The host is connected again, after a break.
  std::function<void()> onReconnected;

  static constexpr std::chrono::seconds connectLimit{25};
  /// Without a snapshot, of a command that has begun.
  static constexpr std::chrono::minutes patience{10};

 private:
  struct Pending {
    RemoteEnvelope command;
    HasHappened hasHappened;
    std::function<void(Result<>)> done;
    std::optional<std::string> refusal;
    bool isSent = false;
  };

  PairedHost(CommandContext& context, std::function<void(std::shared_ptr<PairedHost>)> then);
  void begin(std::optional<std::string> linkOrCode);
  /// Lets go of all that is to be called.
  void close();
  void changed();
  void snapshotCame();
  void received(const RemoteEnvelope& message);
  void confirmed(std::deque<Pending>::iterator which);
  void goOn();

  CommandContext& context_;
  SecretQueue secrets_;
  MacRemotePairingStore store_;
  std::shared_ptr<MacRemoteModel> model_;
  std::function<void(std::shared_ptr<PairedHost>)> then_;  // until the first snapshot
  std::optional<std::string> linkOrCode_;
  std::deque<Pending> pending_;
  std::shared_ptr<const RemoteSnapshot> seen_;
  std::size_t snapshotNumber_ = 0;
  bool wasConnected_ = false;
  bool isLossTold_ = false;
  bool mustCatchUp_ = false;  // the connection is new, and no snapshot has come over it
  bool isGivenUp_ = false;
  Timer limit_;
  Timer settling_;
};

}  // namespace vantrell::shell
