// The connection doctor of the program: gathers what a run is about, publishes its report, and
// repairs what a refresh can repair. Main queue.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "doctor/connection_doctor.h"
#include "engine/core/changes.h"
#include "engine/projects/git_snapshot_service.h"
#include "engine/providers/installed_runtimes.h"
#include "engine/providers/model_catalog.h"
#include "engine/providers/provider_services.h"
#include "engine/providers/router.h"

namespace vantrell {

namespace topics {
inline constexpr ChangeTopic doctor{"doctor"};  // the report of the connection doctor
}  // namespace topics

/// What the doctor is told by other features, and what it asks of them. Composed by app/; each may
/// be replaced once the feature is there.
struct DoctorSources {
  std::function<DoctorRemote()> remote = [] { return DoctorRemote{.relayDetail = "Off"}; };
  /// The stored hosts in their order, without this machine.
  std::function<std::vector<FleetHost>()> fleet = [] { return std::vector<FleetHost>(); };
  /// Of the program and of the phone application.
  std::function<std::vector<Url>()> feeds = [] { return std::vector<Url>(); };
  // For repairs.
  std::function<void()> refreshSessions = [] {};
  std::function<void()> refreshFleet = [] {};
  /// Stops the remote host and starts it with the same pairing, if it is on and paired.
  std::function<void()> restartRemoteHost = [] {};
};

class Doctor : public std::enable_shared_from_this<Doctor> {
 public:
  /// From the start of a repair until its report is begun: what was refreshed answers meanwhile.
  static constexpr std::chrono::seconds repairTime{2};

  /// All must outlive it, and the main queue what runs in the background.
  struct Dependencies {
    MainQueue& main;
    Changes& changes;
    Executor& background;
    HttpClient& http;
    InstalledRuntimes& runtimes;
    ProviderServices& providers;
    const Router& router;
    GitSnapshotService& git;
    ModelCatalog& models;
  };
  Doctor(Dependencies dependencies, DoctorSources sources);

  using Done = std::function<void(const DiagnosticReport&)>;
  /// Checks the project in this folder, if one is given, and all the rest. Of two runs that overlap
  /// the later to finish leaves its report here; each is told its own.
  void runConnectionDoctor(std::optional<std::string> workspacePath, Done done = nullptr);
  /// Refreshes all that the checks are about, and then runs the doctor.
  void repairCommonIssues(std::optional<std::string> workspacePath, Done done = nullptr);

  /// The latest report; changes are announced as topics::doctor.
  const std::optional<DiagnosticReport>& diagnosticReport() const { return report_; }

 private:
  void begin(std::optional<std::string> workspacePath, Done done);
  void publish(DiagnosticReport report);

  const Dependencies core_;
  const DoctorSources sources_;
  std::optional<DiagnosticReport> report_;
  std::set<std::shared_ptr<ConnectionDoctor>> runs_;
  std::vector<Timer> repairs_;
};

}  // namespace vantrell
