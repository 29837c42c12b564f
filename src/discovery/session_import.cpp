#include "discovery/session_import.h"

#include <algorithm>
#include <utility>

#include "engine/core/settings.h"
#include "engine/core/workspace_tree.h"
#include "engine/tasks/workspace_operations.h"

namespace vantrell {

namespace {

/// Those of projects, where something happened last first.
std::vector<std::string> projectFolders(const WorkspaceTree& tree) {
  std::vector<std::pair<Date, std::string>> folders;
  for (const auto& workspace : tree.workspaces()) {
    Date last = Date::distantPast();
    for (const auto& thread : workspace.threads) last = std::max(last, thread.updatedAt);
    folders.emplace_back(last, workspace.path);
  }
  std::ranges::stable_sort(folders, std::ranges::greater(), &std::pair<Date, std::string>::first);
  std::vector<std::string> paths;
  for (auto& [last, path] : folders) paths.push_back(std::move(path));
  return paths;
}

}  // namespace

SessionImport::SessionImport(const Dependencies& given,
                             ExternalSessionCatalog::Dependencies catalog)
    : core_(given), externalSessionCatalog_(std::move(catalog)) {}

void SessionImport::configureExternalSessionImport() {
  settingsWatch_ = core_.changes.observe([this](const ChangeBatch& batch) {
    if (batch.has(topics::settings)) follow();
  });
  isFollowing_.reset();
  follow();
}

void SessionImport::follow() {
  const bool isOn = core_.settings.importsExternalSessions();
  if (std::exchange(isFollowing_, isOn) == isOn) return;
  externalSessionTimer_.cancel();
  if (!isOn) return;
  refreshExternalSessions();
  externalSessionTimer_ = core_.main.every(period, [this] { refreshExternalSessions(); });
}

void SessionImport::refreshExternalSessions(std::function<void()> done) {
  if (done) waiting_.push_back(std::move(done));
  if (std::exchange(isScanning_, true)) return;
  core_.changes.mark(topics::externalSessions);
  lookForSessions([this](const ExternalSessionScanResult& result) { settle(result); });
}

void SessionImport::lookForSessions(std::function<void(const ExternalSessionScanResult&)> done) {
  externalSessionCatalog_.discover(projectFolders(core_.tree), std::move(done));
}

void SessionImport::settle(const ExternalSessionScanResult& result) {
  isScanning_ = false;
  reports_ = result.reports;
  lastRefresh_ = core_.main.now();
  lastImportedCount_ = core_.operations.importSessions(result.sessions).importedCount;
  core_.changes.mark(topics::externalSessions);
  for (const auto& done : std::exchange(waiting_, {})) done();
}

}  // namespace vantrell
