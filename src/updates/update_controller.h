// Updates of the program as a person controls them: one status for settings, banner and remote
// clients, and the question whether work may be interrupted, since an update starts the program
// again. Nothing is downloaded or installed unless somebody has asked for it. Failures end as a
// status. Main queue.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "engine/tasks/update_preparation.h"
#include "platform/storage/user_defaults.h"
#include "platform/values/url.h"
#include "records/values/host_update_status.h"
#include "updates/update_framework.h"

namespace vantrell {

enum class HostUpdateDecision { update_anyway, wait_until_idle, not_now };
constexpr auto rawTexts(HostUpdateDecision) {
  return std::to_array<std::string_view>({"update_anyway", "wait_until_idle", "not_now"});
}

class UpdateController final : public UpdateDriver,
                               public std::enable_shared_from_this<UpdateController> {
 public:
  static constexpr std::string_view feedKey = "updateFeedURL.v1";
  /// Of the status that a request gets while an update is under way.
  static constexpr const char* busyLabel = "Updater busy";
  /// Between two looks whether work has ended.
  static constexpr std::chrono::seconds idlePoll{1};

  /// What the program is asked; set by its owner.
  struct Application {
    std::function<UpdateActivitySummary()> activity = [] { return UpdateActivitySummary(); };
    /// Stops all work and stores it. False: some of it could not be stored, and nothing is
    /// installed then.
    std::function<bool()> prepareForImmediateUpdate = [] { return true; };
    std::function<void(const RemoteHostUpdateStatus&)> statusChanged = [](const auto&) {};
  };
  /// `defaultFeed` counts where no address is stored. The defaults must outlive it.
  UpdateController(MainQueue& main, UserDefaults& defaults, std::string currentVersion,
                   std::string defaultFeed);
  /// Connects the two; starts looking for updates where there is an address. Once, at the begin.
  void connect(std::shared_ptr<UpdateFramework> framework, Application application);

  const std::string& feedURL() const { return feedURL_; }
  /// A sentence under the settings.
  const std::string& statusMessage() const { return statusMessage_; }
  const RemoteHostUpdateStatus& remoteStatus() const { return status_; }
  std::optional<Url> validatedFeedURL() const;
  bool isConfigured() const { return validatedFeedURL().has_value(); }
  bool showsUpdateActivity() const;

  /// Begins an update, or asks first if work is under way.
  void requestUpdate();
  /// Looks for an update and installs nothing.
  void checkOnly();
  /// Without a question that is open it does nothing.
  void resolveSafetyDecision(HostUpdateDecision decision);
  /// Gives up waiting for work to end.
  void cancelWaitingUpdate();
  /// Stores the address, whatever it is; one that is not HTTPS is refused by the check. False when
  /// it could not be stored; it holds until the end of the process.
  bool updateFeedURL(std::string_view text);

  void checkingStarted() override;
  void updateFound(const AppcastItem& item, UpdateReply reply) override;
  void noUpdateFound(const std::string& error) override;
  void updaterFailed(const std::string& error) override;
  void downloadStarted() override;
  void expectedDownload(std::uint64_t bytes) override { expectedDownloadBytes_ = bytes; }
  void receivedDownloadData(std::uint64_t bytes) override;
  void extractionStarted() override;
  void extractionProgress(double part) override;
  void readyToInstall(UpdateReply reply) override;
  void installing(bool applicationTerminated) override;
  void installationFinished() override;

 private:
  using Action = std::function<void()>;

  void publish(RemoteHostUpdateStatus status);
  RemoteHostUpdateStatus step(HostUpdatePhase phase, std::string label, std::string message) const;
  bool startUpdaterIfNeeded();
  void beginAuthorizedCheck();
  void check();
  void requestSafetyDecision(const UpdateActivitySummary& activity, std::string message,
                             Action action, Action cancellation, HostUpdatePhase phase);
  void startWaitingForIdle();
  /// Stops and stores all work, and then goes on with the one or, if it could not be stored, the
  /// other.
  void prepareAnd(const Action& action, const Action& cancellation);
  void returnToAvailableOrIdle(std::string message);
  void tellConfiguration();

  MainQueue& main_;
  UserDefaults& defaults_;
  const std::string currentVersion_;
  std::shared_ptr<UpdateFramework> framework_;
  Application application_;
  std::string feedURL_;
  std::string statusMessage_;
  RemoteHostUpdateStatus status_;
  bool updaterStarted_ = false;
  bool installAuthorized_ = false;  // an update that is found may be installed at once
  std::uint64_t expectedDownloadBytes_ = 0;
  std::uint64_t receivedDownloadBytes_ = 0;
  // The question that is open, and the wait for work to end: what happens on yes and on no.
  Action pendingAction_, pendingCancellation_;
  Action waitingAction_, waitingCancellation_;
  Timer waitTimer_;
};

}  // namespace vantrell
