#include "shell/terminal/change_feed.h"

namespace vantrell::shell {

ChangeFeed::ChangeFeed(AppModel& model, ThreadExecutionKey key, RunObserver& observer)
    : model_(model),
      key_(key),
      observer_(observer),
      observation_(model.changes.observe([this](const Change& change) { changed(change); })) {}

void ChangeFeed::changed(const Change& change) {
  if (change.kind == Change::Kind::saveFailed) {
    if (onSaveFailed) onSaveFailed(change.text);
    return;
  }
  if (change.kind == Change::Kind::noticeRaised) {
    if (onNotice) onNotice(change.text);
    return;
  }
  if (change.conversation != key_) return;
  const ChatThread* thread = model_.tree.thread(key_);
  if (!thread) return;
  switch (change.kind) {
    case Change::Kind::entryAdded:
    case Change::Kind::entryReplaced:
    case Change::Kind::textAdded:
    case Change::Kind::transcriptReplaced: return transcriptChanged(change);
    case Change::Kind::planReplaced:
      if (const auto* execution = model_.executions.find(key_)) {
        observer_.planReplaced(*execution->plan);
      }
      return;
    case Change::Kind::runChanged: {
      const auto run = std::find_if(thread->runs.rbegin(), thread->runs.rend(),
                                    [&](const RunRecord& each) { return each.id == change.runID; });
      if (run != thread->runs.rend()) runChanged(*run);
      return executionChanged();
    }
    case Change::Kind::executionPublished: return executionChanged();
    default: return;
  }
}

void ChangeFeed::runChanged(const RunRecord& run) {
  observer_.runChanged(run);
  const auto* execution = model_.executions.find(key_);
  const bool isStalled = execution && execution->stallWarningSent;
  const bool isNews = std::exchange(wasStalled_, isStalled) != isStalled;
  // A question, another client and the end of the turn break the silence too, and are told as such.
  if (isNews && (isStalled || run.status == RunRecordStatus::running)) {
    observer_.livenessChanged(run);
  }
}

void ChangeFeed::transcriptChanged(const Change& change) {
  const Transcript& entries = model_.tree.thread(key_)->entries;
  if (change.kind == Change::Kind::transcriptReplaced) return observer_.transcriptReplaced(entries);
  const ChatEntry* entry = entries.find(change.entryID);
  if (!entry) return;
  switch (change.kind) {
    case Change::Kind::entryAdded: return observer_.entryAdded(*entry);
    case Change::Kind::textAdded: return observer_.textAdded(*entry, change.text);
    default: return observer_.entryReplaced(*entry);
  }
}

void ChangeFeed::executionChanged() {
  const auto* execution = model_.executions.find(key_);
  const auto question = execution ? execution->permissionRequest : nullptr;
  if (question != question_) {
    question_ = question;
    if (onQuestion) onQuestion(question);
  }
  if (onProgress) onProgress();
}

}  // namespace vantrell::shell
