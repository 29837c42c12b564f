#include "updates/update_controller.h"

#include <algorithm>
#include <fmt/format.h>

#include "platform/queues/weakly.h"
#include "platform/text/text.h"

namespace vantrell {

namespace {

using Phase = HostUpdatePhase;
constexpr const char* postponed = "Update postponed.";
constexpr const char* downloading = "Downloading and verifying the signed archive…";

void call(const std::function<void()>& action) {
  if (action) action();
}

}  // namespace

UpdateController::UpdateController(MainQueue& main, UserDefaults& defaults,
                                   std::string currentVersion, std::string defaultFeed)
    : main_(main), defaults_(defaults), currentVersion_(std::move(currentVersion)) {
  status_ = step(Phase::idle, "Mac is up to date", "Check for a signed vantrell update.");
  feedURL_ = text::trimmed(defaults.text(feedKey).value_or(""));
  if (feedURL_.empty()) feedURL_ = std::move(defaultFeed);
  tellConfiguration();
}

void UpdateController::connect(std::shared_ptr<UpdateFramework> framework,
                               Application application) {
  framework_ = std::move(framework);
  application_ = std::move(application);
  if (isConfigured() && startUpdaterIfNeeded()) framework_->resetUpdateCycleAfterShortDelay();
}

std::optional<Url> UpdateController::validatedFeedURL() const {
  auto url = Url::parse(feedURL_);
  if (!url || url->scheme() != "https" || url->host().empty()) return std::nullopt;
  return url;
}

bool UpdateController::showsUpdateActivity() const {
  return status_.phase != Phase::idle && status_.phase != Phase::upToDate;
}

void UpdateController::tellConfiguration() {
  statusMessage_ = isConfigured() ? "Sparkle will read the HTTPS appcast and verify the "
                                    "EdDSA-signed update archive before installing."
                                  : "Add an HTTPS appcast URL to enable updates.";
}

RemoteHostUpdateStatus UpdateController::step(Phase phase, std::string label,
                                              std::string message) const {
  return {.phase = phase,
          .label = std::move(label),
          .message = std::move(message),
          .currentVersion = currentVersion_};
}

void UpdateController::publish(RemoteHostUpdateStatus status) {
  status_ = std::move(status);
  statusMessage_ = status_.message;
  application_.statusChanged(status_);
}

bool UpdateController::startUpdaterIfNeeded() {
  if (updaterStarted_ || !framework_) return updaterStarted_;
  const auto started = framework_->start();
  updaterStarted_ = started.has_value();
  if (!started) publish(step(Phase::failed, "Updater unavailable", started.error()));
  return updaterStarted_;
}

bool UpdateController::updateFeedURL(std::string_view text) {
  feedURL_ = text::trimmed(text);
  const bool isStored = defaults_.setText(feedKey, feedURL_);
  if (isConfigured()) startUpdaterIfNeeded();
  if (updaterStarted_) framework_->resetUpdateCycleAfterShortDelay();
  tellConfiguration();
  return isStored;
}

// ---- asking -------------------------------------------------------------------------------------

void UpdateController::requestUpdate() {
  if (!isConfigured()) {
    return publish(
        step(Phase::failed, "Updater unavailable", "Enter a valid HTTPS appcast URL first."));
  }
  const auto activity = application_.activity();
  if (activity.activeWorkCount < 1) return beginAuthorizedCheck();
  requestSafetyDecision(
      activity, "Active model work will be interrupted when vantrell relaunches.",
      [this] { beginAuthorizedCheck(); }, [this] { returnToAvailableOrIdle(postponed); },
      Phase::waiting);
}

void UpdateController::checkOnly() {
  if (!isConfigured()) return requestUpdate();
  check();
}

void UpdateController::beginAuthorizedCheck() {
  installAuthorized_ = true;
  check();
}

void UpdateController::check() {
  // It has said itself why it cannot be started.
  if (!startUpdaterIfNeeded()) return;
  if (framework_->canCheckForUpdates()) return framework_->checkForUpdates();
  publish(step(Phase::failed, busyLabel, "An update operation is already in progress."));
}

void UpdateController::requestSafetyDecision(const UpdateActivitySummary& activity,
                                             std::string message, Action action,
                                             Action cancellation, Phase phase) {
  pendingAction_ = std::move(action);
  pendingCancellation_ = std::move(cancellation);
  if (activity.queuedTaskCount > 0) {
    message += fmt::format(" {} queued task{} safely persisted.", activity.queuedTaskCount,
                           activity.queuedTaskCount == 1 ? " is" : "s are");
  }
  auto status = step(phase, "Mac is actively working", std::move(message));
  status.availableVersion = status_.availableVersion;
  status.progress = status_.progress;
  status.requiresDecision = true;
  status.activeWorkCount = activity.activeWorkCount;
  status.queuedTaskCount = activity.queuedTaskCount;
  publish(std::move(status));
}

void UpdateController::prepareAnd(const Action& action, const Action& cancellation) {
  if (application_.prepareForImmediateUpdate()) return call(action);
  call(cancellation);
  installAuthorized_ = false;
  publish(step(Phase::failed, "Update failed",
               "The update is not installed, because some of your work could not be stored. Make "
               "room on the disk, and update again."));
}

void UpdateController::resolveSafetyDecision(HostUpdateDecision decision) {
  if (status_.waitingUntilIdle) {
    if (decision == HostUpdateDecision::not_now) cancelWaitingUpdate();
    if (decision != HostUpdateDecision::update_anyway) return;
    waitTimer_.cancel();
    return prepareAnd(std::exchange(waitingAction_, nullptr),
                      std::exchange(waitingCancellation_, nullptr));
  }
  if (!status_.requiresDecision && !pendingAction_) return;
  switch (decision) {
    case HostUpdateDecision::update_anyway:
      waitTimer_.cancel();
      waitingAction_ = waitingCancellation_ = nullptr;
      return prepareAnd(std::exchange(pendingAction_, nullptr),
                        std::exchange(pendingCancellation_, nullptr));
    case HostUpdateDecision::wait_until_idle: {
      waitingAction_ = std::exchange(pendingAction_, nullptr);
      waitingCancellation_ = std::exchange(pendingCancellation_, nullptr);
      auto status = status_;
      status.phase = Phase::waiting;
      status.label = "Waiting for work to finish";
      status.message =
          "The signed update will continue automatically when active model work becomes idle.";
      status.requiresDecision = false;
      status.waitingUntilIdle = true;
      publish(std::move(status));
      return startWaitingForIdle();
    }
    case HostUpdateDecision::not_now:
      waitTimer_.cancel();
      waitingAction_ = waitingCancellation_ = pendingAction_ = nullptr;
      call(std::exchange(pendingCancellation_, nullptr));
      return returnToAvailableOrIdle(postponed);
  }
}

void UpdateController::startWaitingForIdle() {
  waitTimer_ =
      main_.every(idlePoll, weakly(this, [](UpdateController& self) {
                    if (self.application_.activity().activeWorkCount > 0) return;
                    // The timer lives until its own work has returned.
                    self.main_.post([ended = std::make_shared<Timer>(std::move(self.waitTimer_))] {
                      ended->cancel();
                    });
                    self.waitingCancellation_ = nullptr;
                    call(std::exchange(self.waitingAction_, nullptr));
                  }));
}

void UpdateController::cancelWaitingUpdate() {
  waitTimer_.cancel();
  call(std::exchange(waitingCancellation_, nullptr));
  waitingAction_ = pendingAction_ = pendingCancellation_ = nullptr;
  returnToAvailableOrIdle(postponed);
}

void UpdateController::returnToAvailableOrIdle(std::string message) {
  installAuthorized_ = false;
  const auto version = status_.availableVersion;
  auto status = version ? step(Phase::available, fmt::format("vantrell {} available", *version),
                               std::move(message))
                        : step(Phase::idle, "Mac update postponed", std::move(message));
  status.availableVersion = version;
  publish(std::move(status));
}

// ---- what the framework tells -------------------------------------------------------------------

void UpdateController::checkingStarted() {
  publish(step(Phase::checking, "Checking for updates", "Reading vantrell’s signed update feed…"));
}

void UpdateController::updateFound(const AppcastItem& item, UpdateReply reply) {
  auto status = step(
      Phase::available, fmt::format("vantrell {} available", item.displayVersion),
      installAuthorized_ ? "Preparing the signed update…" : "A signed update is ready to install.");
  status.availableVersion = item.displayVersion;
  publish(std::move(status));
  reply(installAuthorized_ && !item.isInformationOnly ? UpdateChoice::install
                                                      : UpdateChoice::dismiss);
}

void UpdateController::noUpdateFound(const std::string& error) {
  installAuthorized_ = false;
  publish(step(Phase::upToDate, "Mac is up to date",
               error.empty() ? "This Mac already has the newest signed release." : error));
}

void UpdateController::updaterFailed(const std::string& error) {
  installAuthorized_ = false;
  publish(step(Phase::failed, "Update failed", error));
}

void UpdateController::downloadStarted() {
  expectedDownloadBytes_ = receivedDownloadBytes_ = 0;
  auto status = step(Phase::downloading, "Downloading update", downloading);
  status.availableVersion = status_.availableVersion;
  status.progress = 0;
  publish(std::move(status));
}

void UpdateController::receivedDownloadData(std::uint64_t bytes) {
  receivedDownloadBytes_ += bytes;
  auto status = step(Phase::downloading, "Downloading update", downloading);
  status.availableVersion = status_.availableVersion;
  if (expectedDownloadBytes_ > 0) {
    status.progress = std::min(1.0, static_cast<double>(receivedDownloadBytes_) /
                                        static_cast<double>(expectedDownloadBytes_));
  }
  publish(std::move(status));
}

void UpdateController::extractionStarted() {
  auto status = step(Phase::extracting, "Verifying update",
                     "Sparkle is verifying the EdDSA signature and extracting vantrell…");
  status.availableVersion = status_.availableVersion;
  publish(std::move(status));
}

void UpdateController::extractionProgress(double part) {
  auto status = step(Phase::extracting, "Preparing update",
                     "The signed update is being prepared for installation…");
  status.availableVersion = status_.availableVersion;
  status.progress = std::clamp(part, 0.0, 1.0);
  publish(std::move(status));
}

void UpdateController::readyToInstall(UpdateReply reply) {
  const Action dismiss = [reply] { reply(UpdateChoice::dismiss); };
  const Action install = [this, reply, dismiss] {
    prepareAnd([reply] { reply(UpdateChoice::install); }, dismiss);
  };
  const auto activity = application_.activity();
  if (activity.activeWorkCount < 1) return install();
  requestSafetyDecision(activity, "New model work started while the update was downloading.",
                        install, dismiss, Phase::ready);
}

void UpdateController::installing(bool applicationTerminated) {
  auto status =
      step(Phase::installing, applicationTerminated ? "Installing update" : "Relaunching vantrell",
           "The Mac app will reconnect to Android automatically after relaunch.");
  status.availableVersion = status_.availableVersion;
  publish(std::move(status));
}

void UpdateController::installationFinished() {
  installAuthorized_ = false;
  publish(step(Phase::upToDate, "Update installed", "vantrell has been updated and relaunched."));
}

}  // namespace vantrell
