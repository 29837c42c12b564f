// A conversation at work, as a session follows it. Its changes become calls of a RunObserver; while
// a stored session is played back it is silent, and reports the transcript after it whole. Main
// queue; the observer must outlive it.
#pragma once

#include <map>

#include "shell/terminal/run_observer.h"
#include "shell/terminal/session.h"

namespace vantrell::shell {

class ConversationJob final : public Job {
 public:
  /// `send` sends what it is about, unless that is under way already.
  ConversationJob(CommandContext& context, ThreadExecutionKey key, RunObserver& shownBy,
                  std::function<Result<>()> send);

  /// Called once, before its first new entry is shown: where it works is known then, and how many
  /// entries there were before.
  std::function<void(std::size_t earlierEntries)> beforeFirstEntry;
  /// Called when its end is shown.
  std::function<void()> whenTold = [] {};

  void begin() override;
  void changed(const ChangeBatch& batch) override;
  bool isAtRest() const override;
  bool isStopping() const override;
  void stop() override;
  void whenHooksAreDone(std::function<void()> done) override;
  Question question() const override;
  Result<> answer(const PermissionRequest& request, const PermissionOption* option,
                  Approvals::Answerer answerer) override;
  void typed(const std::string& line) override;
  void makeRoom() override { shownBy_.makeRoom(); }
  void setReceiving(bool receiving) override { model_.setReceiving(key_, receiving); }
  void endWork() override { model_.endWork(key_); }
  void tellEnd() override;
  int status() const override;

 private:
  const RunRecord* lastRun() const;
  std::size_t waiting() const;
  void reportTranscript(const ConversationChanges& changes, const ChatThread& thread);
  void reportEntry(const ChatEntry& entry);
  /// Of runs whose end has not been reported.
  void reportEnds(const std::vector<RunRecord>& runs);
  void reportRun(const RunRecord& run);

  CommandContext& context_;
  AppModel& model_;
  const ThreadExecutionKey key_;
  RunObserver& shownBy_;
  const std::function<Result<>()> send_;
  bool isRefused_ = false;  // what was sent
  const std::size_t runsBefore_;
  // What was reported:
  std::map<std::string, std::size_t, std::less<>> shownLengths_;  // bytes of text, by entry
  std::shared_ptr<const std::vector<PlanEntry>> plan_;
  std::size_t runsReported_;  // to their ends
  bool wasReplaying_ = false;
  bool wasStalled_ = false;
};

}  // namespace vantrell::shell
