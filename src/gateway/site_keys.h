// How the gateway listens, and the site keys: who may call it and with what reach. A key is shown
// once, to the user who creates it; only its hash is stored. Main queue.
#pragma once

#include <set>
#include <string>
#include <string_view>

#include "engine/core/changes.h"
#include "engine/core/refusal.h"
#include "gateway/gateway_message.h"
#include "gateway/gateway_records.h"

namespace vantrell {

class GatewayStore;
class MainQueue;

namespace topics {
/// How the gateway listens, its state, its keys.
inline constexpr ChangeTopic gateway{"gateway"};
}  // namespace topics

class SiteKeys {
 public:
  /// What is given must outlive it.
  SiteKeys(MainQueue& main, Changes& changes, GatewayStore& store);

  /// Reads what is stored; the defaults (off, no keys) where nothing is, or nothing readable.
  void load();
  const GatewayConfiguration& configuration() const { return configuration_; }
  /// Null for a key that was revoked.
  const SiteKey* find(const Uuid& id) const;

  // Stored at once. The listener follows in PersonalGateway.

  void setEnabled(bool enabled);
  void setListenMode(GatewayListenMode mode);
  Result<> setPort(std::int64_t port);

  struct Scope {
    std::set<std::string> workspacePaths;
    std::set<AgentProvider> providers;
    GrokPermissionMode maximumPermissionMode = GrokPermissionMode::ask;
  };
  struct Created {
    Uuid id;
    std::string secret;  // to be shown now: it exists nowhere else
  };
  Result<Created> create(std::string_view name, const Scope& scope);
  /// Without the key's jobs: GatewayJobs::revokeKey() ends those too.
  Result<> remove(const Uuid& id);

  /// The key that a request brings as a bearer token or in x-api-key; null where it brings none
  /// that is known. The key counts as used now.
  const SiteKey* authenticate(const GatewayHeaders& headers);

  static constexpr std::string_view invalidKey =
      "Provide a valid site key as a Bearer token or x-api-key.";

 private:
  void changed();

  MainQueue& main_;
  Changes& changes_;
  GatewayStore& store_;
  GatewayConfiguration configuration_;
};

}  // namespace vantrell
