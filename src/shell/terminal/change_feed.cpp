#include "shell/terminal/change_feed.h"

#include <utility>

#include "engine/core/execution_table.h"
#include "engine/core/workspace_tree.h"

namespace vantrell::shell {

ChangeFeed::ChangeFeed(const AppModel& model, ThreadExecutionKey key, RunObserver& observer)
    : model_(model),
      key_(key),
      observer_(observer),
      runsReported_(model.tree().thread(key)->runs.size()) {}

void ChangeFeed::changed(const ChangeBatch& batch) {
  const ConversationChanges* changes = batch.of(key_);
  const ChatThread* thread = changes ? model_.tree().thread(key_) : nullptr;
  if (!thread) return;
  const auto* execution = model_.executions().find(key_);
  const bool isReplaying = execution && execution->isReplaying;
  const bool hasReplayed = std::exchange(wasReplaying_, isReplaying) && !isReplaying;
  if (execution && std::exchange(plan_, execution->plan) != execution->plan &&
      !execution->plan->empty()) {
    observer_.planReplaced(*execution->plan);
  }
  if (hasReplayed || (changes->transcriptReset && !isReplaying)) {
    shownLengths_.clear();
    for (const auto& entry : thread->entries) shownLengths_[entry.id] = entry.text.size();
    observer_.transcriptReplaced(thread->entries);
  } else if (!isReplaying) {
    reportTranscript(*changes, *thread);
  }
  if (!changes->runs) return;
  reportEnds(thread->runs);
  if (runsReported_ < thread->runs.size()) reportRun(thread->runs[runsReported_]);
}

void ChangeFeed::reportTranscript(const ConversationChanges& changes, const ChatThread& thread) {
  const Transcript& entries = thread.entries;
  for (const auto& id : changes.changedEntries) {
    if (const ChatEntry* entry = entries.find(id)) reportEntry(*entry);
  }
  for (const auto& id : changes.appendedEntries) {
    const ChatEntry* entry = entries.find(id);
    if (!entry) continue;
    // A prompt of the queue follows the end of the run before it, which may be in the same batch.
    if (entry->kind == ChatEntryKind::user) reportEnds(thread.runs);
    shownLengths_[id] = entry->text.size();
    observer_.entryAdded(*entry);
  }
}

/// What an agent says only grows; anything else is shown as a whole.
void ChangeFeed::reportEntry(const ChatEntry& entry) {
  std::size_t& shown = shownLengths_[entry.id];
  const std::size_t before = std::exchange(shown, entry.text.size());
  const bool isSpoken =
      entry.kind == ChatEntryKind::assistant || entry.kind == ChatEntryKind::thought;
  if (isSpoken && entry.text.size() > before) {
    return observer_.textAdded(entry, std::string_view(entry.text).substr(before));
  }
  observer_.entryReplaced(entry);
}

void ChangeFeed::reportEnds(const std::vector<RunRecord>& runs) {
  while (runsReported_ < runs.size() && !isActive(runs[runsReported_].status)) {
    reportRun(runs[runsReported_++]);
  }
}

void ChangeFeed::reportRun(const RunRecord& run) {
  observer_.runChanged(run);
  const auto* execution = model_.executions().find(key_);
  const bool isStalled = execution && execution->stallWarningSent;
  const bool hasChanged = std::exchange(wasStalled_, isStalled) != isStalled;
  // A question, another client and the end of the turn break the silence too, and are told as such.
  if (hasChanged && (isStalled || run.status == RunRecordStatus::running)) {
    observer_.livenessChanged(run);
  }
}

}  // namespace vantrell::shell
