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

  /// Those that the key may use, in the order of the tree; valid until that changes.
  std::vector<const Workspace*> projects(const SiteKey& key) const;
  /// Those that the key may use and that are ready, in its order.
  std::vector<AgentProvider> providers(const SiteKey& key) const;
  /// By the guard against metered billing.
  bool isBlocked(AgentProvider provider) const;

  /// The job without id, owner, times and events, or why the key may not give it.
  GatewayResult<GatewayJob> admit(const GatewayJobRequest& request, const SiteKey& key) const;
  /// A client for the job, or why there is none now.
  std::expected<std::shared_ptr<AgentClient>, std::string> makeClient(const GatewayJob& job,
                                                                      const SiteKey& key) const;

  static constexpr std::string_view meteredBlocked = "Block metered APIs is enabled in vantrell.";

 private:
  bool mayUse(const SiteKey& key, const std::string& workspacePath) const;
  bool isReady(AgentProvider provider, const ProviderConnectorContext& context) const;
  ProviderConnectorContext withStatus(ProviderConnectorContext given) const;
  ProviderConnectorContext contextOf(const GatewayJob& job) const;

  const WorkspaceTree& tree_;
  const Settings& settings_;
  ProviderServices& services_;
  std::shared_ptr<void> life_ = std::make_shared<int>();  // what is being prepared ends with us
};

}  // namespace vantrell
