// Keeps the conversations in step with the sessions that the agents' programs know: scans now and
// then, as long as the user's setting says so, and imports what was found. Main queue.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "discovery/external_session_catalog.h"
#include "engine/core/changes.h"

namespace vantrell {

class Settings;
class WorkspaceOperations;
class WorkspaceTree;

namespace topics {
inline constexpr ChangeTopic externalSessions{"externalSessions"};  // a scan began or ended
}

class SessionImport {
 public:
  struct Dependencies {
    MainQueue& main;
    Changes& changes;
    const Settings& settings;
    const WorkspaceTree& tree;
    WorkspaceOperations& operations;
  };
  /// All must outlive it.
  SessionImport(const Dependencies& given, ExternalSessionCatalog::Dependencies catalog);

  /// From now on scans at once and then by the clock, as long as the setting is on.
  void configureExternalSessionImport();
  /// One scan, whatever the setting; none while one is under way, whose end is `done` as well.
  void refreshExternalSessions(std::function<void()> done = {});
  /// The same without the import: what the programs know, for a person to look at.
  void lookForSessions(std::function<void(const ExternalSessionScanResult&)> done);

  bool externalSessionScanning() const { return isScanning_; }
  const std::map<AgentProvider, ExternalSessionDiscoveryReport>& externalSessionReports() const {
    return reports_;
  }
  const std::optional<Date>& externalSessionLastRefresh() const { return lastRefresh_; }
  std::size_t externalSessionLastImportedCount() const { return lastImportedCount_; }

  static constexpr std::chrono::seconds period{30};

 private:
  void settle(const ExternalSessionScanResult& result);
  void follow();

  const Dependencies core_;
  ExternalSessionCatalog externalSessionCatalog_;
  bool isScanning_ = false;
  std::vector<std::function<void()>> waiting_;
  std::map<AgentProvider, ExternalSessionDiscoveryReport> reports_;
  std::optional<Date> lastRefresh_;
  std::size_t lastImportedCount_ = 0;
  std::optional<bool> isFollowing_;  // what the setting said last; unset before the start
  Timer externalSessionTimer_;
  Changes::Observation settingsWatch_;
};

}  // namespace vantrell
