#include "fleet/fleet.h"

#include <algorithm>
#include <fmt/format.h>
#include <future>
#include <utility>

#include "platform/queues/weakly.h"
#include "platform/text/text.h"
#include "platform/values/json_objects.h"
#include "platform/values/url.h"
#include "records/stores/orchestration_store.h"
#include "remote/protocol/remote_pairing.h"

namespace vantrell {

static constexpr auto fieldsOf(const FleetHost*) {
  using R = FleetHost;
  return fields(field("id", &R::id), field("name", &R::name), field("platform", &R::platform),
                field("status", &R::status), field("endpoint", &R::endpoint),
                field("capabilities", &R::capabilities),
                field("workspacePaths", &R::workspacePaths), field("lastSeenAt", &R::lastSeenAt),
                field("preferred", &R::preferred));
}

namespace {

using enum FleetHostStatus;
using Type = RemoteMessageType;

constexpr std::string_view fileName = "fleet.json";

bool isLink(std::string_view endpoint) {
  return endpoint.starts_with("vantrell://") || endpoint.starts_with("larkmoor://");
}

std::optional<Url> httpUrl(std::string_view endpoint) {
  auto url = Url::parse(endpoint);
  if (url && url->scheme() != "http" && url->scheme() != "https") url.reset();
  return url;
}

/// The path on the origin of the endpoint.
HttpRequest requestTo(const Url& endpoint, std::string_view path, std::chrono::seconds limit) {
  HttpRequest request;
  request.url = fmt::format("{}://{}{}", endpoint.scheme(), endpoint.hostAndPort(), path);
  request.requestTimeout = request.resourceTimeout = limit;
  // The key is for this host alone; and any answer below 400 says that it is there.
  request.redirects = HttpRequest::Redirects::refuse;
  return request;
}

void authorize(HttpRequest& request, const FleetEndpointCredential& credential) {
  request.headers.push_back({"Authorization", "Bearer " + *credential.bearerToken});
}

bool hasKey(const FleetEndpointCredential& credential) {
  return credential.bearerToken && !credential.bearerToken->empty();
}

FleetHostStatus statusOf(const RemoteSnapshot& snapshot) {
  if (snapshot.connectionStatus == "working") return busy;
  return snapshot.connectionStatus == "failed" ? FleetHostStatus::needsAttention : online;
}

const RemoteWorkspace* workspaceIn(const RemoteSnapshot& snapshot,
                                   const std::optional<std::string>& id) {
  const auto found = std::ranges::find(snapshot.workspaces, id, &RemoteWorkspace::id);
  if (found != snapshot.workspaces.end()) return &*found;
  return snapshot.workspaces.empty() || id ? nullptr : &snapshot.workspaces.front();
}

std::set<std::string> threadsOf(const RemoteSnapshot& snapshot) {
  std::set<std::string> ids;
  for (const auto& workspace : snapshot.workspaces) {
    for (const auto& thread : workspace.threads) ids.insert(thread.id);
  }
  return ids;
}

/// The id of the project with this path among "id|path", else of the first.
std::optional<std::string> projectFor(std::string_view path,
                                      const std::vector<std::string>& projects) {
  std::optional<std::string> first;
  for (const auto& each : projects) {
    const auto bar = each.find('|');
    if (bar == std::string::npos) continue;
    if (std::string_view(each).substr(bar + 1) == path) return each.substr(0, bar);
    if (!first) first = each.substr(0, bar);
  }
  return first;
}

Result<> outcomeOf(const std::expected<HttpResponse, HttpError>& answer) {
  if (!answer) return refuse("Could not dispatch to the Linux host: " + answer.error().description);
  if (answer->status == 202) return {};
  const bool isText = !answer->body.empty() && text::isValidUtf8(answer->body);
  return refuse("Linux host rejected the task: " +
                (isText ? answer->body : fmt::format("HTTP {}", answer->status)));
}

}  // namespace

Fleet::Fleet(const Dependencies& given)
    : core_(given),
      credentials_(given.secrets),
      http_(given.main),
      saving_(given.pool, "com.local.vantrell.fleet"),
      hosts_(given.store.load(fileName, std::vector<FleetHost>())) {}

Fleet::~Fleet() {
  endAllWork();
  flush();
}

// ---- the list -----------------------------------------------------------------------------------

FleetHost* Fleet::find(const Uuid& id) {
  const auto found = std::ranges::find(hosts_, id, &FleetHost::id);
  return found == hosts_.end() ? nullptr : &*found;
}

void Fleet::update(const Uuid& id, const Change& change) {
  FleetHost* host = find(id);
  if (!host) return;
  FleetHost before = *host;
  change(*host);
  const bool isNews = !before.lastSeenAt || !host->lastSeenAt;
  before.lastSeenAt = host->lastSeenAt;
  if (*host != before || isNews) save();
  core_.changes.mark(topics::fleet);
}

void Fleet::append(FleetHost host) {
  hosts_.push_back(std::move(host));
  save();
  refreshFleet();
}

void Fleet::save() {
  core_.changes.mark(topics::fleet);
  if (std::exchange(isSavePending_, true)) return;
  core_.main.post(weakly(this, [](Fleet& fleet) {
    if (!std::exchange(fleet.isSavePending_, false)) return;
    fleet.saving_.post([write = fleet.core_.store.prepareSave(fleet.hosts_, fileName),
                        isSaved = fleet.isSaved_] { *isSaved = write().has_value(); });
  }));
}

bool Fleet::flush() {
  std::promise<bool> written;
  const bool isWanted = std::exchange(isSavePending_, false);
  saving_.post([write = isWanted ? core_.store.prepareSave(hosts_, fileName) : nullptr,
                isSaved = isSaved_, &written] {
    if (write) *isSaved = write().has_value();
    written.set_value(*isSaved);
  });
  return written.get_future().get();
}

void Fleet::addFleetHost(std::string name, FleetPlatform platform, std::string_view endpoint,
                         std::optional<std::string> bearerToken, Done done) {
  endpoint = text::trimmed(endpoint);
  if (endpoint.empty()) return done(refuse("Enter a pairing link or an HTTP address."));
  FleetHost host{.id = Uuid::random(),
                 .name = std::move(name),
                 .platform = platform,
                 .endpoint = std::string(endpoint)};
  if (isLink(endpoint)) {
    const auto pairing = MacRemotePairing::parse(endpoint);
    if (!pairing) return done(refuse(std::string(errorDescription(pairing.error()))));
    host.endpoint = std::string(FleetHost::linkScheme) + text::lowercased(host.id.text());
    return credentials_.save(
        std::string(endpoint), host.id,
        weakly(this, [host, done = std::move(done)](Fleet& fleet, const Result<>& stored) {
          if (stored) fleet.append(host);
          done(stored);
        }));
  }
  if (!httpUrl(endpoint)) {
    return done(refuse("That is neither a pairing link nor an HTTP address."));
  }
  const auto known = std::ranges::find(hosts_, host.endpoint, &FleetHost::endpoint);
  if (known != hosts_.end()) host.id = known->id;
  credentials_.save(
      FleetEndpointCredential{*host.endpoint, std::move(bearerToken)}, host.id,
      weakly(this, [host, done = std::move(done)](Fleet& fleet, const Result<>& stored) {
        if (stored && !fleet.find(host.id)) fleet.append(host);
        if (stored) {
          fleet.update(host.id, [&](FleetHost& each) {
            each.name = host.name;
            each.platform = host.platform;
          });
          fleet.refreshFleet();
        }
        done(stored);
      }));
}

void Fleet::removeFleetHost(const Uuid& id) {
  const auto place = std::ranges::find(hosts_, id, &FleetHost::id);
  if (place == hosts_.end()) return;
  if (const auto client = fleetClients_.extract(id)) client.mapped()->stop();
  fleetSnapshots_.erase(id);
  credentials_.remove(id);
  hosts_.erase(place);
  save();
  endPending(id, refuse("The host was removed."));
  checked(id);
}

// ---- checks -------------------------------------------------------------------------------------

void Fleet::refreshFleet() {
  for (const auto& host : hosts_) {
    if (host.isPaired()) {
      checkPaired(host.id);
    } else if (host.endpoint && httpUrl(*host.endpoint)) {
      checkEndpoint(host.id);
    }
  }
}

bool Fleet::isChecking(const std::optional<Uuid>& id) const {
  return id ? unanswered_.contains(*id) : !unanswered_.empty();
}

void Fleet::checked(const Uuid& id) {
  unanswered_.erase(id);
  core_.changes.mark(topics::fleet);
  for (auto waiting = whenChecked_.extract(id); waiting; waiting = whenChecked_.extract(id)) {
    waiting.mapped()();
  }
}

void Fleet::checkPaired(const Uuid& id) {
  if (fleetClients_.contains(id) || !unanswered_.insert(id).second) return;
  credentials_.load(id, weakly(this, [id](Fleet& fleet, const std::optional<std::string>& link) {
                      auto pairing = MacRemotePairing::parse(link.value_or(""));
                      if (!pairing || !fleet.find(id)) return fleet.checked(id);
                      fleet.connect(id, *std::move(pairing));
                    }));
}

void Fleet::connect(const Uuid& id, MacRemotePairing pairing) {
  const auto client = fleetClients_[id] = MacRemoteClient::make(core_.main, core_.pool);
  client->onStateChange = weakly(this, [id](Fleet& fleet, const MacRemoteClient::State& state) {
    using enum MacRemoteClient::State::Kind;
    fleet.update(id, [&](FleetHost& host) {
      host.status = state.kind == connected ? online : offline;
      if (state.kind == connected) host.lastSeenAt = fleet.core_.main.now();
    });
    if (state.kind != connected && state.kind != connecting) fleet.checked(id);
  });
  client->onReady = [client = std::weak_ptr(client)] {
    if (const auto ready = client.lock()) ready->send(RemoteEnvelope::make(Type::hello));
  };
  client->onMessage = weakly(this, [id](Fleet& fleet, RemoteEnvelope envelope) {
    fleet.receive(id, std::move(envelope));
  });
  client->start(std::move(pairing));
}

void Fleet::receive(const Uuid& id, RemoteEnvelope envelope) {
  const auto type = envelope.knownType();
  if (type == Type::snapshot && envelope.snapshot) return show(id, *std::move(envelope.snapshot));
  const auto pending = pendingFleetPrompts_.find(id);
  if (pending == pendingFleetPrompts_.end() || !pending->second.messageID) return;
  if (type == Type::error) pending->second.error = std::move(envelope.text);
  if (type != Type::ack || envelope.acknowledgesID != pending->second.messageID) return;
  const auto& error = pending->second.error;
  endPending(id, error ? refuse(*error) : Result<>());
}

void Fleet::show(const Uuid& id, RemoteSnapshot snapshot) {
  update(id, [&](FleetHost& host) {
    host.name = snapshot.hostName;
    host.status = statusOf(snapshot);
    host.capabilities.clear();
    for (const auto& provider :
         snapshot.providers.value_or(std::vector<RemoteProviderDescriptor>())) {
      if (provider.available) host.capabilities.push_back(provider.shortLabel);
    }
    host.workspacePaths.clear();
    for (const auto& workspace : snapshot.workspaces) host.workspacePaths.push_back(workspace.path);
    host.lastSeenAt = core_.main.now();
  });
  fleetSnapshots_[id] = std::move(snapshot);
  sendPendingPrompt(id);
  checked(id);
}

void Fleet::checkEndpoint(const Uuid& id) {
  if (!unanswered_.insert(id).second) return;  // the last check still waits for its answer
  credentials_.loadCredential(
      id, weakly(this, [id](Fleet& fleet, std::optional<FleetEndpointCredential> credential) {
        const FleetHost* host = fleet.find(id);
        const auto url = host ? httpUrl(host->endpoint.value_or("")) : std::nullopt;
        if (!url) return fleet.checked(id);
        // Without a stored key the host can still be seen.
        if (!credential) credential = FleetEndpointCredential{*host->endpoint, {}};
        fleet.request(id, requestTo(*url, "/v1/fleet/status", checkLimit),
                      [&fleet, id, credential = *std::move(credential)](const auto& response) {
                        fleet.readStatus(id, credential, response);
                      });
      }));
}

void Fleet::request(const Uuid& id, HttpRequest request,
                    std::function<void(const HttpResponse&)> answer) {
  http_.send(std::move(request),
             weakly(this, [id, answer = std::move(answer)](Fleet& fleet, const auto& result) {
               if (!fleet.find(id)) return fleet.checked(id);
               if (result) return answer(*result);
               fleet.update(id, [](FleetHost& host) { host.status = offline; });
               fleet.checked(id);
             }));
}

void Fleet::readStatus(const Uuid& id, const FleetEndpointCredential& credential,
                       const HttpResponse& response) {
  const bool isWell = response.status >= 200 && response.status <= 399;
  update(id, [&](FleetHost& host) {
    host.status = isWell ? online : FleetHostStatus::needsAttention;
    if (!isWell) return;
    host.lastSeenAt = core_.main.now();
    const auto body = json::parseObject(response.body);
    if (const auto* name = body ? json::text(*body, "name") : nullptr) host.name = *name;
    if (const auto* reported = body ? json::array(*body, "capabilities") : nullptr) {
      host.capabilities.clear();
      for (const auto& each : *reported) {
        if (const auto* text = each.asText()) host.capabilities.push_back(*text);
      }
    }
  });
  isWell&& hasKey(credential) ? askForProjects(id, credential) : checked(id);
}

void Fleet::askForProjects(const Uuid& id, const FleetEndpointCredential& credential) {
  const auto url = httpUrl(find(id)->endpoint.value_or(""));
  auto asked = requestTo(*url, "/v1/projects", checkLimit);
  authorize(asked, credential);
  request(id, std::move(asked), [this, id](const HttpResponse& response) {
    const auto body = response.isSuccess() ? json::parseObject(response.body) : std::nullopt;
    if (body) {
      update(id, [&](FleetHost& host) {
        host.workspacePaths.clear();
        for (const auto* project : json::objects(*body, "data")) {
          const auto* projectID = json::text(*project, "id");
          const auto* path = json::text(*project, "path");
          if (projectID && path) host.workspacePaths.push_back(*projectID + "|" + *path);
        }
      });
    }
    checked(id);
  });
}

// ---- tasks --------------------------------------------------------------------------------------

void Fleet::dispatchTask(const Uuid& hostID, FleetTask task, Done done) {
  task.prompt = std::string(text::trimmed(task.prompt));
  if (task.prompt.empty() || !find(hostID)) {
    return done(refuse("Choose a registered host and enter a task first."));
  }
  if (!isChecking(hostID)) return dispatchNow(hostID, task, done);
  whenChecked_.emplace(hostID, [this, hostID, task = std::move(task), done = std::move(done)] {
    dispatchNow(hostID, task, done);
  });
}

void Fleet::dispatchNow(const Uuid& hostID, const FleetTask& task, const Done& done) {
  const FleetHost* host = find(hostID);
  if (!host) return done(refuse("The host was removed."));
  if (fleetClients_.contains(hostID) && fleetSnapshots_.contains(hostID)) {
    return dispatchToPaired(*host, task, done);
  }
  if (host->isPaired()) {
    return done(refuse(fmt::format("{} is not connected. Vantrell keeps trying.", host->name)));
  }
  dispatchOverHttp(hostID, task, done);
}

void Fleet::dispatchToPaired(const FleetHost& host, const FleetTask& task, Done done) {
  const auto& snapshot = fleetSnapshots_.at(host.id);
  if (snapshot.workspaces.empty()) {
    return done(refuse("The remote host has no project workspace available."));
  }
  auto workspace = std::ranges::find(snapshot.workspaces, task.projectPath, &RemoteWorkspace::path);
  if (workspace == snapshot.workspaces.end()) workspace = snapshot.workspaces.begin();
  auto command = RemoteEnvelope::make(Type::newThread);
  command.workspaceID = workspace->id;
  endPending(host.id, refuse("A later task for this host took its place."));
  pendingFleetPrompts_[host.id] = {
      .text = task.prompt,
      .knownThreads = threadsOf(snapshot),
      .done = std::move(done),
      .limit = core_.main.after(confirmationLimit, [this, id = host.id, name = host.name] {
        endPending(id, refuse(fmt::format("{} has not confirmed the task.", name)));
      })};
  fleetClients_.at(host.id)->send(std::move(command));
}

/// Snapshots that were made before the new conversation may still be on their way: the prompt
/// belongs into none that the host had before.
void Fleet::sendPendingPrompt(const Uuid& id) {
  const auto found = pendingFleetPrompts_.find(id);
  if (found == pendingFleetPrompts_.end() || found->second.messageID) return;
  PendingPrompt& pending = found->second;
  const auto& snapshot = fleetSnapshots_.at(id);
  const auto* workspace = workspaceIn(snapshot, snapshot.selectedWorkspaceID);
  if (!workspace) return;
  const auto isNew = [&](const RemoteThread& thread) {
    return !pending.knownThreads.contains(thread.id);
  };
  auto thread = std::ranges::find(workspace->threads, snapshot.selectedThreadID, &RemoteThread::id);
  if (thread == workspace->threads.end() || !isNew(*thread)) {
    thread = std::ranges::find_if(workspace->threads, isNew);
  }
  if (thread == workspace->threads.end()) return;
  auto prompt = RemoteEnvelope::make(Type::prompt);
  prompt.workspaceID = workspace->id;
  prompt.threadID = thread->id;
  prompt.text = pending.text;
  pending.messageID = prompt.id;
  fleetClients_.at(id)->send(std::move(prompt));
}

void Fleet::endPending(const Uuid& id, const Result<>& result) {
  if (const auto ended = pendingFleetPrompts_.extract(id)) ended.mapped().done(result);
}

void Fleet::dispatchOverHttp(const Uuid& id, const FleetTask& task, Done done) {
  credentials_.loadCredential(
      id, weakly(this, [id, task, done = std::move(done)](
                           Fleet& fleet, const std::optional<FleetEndpointCredential>& known) {
        const FleetHost* host = fleet.find(id);
        const auto url = host ? httpUrl(host->endpoint.value_or("")) : std::nullopt;
        if (!url || !known || !hasKey(*known)) {
          return done(
              refuse("This Linux host needs an authenticated jobs key. Edit or re-add it "
                     "in Fleet & Automations."));
        }
        const auto project = projectFor(task.projectPath, host->workspacePaths);
        if (!project) {
          return done(
              refuse("No allowed project was returned by the Linux host. Check the key's "
                     "project scope and refresh the fleet."));
        }
        auto request = requestTo(*url, "/v1/jobs", dispatchLimit);
        request.method = "POST";
        authorize(request, *known);
        request.headers.push_back({"Content-Type", "application/json"});
        request.headers.push_back({"Idempotency-Key", Uuid::random().text()});
        request.body = json::write(JsonObject{{"project_id", *project},
                                              {"provider", rawText(task.provider)},
                                              {"prompt", task.prompt},
                                              {"permission_mode", rawText(task.permissionMode)}});
        fleet.http_.send(std::move(request), weakly(&fleet, [id, done](Fleet& owner, auto result) {
                           if (result && result->status == 202) owner.markBusy(id);
                           done(outcomeOf(result));
                         }));
      }));
}

void Fleet::markBusy(const Uuid& id) {
  update(id, [&](FleetHost& host) {
    host.status = busy;
    host.lastSeenAt = core_.main.now();
  });
}

void Fleet::endAllWork() {
  for (const auto& [id, client] : std::exchange(fleetClients_, {})) {
    client->onStateChange = nullptr;
    client->stop();
  }
  while (!pendingFleetPrompts_.empty()) {
    endPending(pendingFleetPrompts_.begin()->first, refuse("Vantrell is being closed."));
  }
  whenChecked_.clear();
}

}  // namespace vantrell
