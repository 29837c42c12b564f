// A conversation at work, as a session follows it. Main queue.
#pragma once

#include "shell/terminal/change_feed.h"
#include "shell/terminal/session.h"

namespace vantrell::shell {

class ConversationJob final : public Job {
 public:
  /// `send` sends what it is about, unless that is under way already.
  ConversationJob(CommandContext& context, ThreadExecutionKey key, RunObserver& shownBy,
                  std::function<Result<>()> send);

  /// Called once, before its first new entry is shown: where it works is known then.
  std::function<void()> beforeFirstEntry;

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
  void tellEnd() override;
  int status() const override;

 private:
  const RunRecord* lastRun() const;
  std::size_t waiting() const;

  CommandContext& context_;
  AppModel& model_;
  const ThreadExecutionKey key_;
  RunObserver& shownBy_;
  const std::function<Result<>()> send_;
  bool isRefused_ = false;  // what was sent
  ChangeFeed feed_;
  const std::size_t runsBefore_;
};

}  // namespace vantrell::shell
