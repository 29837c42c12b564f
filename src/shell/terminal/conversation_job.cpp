#include "shell/terminal/conversation_job.h"

#include <fmt/format.h>

#include "engine/turns/session_status.h"
#include "platform/text/text.h"
#include "shell/terminal/task_words.h"

namespace vantrell::shell {

ConversationJob::ConversationJob(CommandContext& context, ThreadExecutionKey key,
                                 RunObserver& shownBy, std::function<void()> send,
                                 std::string itsName)
    : Job(shownBy, std::move(itsName)),
      context_(context),
      model_(context.model()),
      key_(key),
      shownBy_(shownBy),
      send_(std::move(send)),
      feed_(model_, key, shownBy),
      runsBefore_(model_.tree.thread(key)->runs.size()) {}

void ConversationJob::begin() {
  if (send_) send_();
}

void ConversationJob::changed(const Change& change) {
  if (change.conversation != key_) return;
  if (change.kind == Change::Kind::entryAdded && beforeFirstEntry) {
    std::exchange(beforeFirstEntry, nullptr)();
  }
  feed_.changed(change);
}

bool ConversationJob::isAtRest() const {
  const auto* execution = model_.executions.find(key_);
  const RunRecord* run = model_.tree.latestRun(key_);
  return !(execution && execution->connectionState.isBusy()) && !(run && isActive(run->status)) &&
         !model_.branches->isPreparing(key_);
}

bool ConversationJob::isStopping() const {
  const auto* execution = model_.executions.find(key_);
  return execution && execution->client && execution->unansweredPrompts > 0;
}

void ConversationJob::select() {
  if (model_.selection.key() != key_) {
    model_.operations.selectThread(key_.threadID, key_.workspaceID);
  }
}

void ConversationJob::stop() {
  select();
  model_.driver->stopWorking();
}

void ConversationJob::whenHooksAreDone(std::function<void()> done) {
  model_.hooks->whenDone(key_, std::move(done));
}

Job::Question ConversationJob::question() const {
  const auto* execution = model_.executions.find(key_);
  return execution ? execution->permissionRequest : nullptr;
}

void ConversationJob::answer(const PermissionOption* option, Approvals::Answerer answerer) {
  select();
  if (option) {
    model_.approvals.respondToPermission(option->id, answerer);
  } else {
    model_.approvals.rejectPermission();
  }
}

/// The user goes on talking while the agent works.
void ConversationJob::typed(const std::string& line) {
  const std::string prompt(text::trimmed(text::repaired(line)));
  if (prompt.empty() || model_.selection.key() != key_) return;
  if (prompt.find_first_not_of("0123456789") == std::string::npos) {
    return context_.complain("No question is open, so that number answers nothing.");
  }
  const std::size_t before = waiting();
  if (model_.branches->isPreparing(key_) && !SessionStatusQuery::matches(prompt)) {
    // Sent now, it would work in the project's folder until the worktree is there.
    model_.queue.enqueuePrompt(prompt, {}, key_);
  } else {
    model_.driver->send(prompt, {});
  }
  if (waiting() > before) shownBy_.promptQueued(waiting());
}

std::size_t ConversationJob::waiting() const {
  const ChatThread* thread = model_.tree.thread(key_);
  return thread ? thread->queuedPrompts.size() : 0;
}

const RunRecord* ConversationJob::lastRun() const {
  const ChatThread* thread = model_.tree.thread(key_);
  return thread && thread->runs.size() > runsBefore_ ? &thread->runs.back() : nullptr;
}

void ConversationJob::tellEnd() {
  shownBy_.ended(lastRun());
  const ChatThread* thread = model_.tree.thread(key_);
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
  if (!run) return name.empty() ? exitStatus::completed : exitStatus::failed;
  if (run->status == RunRecordStatus::completed) return exitStatus::completed;
  return run->status == RunRecordStatus::cancelled ? exitStatus::stopped : exitStatus::failed;
}

}  // namespace vantrell::shell
