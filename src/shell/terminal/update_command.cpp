// `vantrell update`: looks for a newer release, and installs it.
#include <fmt/format.h>

#include "shell/terminal/command_context.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/new_version.h"
#include "shell/terminal/terminal_text.h"
#include "updates/update_module.h"

namespace vantrell::shell {

namespace {

constexpr std::string_view checkName = "--check", feedName = "--feed", anywayName = "--anyway",
                           waitName = "--wait";

JsonObject asJson(const RemoteHostUpdateStatus& status) {
  JsonObject object{{"phase", rawText(status.phase)},
                    {"label", status.label},
                    {"message", status.message},
                    {"currentVersion", status.currentVersion},
                    {"requiresDecision", status.requiresDecision},
                    {"activeWorkCount", status.activeWorkCount},
                    {"queuedTaskCount", status.queuedTaskCount},
                    {"waitingUntilIdle", status.waitingUntilIdle}};
  if (status.availableVersion) object.set("availableVersion", *status.availableVersion);
  if (status.progress) object.set("progress", *status.progress);
  return object;
}

/// Shows one update as it goes, and asks where a decision is wanted.
class UpdateJob {
 public:
  UpdateJob(CommandContext& context, UpdateModule& updates)
      : context_(context),
        updates_(updates),
        observation_(context.model().changes().observe([this](const ChangeBatch& batch) {
          if (batch.has(topics::updates) && told_) look();
        })) {
    // In the process of another terminal the state's owner knows what to do.
    if (!context_.sharesState()) {
      updates_.relaunch = context.whileAlive([&context] {
        context.newVersion = CommandContext::NewVersion::isInstalled;
        context.finish(exitStatus::completed);
      });
    }
  }
  /// An update whose caller has gone is not installed, unless it is being installed already.
  ~UpdateJob() {
    // Alone, the command has closed the state by now, and the update with it.
    if (!context_.sharesState() || !context_.wasAbandoned || !isUnderWay_) return;
    observation_ = {};
    updates_.updater->cancelDownload();
    updates_.controller->resolveSafetyDecision(HostUpdateDecision::not_now);
  }

  void begin() {
    isChecking_ = context_.arguments.has(checkName);
    if (isChecking_) {
      updates_.controller->checkOnly();
    } else {
      updates_.controller->requestUpdate();
    }
    look();
  }

 private:
  void look() {
    const auto& status = updates_.controller->remoteStatus();
    if (context_.hasFinished() || status == told_) return;
    // Another command asked meanwhile, and was told so; this update goes on.
    if (isUnderWay_ && status.label == UpdateController::busyLabel) return;
    isUnderWay_ = isUnderWay_ || status.phase != HostUpdatePhase::failed;
    const bool isNew = !told_ || status.label != told_->label || status.message != told_->message;
    told_ = status;
    if (context_.isJson()) {
      context_.writeJson(asJson(status));
    } else if (status.progress) {
      context_.console.status(
          fmt::format("{} {:.0f} %", onOneLine(status.label), *status.progress * 100));
    } else if (isNew) {
      context_.console.write(
          fmt::format("{}: {}\n", onOneLine(status.label), onOneLine(status.message)));
    }
    if (status.requiresDecision) return decide();
    switch (status.phase) {
      case HostUpdatePhase::failed: return context_.finish(exitStatus::failed);
      case HostUpdatePhase::upToDate:
      case HostUpdatePhase::idle: return context_.finish(exitStatus::completed);
      case HostUpdatePhase::available:
        // With the choice to install, the download follows.
        if (isChecking_ || wasPostponed_) context_.finish(exitStatus::completed);
        return;
      case HostUpdatePhase::installing:
        // The owner of the state ends the commands of others before it starts again.
        if (context_.sharesState() && status.label.starts_with("Relaunching")) {
          context_.finish(exitStatus::completed);
        }
        return;
      default: return;
    }
  }

  void decide() {
    if (context_.arguments.has(anywayName)) return choose(HostUpdateDecision::update_anyway);
    if (context_.arguments.has(waitName)) return choose(HostUpdateDecision::wait_until_idle);
    if (!context_.canAsk()) {
      context_.complain("Work is under way. To update all the same: --anyway; after it: --wait.");
      return choose(HostUpdateDecision::not_now);
    }
    context_.ask("Interrupt the work and update [u], wait for its end [w], or not now [n]? ",
                 context_.whileAlive([this](const std::optional<std::string>& reply) {
                   const auto letter = reply && !reply->empty() ? reply->front() : 'n';
                   choose(letter == 'u'   ? HostUpdateDecision::update_anyway
                          : letter == 'w' ? HostUpdateDecision::wait_until_idle
                                          : HostUpdateDecision::not_now);
                 }));
  }
  void choose(HostUpdateDecision decision) {
    wasPostponed_ = decision == HostUpdateDecision::not_now;
    context_.main.post(context_.whileAlive(
        [this, decision] { updates_.controller->resolveSafetyDecision(decision); }));
  }

  CommandContext& context_;
  UpdateModule& updates_;
  std::optional<RemoteHostUpdateStatus> told_;  // since the begin
  bool isUnderWay_ = false;
  bool isChecking_ = false;
  bool wasPostponed_ = false;
  Changes::Observation observation_;
};

void update(CommandContext& context) {
  context.open({}, [&](VantrellApp& app) {
    // The new version has opened the state, which is what the old one wants to know.
    if (context.arguments.has(startedOption)) return context.finish(exitStatus::completed);
    UpdateModule& updates = app.updates();
    if (const auto feed = context.arguments.value(feedName)) {
      if (!updates.controller->updateFeedURL(*feed)) {
        return context.fail("The address of the feed could not be stored. " +
                            app.defaults().lastError());
      }
      context.console.write(onOneLine(updates.controller->statusMessage()) + "\n");
      return context.finish(exitStatus::completed);
    }
    if (!updates.installation) return context.fail(updates.installation.error());
    const auto job = std::make_shared<UpdateJob>(context, updates);
    context.keep(job);
    job->begin();
  });
}

constexpr CommandOption options[] = {
    {checkName, "", "only look whether there is a newer version"},
    {anywayName, "", "do not ask where work is under way: interrupt it"},
    {waitName, "", "do not ask where work is under way: update when it has ended"},
    {feedName, "URL", "look for updates there from now on (an HTTPS address), and end"},
    {startedOption, "", "end at once: how the version before sees that this one starts"},
    jsonOption,
};

constexpr Command commands[] = {
    {.name = "update",
     .summary = "look for a newer version of vantrell, and install it",
     .options = options,
     .begin = update,
     .introduction =
         "Downloads the newest release of the feed, checks its signature, and lets it take the "
         "place\n"
         "of this one in one step. The version before comes back if the new one does not start. "
         "Work\n"
         "that is under way is interrupted only if you say so; queued prompts wait and are kept.\n"
         "A process that serves goes on with the new version. A vantrell that was installed in\n"
         "another way says how to update it."},
};

}  // namespace

std::span<const Command> updateCommands() {
  return commands;
}

}  // namespace vantrell::shell
