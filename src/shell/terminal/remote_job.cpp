#include "shell/terminal/remote_job.h"

#include <algorithm>
#include <fmt/format.h>
#include <set>

#include "engine/tasks/run_activity.h"
#include "engine/turns/prompt_assembly.h"
#include "platform/text/text.h"
#include "remote/client/remote_records.h"
#include "shell/terminal/task_words.h"

namespace vantrell::shell {

using Type = RemoteMessageType;

const RemoteThread* threadIn(const RemoteSnapshot& snapshot, const RemoteTask& task) {
  for (const auto& workspace : snapshot.workspaces) {
    if (workspace.id != task.workspaceID) continue;
    const auto found = std::ranges::find(workspace.threads, task.threadID, &RemoteThread::id);
    if (found != workspace.threads.end()) return &*found;
  }
  return nullptr;
}

const RemoteRunActivity* activityIn(const RemoteSnapshot& snapshot, const RemoteTask& task) {
  if (!snapshot.activities) return nullptr;
  const auto found =
      std::ranges::find(*snapshot.activities, task.threadID, &RemoteRunActivity::threadID);
  return found == snapshot.activities->end() ? nullptr : &*found;
}

RemoteEnvelope commandFor(Type type, const RemoteTask& task) {
  auto command = RemoteEnvelope::make(type);
  command.workspaceID = task.workspaceID;
  command.threadID = task.threadID;
  return command;
}

RemoteJob::What promptFor(const RemoteSnapshot& before, const RemoteTask& task,
                          std::string_view text, const std::vector<ChatAttachment>& attachments) {
  const std::string trimmed(text::trimmed(text));
  RemoteJob::What what{.task = task,
                       .command = commandFor(Type::prompt, task),
                       .hasHappened = nullptr,
                       .earlierRun = std::nullopt};
  what.command->text = ChatAttachmentPrompt::compose(trimmed, attachments);
  std::set<std::string> known;
  if (const auto* thread = threadIn(before, task)) {
    what.shownEntries = thread->entries.size();
    for (const auto& entry : thread->entries) known.insert(entry.id);
    for (const auto& queued : thread->queuedPrompts) known.insert(queued.id);
  }
  if (const auto* activity = activityIn(before, task)) what.earlierRun = activity->id;
  what.hasHappened = [task, known, trimmed](const RemoteSnapshot& now) {
    const auto* thread = threadIn(now, task);
    const auto isIt = [&](const auto& each) {
      return !known.contains(each.id) && text::trimmed(each.text) == trimmed;
    };
    return thread && (std::ranges::any_of(thread->entries, isIt) ||
                      std::ranges::any_of(thread->queuedPrompts, isIt));
  };
  return what;
}

RemoteJob::RemoteJob(CommandContext& context, std::shared_ptr<PairedHost> host, What what,
                     RunObserver& shownBy)
    : context_(context), host_(std::move(host)), what_(std::move(what)), shownBy_(shownBy) {
  const auto* thread = threadIn(host_->snapshot(), what_.task);
  if (!thread) return;
  const auto known = std::min(what_.shownEntries, thread->entries.size());
  for (std::size_t i = 0; i < known; ++i) shown_[thread->entries[i].id] = thread->entries[i];
  waiting_ = thread->queuedPrompts.size();
}

void RemoteJob::begin() {
  if (what_.command) {
    deliver(*what_.command, what_.hasHappened);
  } else {
    host_->refresh();
  }
}

void RemoteJob::deliver(RemoteEnvelope command, PairedHost::HasHappened hasHappened) {
  ++unconfirmed_;
  const bool isFirst = command.id == (what_.command ? what_.command->id : "");
  host_->deliver(std::move(command), std::move(hasHappened), [this, isFirst](Result<> done) {
    --unconfirmed_;
    if (!done) {
      context_.complain(done.error().sentence);
      if (isFirst) isRefused_ = true;
    }
    host_->refresh();
  });
}

// ---- what the host tells ------------------------------------------------------------------------

void RemoteJob::changed(const ChangeBatch&) {
  if (isReceiving_ && host_->snapshotNumber() != looked_) look();
}

void RemoteJob::setReceiving(bool receiving) {
  isReceiving_ = receiving;
  if (receiving) changed({});
}

void RemoteJob::look() {
  looked_ = host_->snapshotNumber();
  const auto& snapshot = host_->snapshot();
  const auto* thread = threadIn(snapshot, what_.task);
  if (thread) lookAtEntries(*thread);
  lookAtRun(snapshot);
  lookAtQuestion(snapshot);
  if (thread && std::exchange(waiting_, thread->queuedPrompts.size()) < waiting_) {
    shownBy_.promptQueued(waiting_);
  }
  // The parts of a snapshot need not be of one moment, and a queue may go on by itself.
  isRestConfirmed_ = !isWorking() && restAskedAt_ != 0 && looked_ > restAskedAt_;
  if (isWorking()) {
    restAskedAt_ = 0;
  } else if (restAskedAt_ == 0) {
    restAskedAt_ = looked_;
    host_->refresh();
  }
}

void RemoteJob::lookAtEntries(const RemoteThread& thread) {
  for (const auto& each : thread.entries) {
    const auto found = shown_.find(each.id);
    if (found != shown_.end() && found->second == each) continue;
    const auto entry = recordOf(each);
    if (!entry) continue;
    if (found == shown_.end()) {
      hasNews_ = true;
      shownBy_.entryAdded(*entry);
    } else if ((entry->kind == ChatEntryKind::assistant || entry->kind == ChatEntryKind::thought) &&
               each.text.size() > found->second.text.size()) {
      shownBy_.textAdded(*entry, std::string_view(each.text).substr(found->second.text.size()));
    } else {
      shownBy_.entryReplaced(*entry);
    }
    shown_[each.id] = each;
  }
}

void RemoteJob::lookAtRun(const RemoteSnapshot& snapshot) {
  const auto* activity = activityIn(snapshot, what_.task);
  if (activity && activity->id == what_.earlierRun) activity = nullptr;
  auto run = activity ? recordOf(*activity) : std::nullopt;
  if (run) {
    runSeenAt_ = snapshot.generatedAt;
    if (run_ && run_->id != run->id && isActive(run_->status)) {
      // The queue goes on only after a run that has completed.
      RunRecord earlier = *run_;
      earlier.status = RunRecordStatus::completed;
      reportRun(std::move(earlier));
    }
    return reportRun(std::move(*run));
  }
  if (!run_ || !isActive(run_->status)) return;
  // The host lists every run but those that were stopped, and those that completed long ago.
  const double unseen = snapshot.generatedAt - runSeenAt_;
  const bool isLongAgo = unseen >= std::chrono::duration<double>(completedRunIsListedFor).count();
  RunRecord ended = *run_;
  ended.status = isLongAgo ? RunRecordStatus::completed : RunRecordStatus::cancelled;
  ended.statusMessage = isLongAgo ? "Completed" : "Stopped by you.";
  reportRun(std::move(ended));
}

void RemoteJob::reportRun(RunRecord run) {
  if (run_ && run == *run_) return;
  const bool isNews = !run_ || run_->id != run.id || run_->status != run.status ||
                      run_->statusMessage != run.statusMessage;
  run_ = std::move(run);
  if (isNews) shownBy_.runChanged(*run_);
}

void RemoteJob::lookAtQuestion(const RemoteSnapshot& snapshot) {
  const bool isOurs = snapshot.selectedThreadID == what_.task.threadID;
  if (isOurs && snapshot.permission) {
    const auto& shown = *snapshot.permission;
    if (answered_ == shown.requestID) return;
    const auto asked = recordOf(shown);
    if (question_ && question_->id == asked.id && question_->title == asked.title) return;
    answered_ = std::nullopt;
    question_ = std::make_shared<const PermissionRequest>(asked);
    return;
  }
  question_ = nullptr;
  answered_ = std::nullopt;
  // A host shows only the question of the task that is selected there.
  const bool waits = run_ && run_->status == RunRecordStatus::waitingApproval;
  if (!waits) {
    asked_.clear();
  } else if (!isOurs && std::exchange(asked_, run_->id.text()) != run_->id.text()) {
    deliver(commandFor(Type::selectThread, what_.task));
  }
}

// ---- what the user does -------------------------------------------------------------------------

Result<> RemoteJob::answer(const PermissionRequest& request, const PermissionOption* option,
                           Approvals::Answerer) {
  if (!option) option = rejectingOption(request);
  answered_ = request.id;
  if (!option) {
    stop();
    return {};
  }
  auto command = RemoteEnvelope::make(Type::permissionResponse);
  command.requestID = request.id;
  command.optionID = option->id;
  deliver(std::move(command));
  question_ = nullptr;
  return {};
}

void RemoteJob::typed(const std::string& line) {
  const std::string prompt(text::trimmed(text::repaired(line)));
  if (prompt.empty()) return;
  if (prompt.find_first_not_of("0123456789") == std::string::npos) {
    return context_.complain("No question is open, so that number answers nothing.");
  }
  auto what = promptFor(host_->snapshot(), what_.task, prompt, {});
  deliver(std::move(*what.command), std::move(what.hasHappened));
}

void RemoteJob::stop() {
  isStopped_ = true;
  // A host stops the task that is selected there.
  deliver(commandFor(Type::selectThread, what_.task));
  deliver(commandFor(Type::cancel, what_.task));
}

// ---- the end ------------------------------------------------------------------------------------

bool RemoteJob::isWorking() const {
  if (unconfirmed_ > 0) return true;
  if (isRefused_) return false;
  if (run_) return isActive(run_->status);
  const auto& snapshot = host_->snapshot();
  const bool isSelected = snapshot.selectedThreadID == what_.task.threadID;
  if (isSelected &&
      (snapshot.connectionStatus == "connecting" || snapshot.connectionStatus == "working")) {
    return true;
  }
  // What the host answers by itself begins no run; without an entry the prompt has yet to come.
  return !hasNews_ && !isStopped_ && threadIn(snapshot, what_.task) &&
         snapshot.connectionStatus != "failed";
}

bool RemoteJob::isAtRest() const {
  return host_->isGivenUp() || (isRestConfirmed_ && !isWorking());
}

bool RemoteJob::isStopping() const {
  return !host_->isGivenUp() && isWorking();
}

void RemoteJob::tellEnd() {
  if (isStopped_ && run_ && isActive(run_->status)) {
    context_.complain(
        fmt::format("{} has not confirmed the stop. What goes on there: vantrell connect activity",
                    host_->name()));
  } else if (run_ && isActive(run_->status)) {
    context_.complain(fmt::format(
        "{} has not been heard for {} minutes. The task may go on there: vantrell connect activity",
        host_->name(), PairedHost::patience.count()));
  }
  shownBy_.ended(run_ && !isActive(run_->status) ? &*run_ : nullptr);
  const auto id = Uuid::parse(what_.task.threadID);
  if (waiting_ == 0 || !id) return;
  context_.complain(
      fmt::format("{} in the queue. To send {}: vantrell connect queue run {}",
                  waiting_ == 1 ? "1 prompt waits" : fmt::format("{} prompts wait", waiting_),
                  waiting_ == 1 ? "it" : "them", shortID(*id)));
}

int RemoteJob::status() const {
  if (!run_) return isRefused_ || host_->isGivenUp() ? exitStatus::failed : exitStatus::completed;
  if (run_->status == RunRecordStatus::completed) return exitStatus::completed;
  return run_->status == RunRecordStatus::cancelled ? exitStatus::stopped : exitStatus::failed;
}

}  // namespace vantrell::shell
