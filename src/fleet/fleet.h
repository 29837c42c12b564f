// The hosts that can run work beside this machine: their list ("fleet.json"), the checks that say
// what each can do, and the tasks that are handed to them. No secret is in the list.
//
// Main queue, held by a shared_ptr. A host that is removed while one of its requests is under way
// is forgotten: the answer changes nothing. A failed check never removes a host.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "engine/core/changes.h"
#include "engine/core/refusal.h"
#include "fleet/fleet_credential_store.h"
#include "platform/http/http_client.h"
#include "platform/queues/dispatch.h"
#include "records/values/agent_provider.h"
#include "records/values/fleet_host.h"
#include "records/values/task_modes.h"
#include "remote/client/mac_remote_client.h"

namespace vantrell {

class OrchestrationStore;

namespace topics {
inline constexpr ChangeTopic fleet{"fleet"};  // a host came, went or changed
}

/// What a host is to do.
struct FleetTask {
  std::string prompt;
  /// The host's project with this path takes it, else its first.
  std::string projectPath;
  // Of an HTTP host; a paired one chooses by itself.
  AgentProvider provider = AgentProvider::grok;
  GrokPermissionMode permissionMode = GrokPermissionMode::ask;
};

class Fleet : public std::enable_shared_from_this<Fleet> {
 public:
  /// All must outlive it.
  struct Dependencies {
    MainQueue& main;
    BackgroundPool& pool;  // ends before the main queue
    Changes& changes;
    SecretQueue& secrets;
    OrchestrationStore& store;
  };
  /// Reads the list.
  explicit Fleet(const Dependencies& given);
  /// Ends every connection. The list is on the disk when this returns, if that can be.
  ~Fleet();

  const std::vector<FleetHost>& fleetHosts() const { return hosts_; }

  using Done = std::function<void(Result<>)>;
  /// Adds the host, or gives the one of this HTTP endpoint a new name, platform and key; then
  /// checks all. An endpoint is a pairing link or an HTTP URL. `done` follows once the secret is
  /// stored.
  void addFleetHost(std::string name, FleetPlatform platform, std::string_view endpoint,
                    std::optional<std::string> bearerToken, Done done);
  void removeFleetHost(const Uuid& id);

  /// Asks every host how it is. A paired one is connected once, and then reports by itself.
  void refreshFleet();
  /// Whether the host, or any where none is given, has not answered the last check yet.
  bool isChecking(const std::optional<Uuid>& id = std::nullopt) const;

  /// Hands the task to the host, once a check that is under way has ended. `done` follows when the
  /// host has accepted it: a paired one when it has confirmed the prompt.
  void dispatchTask(const Uuid& hostID, FleetTask task, Done done);

  /// Ends every connection, and refuses what has not been handed over.
  void endAllWork();
  /// Waits until the list is on the disk; false when it could not be written. It blocks: for the
  /// end of the process.
  bool flush();

  static constexpr std::chrono::seconds checkLimit{8}, dispatchLimit{15};
  /// Of a paired host, from the command for a new conversation to the confirmed prompt.
  static constexpr std::chrono::seconds confirmationLimit{60};

 private:
  /// A prompt on its way to a paired host, which makes a conversation for it first.
  struct PendingPrompt {
    std::string text;
    std::set<std::string> knownThreads;    // before the command for a new one
    std::optional<std::string> messageID;  // of the prompt, once sent
    std::optional<std::string> error;      // that the host has told since
    Done done;
    Timer limit;
  };
  using Change = std::function<void(FleetHost&)>;

  FleetHost* find(const Uuid& id);
  /// Changes the host if it is still there. Only when it was seen last is not worth a write.
  void update(const Uuid& id, const Change& change);
  void append(FleetHost host);
  void save();
  void checked(const Uuid& id);

  void checkPaired(const Uuid& id);
  void connect(const Uuid& id, MacRemotePairing pairing);
  void receive(const Uuid& id, RemoteEnvelope envelope);
  void show(const Uuid& id, RemoteSnapshot snapshot);
  void checkEndpoint(const Uuid& id);
  void readStatus(const Uuid& id, const FleetEndpointCredential& credential,
                  const HttpResponse& response);
  void askForProjects(const Uuid& id, const FleetEndpointCredential& credential);
  /// `answer` gets what came; when nothing did, the host is offline and its check has ended.
  void request(const Uuid& id, HttpRequest request,
               std::function<void(const HttpResponse&)> answer);

  void dispatchNow(const Uuid& hostID, const FleetTask& task, const Done& done);
  void dispatchToPaired(const FleetHost& host, const FleetTask& task, Done done);
  void sendPendingPrompt(const Uuid& id);
  void endPending(const Uuid& id, const Result<>& result);
  void dispatchOverHttp(const Uuid& id, const FleetTask& task, Done done);
  void markBusy(const Uuid& id);

  const Dependencies core_;
  FleetCredentialStore credentials_;
  HttpClient http_;
  SerialQueue saving_;
  std::shared_ptr<bool> isSaved_ = std::make_shared<bool>(true);  // the last write; its queue
  std::vector<FleetHost> hosts_;
  bool isSavePending_ = false;

  // By host. What is here of a host that has gone is dropped with it.
  std::map<Uuid, std::shared_ptr<MacRemoteClient>> fleetClients_;
  std::map<Uuid, RemoteSnapshot> fleetSnapshots_;
  std::map<Uuid, PendingPrompt> pendingFleetPrompts_;
  std::set<Uuid> unanswered_;
  std::multimap<Uuid, std::function<void()>> whenChecked_;
};

}  // namespace vantrell
