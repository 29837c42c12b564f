// What a site key's reach comes to at this moment: which projects are open, which providers can be
// used, whether a job may be taken, and its agent client. Clients are made by the providers' own
// connectors, so a job's runtime has the same environment and guards as a turn's. Main queue.
#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/core/settings.h"
#include "engine/core/workspace_tree.h"
#include "engine/providers/provider_services.h"
#include "gateway/gateway_error.h"
#include "gateway/gateway_records.h"

namespace vantrell {

/// What a caller sends for a new job.
struct GatewayJobRequest {
  Uuid project;
  AgentProvider provider = AgentProvider::grok;
  std::string prompt;
  std::optional<std::string> model;
  std::optional<std::string> effort;
  std::optional<GrokPermissionMode> permissionMode;  // absent: ask
};

class GatewayScope {
 public:
  /// What is given must outlive it.
  GatewayScope(const WorkspaceTree& tree, const Settings& settings, ProviderServices& services)
      : tree_(tree), settings_(settings), services_(services) {}

  /// Finds out what decides about these providers: whether a model server answers, whether a
  /// webhook is stored. At once where that is known.
  void prepare(std::vector<AgentProvider> providers, std::function<void()> done);

  struct Project {
    Uuid id;
    std::string name;
  };
  /// Those that the key may use, in the order of the workspaces.
  std::vector<Project> projects(const SiteKey& key) const;
  /// Those that the key may use and that are ready, in its order.
  std::vector<AgentProvider> providers(const SiteKey& key) const;

  /// The job without id, times and events, or why the key may not give it.
  GatewayResult<GatewayJob> admit(const GatewayJobRequest& request, const SiteKey& key) const;
  /// Why the provider may not be used now: the guard against metered billing. Empty: it may.
  std::string blockOf(AgentProvider provider) const;
  /// A client for the job, or why there is none.
  std::expected<std::shared_ptr<AgentClient>, std::string> makeClient(const GatewayJob& job,
                                                                      const SiteKey& key) const;

 private:
  bool mayUse(const SiteKey& key, const std::string& workspacePath) const;

  const WorkspaceTree& tree_;
  const Settings& settings_;
  ProviderServices& services_;
};

}  // namespace vantrell
