// Remote control of this computer: turned on and off, its pairing key and link, and what clients
// are told. Only a process that owns the state has one, so that one host listens. Main queue.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "engine/core/changes.h"
#include "engine/core/refusal.h"
#include "remote/host/remote_command_handler.h"
#include "remote/host/remote_host_configuration.h"
#include "remote/host/remote_host_server.h"
#include "remote/host/remote_snapshots.h"

namespace vantrell {

class Settings;

namespace topics {
inline constexpr ChangeTopic remoteAccess{"remoteAccess"};  // anything of RemoteAccess::State
}

class RemoteAccess {
 public:
  struct Dependencies {
    BackgroundPool& pool;  // ends before the main queue
    Changes& changes;
    Settings& settings;
    RemoteHostConfiguration::Places places;
    /// The thread that writes the store, where stored transcripts may be read; null: none.
    Executor* reader = nullptr;
    RemoteSnapshotSources sources;
    RemoteCommandHandler::Engine engine;
    RemoteHostServer::Options server;
    std::uint16_t port = RemoteHostServer::defaultPort;
    // Of the updates; empty where there are none.
    std::function<void()> requestUpdate = {};
    std::function<void(const std::string& decision)> decideUpdate = {};
  };
  struct State {
    RemoteHostState host;
    RemoteRelayState relay;
    std::int64_t clientCount = 0;
    std::optional<std::string> pairingCode;  // while the relay has issued one
  };

  /// All must outlive it.
  explicit RemoteAccess(Dependencies dependencies);
  /// Ends every client.
  ~RemoteAccess();
  RemoteAccess(const RemoteAccess&) = delete;
  RemoteAccess& operator=(const RemoteAccess&) = delete;

  /// Listens from now on as the setting says: for the process that serves. The key is read first.
  void configureRemoteHost();
  bool isServing() const { return isServing_; }
  /// Calls back once the key is there; at once where it is.
  void whenKeyIsKnown(std::function<void()> then);

  /// The choice is stored; the refusal says why it could not be.
  Result<> setRemoteEnabled(bool isEnabled);
  /// A new key: the old links stop working and all clients are ended. Calls back when it is there.
  void rotateRemoteAccessKey(std::function<void()> done = {});
  /// Looks again under which address other machines reach this one.
  void refreshRemoteRoutes();
  /// Stops the host and starts it with the same key, if it is on.
  void restart();

  const State& state() const { return state_; }
  /// Holds the key: it must not be logged. Absent while the key is not known.
  std::optional<std::string> remotePairingURL() const;
  /// A key that could not be stored as it should be: what the user must know. Mostly empty.
  const std::string& keyProblem() const { return keyProblem_; }
  std::string remoteAdvertisedHost() const;
  const std::optional<Url>& relayURL() const { return core_.server.relayURL; }

  // What clients are notified of.

  void sendRemoteTaskEvent(TaskEventKind kind, std::string_view message,
                           const ThreadExecutionKey& key);
  void sendRemoteImagineEvent(ImagineEventKind kind, std::string_view message);

 private:
  void keyKnown(RemoteHostConfiguration::Key key);
  void startRemoteHost();
  bool isOn() const;
  void changed();

  const Dependencies core_;
  RemoteHostServer server_;
  const std::shared_ptr<RemoteSnapshots> snapshots_;
  const std::shared_ptr<RemoteCommandHandler> handler_;
  State state_;
  bool isServing_ = false;
  bool isLoading_ = false;
  std::optional<std::string> keyData_;
  std::string keyProblem_;
  std::vector<std::function<void()>> waiting_;
  std::shared_ptr<void> life_ = std::make_shared<int>();  // answers about the key end with us
};

}  // namespace vantrell
