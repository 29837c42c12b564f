// What a site key's reach comes to at this moment: which projects are open, which providers can be
// used, whether a job may be taken, and its agent client. Clients are made by the providers' own
// connectors, so a job's runtime has the same environment and guards as a turn's. Main queue.
#pragma once

#include <expected>
#include <functional>
#include <map>
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
  /// Names the request among those of its site key: sent again, it makes no second job.
  std::optional<std::string> idempotencyKey;
};

class GatewayScope {
 public:
  /// What is given must outlive it.
  GatewayScope(const MainQueue& main, const WorkspaceTree& tree, const Settings& settings,
               ProviderServices& services)
      : main_(main), tree_(tree), settings_(settings), services_(services) {}

  /// Finds out what decides about these providers: whether a model server answers, whether a
  /// webhook is stored. At once where that is known.
  void prepare(std::vector<AgentProvider> providers, std::function<void()> done);

  /// Those that the key may use, in the order of the tree; valid until that changes. A link on the
  /// disk that was changed shows here after `pathAge`; a job is always checked against the disk.
  std::vector<const Workspace*> projects(const SiteKey& key) const;
  /// Those that the key may use and that are ready, in its order.
  std::vector<AgentProvider> providers(const SiteKey& key) const;
  /// By the guard against metered billing.
  bool isBlocked(AgentProvider provider) const;

  /// The job without id, owner, times and events, or why the key may not give it, whether or not
  /// its provider is ready.
  GatewayResult<GatewayJob> admit(const GatewayJobRequest& request, const SiteKey& key) const;
  /// Whether its provider can be used. One of which nothing is known yet (prepare()) cannot.
  GatewayResult<> checkReady(const GatewayJob& job) const;
  /// A client for the job, or why there is none now.
  std::expected<std::shared_ptr<AgentClient>, std::string> makeClient(const GatewayJob& job,
                                                                      const SiteKey& key) const;

  /// To look paths up costs more than all else that a list of projects does.
  static constexpr std::chrono::seconds pathAge{1};
  static constexpr std::string_view meteredBlocked = "Block metered APIs is enabled in vantrell.";

 private:
  template <typename Lookup>
  static bool mayUse(const SiteKey& key, const std::string& workspacePath, Lookup&& canonical);
  const std::string& recentPath(const std::string& path) const;
  bool isReady(AgentProvider provider, const ProviderConnectorContext& context) const;
  ProviderConnectorContext withStatus(ProviderConnectorContext given) const;
  ProviderConnectorContext contextOf(const GatewayJob& job) const;

  const MainQueue& main_;
  const WorkspaceTree& tree_;
  const Settings& settings_;
  ProviderServices& services_;
  mutable std::map<std::string, std::string> recentPaths_;  // canonical, by path
  mutable Duration recentSince_{};
  std::shared_ptr<void> life_ = std::make_shared<int>();  // what is being prepared ends with us
};

}  // namespace vantrell
