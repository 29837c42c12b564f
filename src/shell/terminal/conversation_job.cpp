#include "shell/terminal/conversation_job.h"

#include <fmt/format.h>

#include "engine/core/execution_table.h"
#include "engine/core/workspace_tree.h"
#include "engine/projects/hook_runner.h"
#include "engine/tasks/task_branches.h"
#include "engine/turns/composer.h"
#include "platform/text/text.h"
#include "shell/terminal/task_words.h"

namespace vantrell::shell {

ConversationJob::ConversationJob(CommandContext& context, ThreadExecutionKey key,
                                 RunObserver& shownBy, std::function<Result<>()> send)
    : context_(context),
      model_(context.model()),
      key_(key),
      shownBy_(shownBy),
      send_(std::move(send)),
      runsBefore_(model_.tree().thread(key)->runs.size()),
      runsReported_(runsBefore_) {}

void ConversationJob::begin() {
  const auto sent = send_ ? send_() : Result<>();
  if (sent) return;
  isRefused_ = true;
  context_.complain(sent.error().sentence);
}

void ConversationJob::changed(const ChangeBatch& batch) {
  const ConversationChanges* changes = batch.of(key_);
  const ChatThread* thread = changes ? model_.tree().thread(key_) : nullptr;
  if (!thread) return;
  if (!changes->appendedEntries.empty() && beforeFirstEntry) {
    std::exchange(beforeFirstEntry,
                  nullptr)(thread->entries.size() - changes->appendedEntries.size());
  }
  const auto* execution = model_.executions().find(key_);
  const bool isReplaying = execution && execution->isReplaying;
  const bool hasReplayed = std::exchange(wasReplaying_, isReplaying) && !isReplaying;
  if (execution && std::exchange(plan_, execution->plan) != execution->plan &&
      !execution->plan->empty()) {
    shownBy_.planReplaced(*execution->plan);
  }
  if (hasReplayed || (changes->transcriptReset && !isReplaying)) {
    shownLengths_.clear();
    for (const auto& entry : thread->entries) shownLengths_[entry.id] = entry.text.size();
    shownBy_.transcriptReplaced(thread->entries);
  } else if (!isReplaying) {
    reportTranscript(*changes, *thread);
  }
  if (!changes->runs) return;
  reportEnds(thread->runs);
  if (runsReported_ < thread->runs.size()) reportRun(thread->runs[runsReported_]);
}

void ConversationJob::reportTranscript(const ConversationChanges& changes,
                                       const ChatThread& thread) {
  for (const auto& id : changes.changedEntries) {
    if (const ChatEntry* entry = thread.entries.find(id)) reportEntry(*entry);
  }
  for (const auto& id : changes.appendedEntries) {
    const ChatEntry* entry = thread.entries.find(id);
    if (!entry) continue;
    // A prompt of the queue follows the end of the run before it, which may be in the same batch.
    if (entry->kind == ChatEntryKind::user) reportEnds(thread.runs);
    shownLengths_[id] = entry->text.size();
    shownBy_.entryAdded(*entry);
  }
}

/// What an agent says only grows; anything else is shown as a whole.
void ConversationJob::reportEntry(const ChatEntry& entry) {
  const std::size_t before = std::exchange(shownLengths_[entry.id], entry.text.size());
  const bool isSpoken =
      entry.kind == ChatEntryKind::assistant || entry.kind == ChatEntryKind::thought;
  if (isSpoken && entry.text.size() > before) {
    return shownBy_.textAdded(entry, std::string_view(entry.text).substr(before));
  }
  shownBy_.entryReplaced(entry);
}

void ConversationJob::reportEnds(const std::vector<RunRecord>& runs) {
  while (runsReported_ < runs.size() && !isActive(runs[runsReported_].status)) {
    reportRun(runs[runsReported_++]);
  }
}

void ConversationJob::reportRun(const RunRecord& run) {
  shownBy_.runChanged(run);
  const auto* execution = model_.executions().find(key_);
  const bool isStalled = execution && execution->stallWarningSent;
  const bool hasChanged = std::exchange(wasStalled_, isStalled) != isStalled;
  // A question, another client and the end of the turn break the silence too, and are told as such.
  if (hasChanged && (isStalled || run.status == RunRecordStatus::running)) {
    shownBy_.livenessChanged(run);
  }
}

bool ConversationJob::isAtRest() const {
  const auto* execution = model_.executions().find(key_);
  const RunRecord* run = model_.tree().latestRun(key_);
  return !(execution && execution->connectionState.isBusy()) && !(run && isActive(run->status)) &&
         !model_.branches().isPreparing(key_);
}

bool ConversationJob::isStopping() const {
  const auto* execution = model_.executions().find(key_);
  return execution && execution->session->hasUnansweredPrompt();
}

void ConversationJob::stop() {
  // One that has come to rest meanwhile has nothing to stop.
  static_cast<void>(model_.composer().stopWorking(key_));
}

void ConversationJob::whenHooksAreDone(std::function<void()> done) {
  model_.hooks().whenDone(key_, std::move(done));
}

Job::Question ConversationJob::question() const {
  const auto* execution = model_.executions().find(key_);
  return execution ? execution->permissionRequest() : nullptr;
}

Result<> ConversationJob::answer(const PermissionRequest& request, const PermissionOption* option,
                                 Approvals::Answerer answerer) {
  auto& approvals = model_.approvals();
  return option ? approvals.respondToPermission(key_, request.id, option->id, answerer)
                : approvals.rejectPermission(key_, request.id);
}

/// The user goes on talking while the agent works.
void ConversationJob::typed(const std::string& line) {
  const std::string prompt(text::trimmed(text::repaired(line)));
  if (prompt.empty()) return;
  if (prompt.find_first_not_of("0123456789") == std::string::npos) {
    return context_.complain("No question is open, so that number answers nothing.");
  }
  const std::size_t before = waiting();
  const auto sent = model_.composer().send(prompt, {}, key_);
  if (!sent) return context_.complain(sent.error().sentence);
  if (waiting() > before) shownBy_.promptQueued(waiting());
}

std::size_t ConversationJob::waiting() const {
  const ChatThread* thread = model_.tree().thread(key_);
  return thread ? thread->queuedPrompts.size() : 0;
}

const RunRecord* ConversationJob::lastRun() const {
  const ChatThread* thread = model_.tree().thread(key_);
  return thread && thread->runs.size() > runsBefore_ ? &thread->runs.back() : nullptr;
}

void ConversationJob::tellEnd() {
  shownBy_.ended(lastRun());
  whenTold();
  const ChatThread* thread = model_.tree().thread(key_);
  if (thread && !lastRun() && thread->draftText) {
    context_.complain(fmt::format(
        "{}{}The prompt was not sent. It is kept as the draft of the task: vantrell show {}", name,
        name.empty() ? "" : ": ", shortID(thread->id)));
  }
  const std::size_t count = waiting();
  if (count == 0) return;
  context_.complain(
      fmt::format("{} in the queue. To send {}: vantrell queue run {}",
                  count == 1 ? "1 prompt waits" : fmt::format("{} prompts wait", count),
                  count == 1 ? "it" : "them", shortID(key_.threadID)));
}

int ConversationJob::status() const {
  const RunRecord* run = lastRun();
  // What the program answers by itself begins no run; one of a comparison must have one.
  if (!run) return name.empty() && !isRefused_ ? exitStatus::completed : exitStatus::failed;
  if (run->status == RunRecordStatus::completed) return exitStatus::completed;
  return run->status == RunRecordStatus::cancelled ? exitStatus::stopped : exitStatus::failed;
}

}  // namespace vantrell::shell
