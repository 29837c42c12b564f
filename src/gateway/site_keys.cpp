#include "gateway/site_keys.h"

#include <algorithm>

#include "gateway/canonical_path.h"
#include "gateway/gateway_store.h"
#include "gateway/site_key_secret.h"
#include "platform/crypto/crypto.h"
#include "platform/queues/dispatch.h"
#include "platform/text/text.h"

namespace vantrell {

namespace {
/// The date of the last use is stored no more often than this.
constexpr Seconds pauseBetweenUses{60};
}  // namespace

SiteKeys::SiteKeys(MainQueue& main, Changes& changes, GatewayStore& store)
    : main_(main), changes_(changes), store_(store) {}

void SiteKeys::load() {
  configuration_ = store_.loadConfiguration();
  changes_.mark(topics::gateway);
}

const SiteKey* SiteKeys::find(const Uuid& id) const {
  const auto found = std::ranges::find(configuration_.siteKeys, id, &SiteKey::id);
  return found == configuration_.siteKeys.end() ? nullptr : &*found;
}

void SiteKeys::setEnabled(bool enabled) {
  if (enabled == configuration_.enabled) return;
  configuration_.enabled = enabled;
  changed();
}

void SiteKeys::setListenMode(GatewayListenMode mode) {
  if (mode == configuration_.listenMode) return;
  configuration_.listenMode = mode;
  changed();
}

Result<> SiteKeys::setPort(std::int64_t port) {
  if (port < 1024 || port > 65535) return refuse("Choose a port between 1024 and 65535.");
  if (port == configuration_.port) return {};
  configuration_.port = port;
  changed();
  return {};
}

Result<SiteKeys::Created> SiteKeys::create(std::string_view name, const Scope& scope) {
  SiteKey key{.id = Uuid::random(),
              .name = std::string(text::trimmed(name)),
              .allowedProviders = {scope.providers.begin(), scope.providers.end()},
              .maximumPermissionMode = scope.maximumPermissionMode,
              .createdAt = main_.now()};
  if (key.name.empty()) return refuse("Enter a name for this site key.");
  if (scope.workspacePaths.empty() || scope.providers.empty()) {
    return refuse("Choose at least one project and one provider.");
  }
  std::set<std::string> paths;
  for (const auto& each : scope.workspacePaths) paths.insert(canonicalPath(each));
  key.allowedWorkspacePaths = {paths.begin(), paths.end()};
  std::ranges::sort(key.allowedProviders, {}, rawText<AgentProvider>);
  Created created{key.id, siteKeySecret::generate()};
  key.secretHash = siteKeySecret::hashOf(created.secret);
  configuration_.siteKeys.push_back(std::move(key));
  changed();
  return created;
}

Result<> SiteKeys::remove(const Uuid& id) {
  if (std::erase_if(configuration_.siteKeys, [&](const SiteKey& key) { return key.id == id; }) ==
      0) {
    return refuse("That site key does not exist any more.");
  }
  changed();
  return {};
}

const SiteKey* SiteKeys::authenticate(const GatewayHeaders& headers) {
  const auto secret = siteKeySecret::shownIn(headers);
  if (secret.empty()) return nullptr;
  const std::string hash = siteKeySecret::hashOf(secret);
  const auto key = std::ranges::find_if(configuration_.siteKeys, [&](const SiteKey& each) {
    return crypto::equalInConstantTime(hash, each.secretHash);
  });
  if (key == configuration_.siteKeys.end()) return nullptr;
  const auto before = std::exchange(key->lastUsedAt, main_.now());
  if (!before || main_.now() - *before >= pauseBetweenUses) changed();
  return &*key;
}

void SiteKeys::changed() {
  store_.save(configuration_);
  changes_.mark(topics::gateway);
}

}  // namespace vantrell
