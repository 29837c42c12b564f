#include "gateway/gateway_scope.h"

#include <algorithm>
#include <utility>

#include "gateway/canonical_path.h"
#include "platform/files/files.h"

namespace vantrell {

namespace {

constexpr std::string_view projectNotAllowed = "This site key cannot use that project.";

template <typename List, typename Value>
bool has(const List& list, const Value& value) {
  return std::ranges::find(list, value) != list.end();
}

/// A name that a runtime gets on its command line must not pass for an option there.
bool canBeName(const std::optional<std::string>& text) {
  return !text || !text->starts_with('-');
}

}  // namespace

void GatewayScope::prepare(std::vector<AgentProvider> providers, std::function<void()> done) {
  while (!providers.empty() && services_.isKnown(providers.back())) providers.pop_back();
  if (providers.empty()) return done();
  const auto next = providers.back();
  providers.pop_back();  // known after this, or never
  services_.prepare(next, [this, life = std::weak_ptr(life_), providers = std::move(providers),
                           done = std::move(done)]() mutable {
    if (!life.expired()) prepare(std::move(providers), std::move(done));
  });
}

// ---- reach --------------------------------------------------------------------------------------

template <typename Lookup>
bool GatewayScope::mayUse(const SiteKey& key, const std::string& workspacePath,
                          Lookup&& canonical) {
  const std::string& path = canonical(workspacePath);
  return std::ranges::any_of(key.allowedWorkspacePaths, [&](const std::string& allowed) {
    return canonical(allowed) == path;
  });
}

const std::string& GatewayScope::recentPath(const std::string& path) const {
  if (recentPaths_.empty() || main_.uptime() - recentSince_ >= pathAge) {
    recentPaths_.clear();
    recentSince_ = main_.uptime();
  }
  const auto known = recentPaths_.find(path);
  return known != recentPaths_.end() ? known->second : recentPaths_[path] = canonicalPath(path);
}

std::vector<const Workspace*> GatewayScope::projects(const SiteKey& key) const {
  std::vector<const Workspace*> all;
  const auto recent = [this](const std::string& path) -> const auto& { return recentPath(path); };
  for (const auto& each : tree_.workspaces()) {
    if (mayUse(key, each.path, recent)) all.push_back(&each);
  }
  return all;
}

std::vector<AgentProvider> GatewayScope::providers(const SiteKey& key) const {
  const auto allowed = projects(key);
  const auto context =
      withStatus({.workspacePath = allowed.empty() ? files::homeFolder() : allowed.front()->path,
                  .workspaceName = allowed.empty() ? "Workspace" : allowed.front()->name});
  std::vector<AgentProvider> all;
  for (const auto each : key.allowedProviders) {
    if (!isBlocked(each) && isReady(each, context)) all.push_back(each);
  }
  return all;
}

bool GatewayScope::isBlocked(AgentProvider provider) const {
  return settings_.noMeteredAPIs() && services_.connector(provider).isMetered();
}

bool GatewayScope::isReady(AgentProvider provider, const ProviderConnectorContext& context) const {
  if (services_.connector(provider).isAvailable(context)) return true;
  // A model server may be started at any time: the next request is to find it.
  if (provider == AgentProvider::local) services_.refreshLocalRuntime();
  return false;
}

/// With what is known at this moment.
ProviderConnectorContext GatewayScope::withStatus(ProviderConnectorContext given) const {
  given.localRuntimeStatus = services_.localRuntimeStatus();
  given.taskletConfigured = services_.isTaskletConfigured();
  return given;
}

ProviderConnectorContext GatewayScope::contextOf(const GatewayJob& job) const {
  return withStatus({.workspacePath = job.workspacePath,
                     .workspaceName = job.workspaceName,
                     .selectedModel = job.model,
                     .selectedEffort = job.effort,
                     .permissionMode = job.permissionMode});
}

// ---- jobs ---------------------------------------------------------------------------------------

GatewayResult<GatewayJob> GatewayScope::admit(const GatewayJobRequest& request,
                                              const SiteKey& key) const {
  const Workspace* project = tree_.workspace(request.project);
  if (!project) {
    return refuseRequest(404, "project_not_found", "The project is not available on this Mac.");
  }
  if (!mayUse(key, project->path, canonicalPath)) {
    return refuseRequest(403, "project_not_allowed", std::string(projectNotAllowed));
  }
  if (!has(key.allowedProviders, request.provider)) {
    return refuseRequest(403, "provider_not_allowed", "This site key cannot use that provider.");
  }
  if (isBlocked(request.provider)) {
    return refuseRequest(403, "metered_provider_blocked", std::string(meteredBlocked));
  }
  GatewayJob job{.projectID = project->id,
                 .workspacePath = project->path,
                 .workspaceName = project->name,
                 .provider = request.provider,
                 .prompt = request.prompt,
                 .model = request.model,
                 .effort = request.effort,
                 .permissionMode = request.permissionMode.value_or(GrokPermissionMode::ask)};
  if (job.permissionMode > key.maximumPermissionMode) {
    return refuseRequest(403, "permission_mode_not_allowed",
                         "The requested approval mode exceeds this site key's limit.");
  }
  if (!canBeName(job.model) || !canBeName(job.effort)) {
    return refuseRequest(400, "invalid_job", "model and effort must not begin with a hyphen.");
  }
  return job;
}

GatewayResult<> GatewayScope::checkReady(const GatewayJob& job) const {
  if (isReady(job.provider, contextOf(job))) return {};
  return refuseRequest(409, "provider_unavailable", services_.connector(job.provider).setupHint);
}

std::expected<std::shared_ptr<AgentClient>, std::string> GatewayScope::makeClient(
    const GatewayJob& job, const SiteKey& key) const {
  // Links, settings and servers may have changed while the job waited.
  if (!mayUse(key, job.workspacePath, canonicalPath))
    return std::unexpected(std::string(projectNotAllowed));
  if (isBlocked(job.provider)) return std::unexpected(std::string(meteredBlocked));
  const ProviderConnector& connector = services_.connector(job.provider);
  const auto context = contextOf(job);
  auto client = connector.isAvailable(context) ? connector.makeClient(context) : nullptr;
  if (!client) return std::unexpected(connector.setupHint);
  return client;
}

}  // namespace vantrell
