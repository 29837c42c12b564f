// A conversation at work on the paired host, as a session follows it. What differs between two
// snapshots becomes calls of a RunObserver, so that it is told once, whatever the connection does
// in between. Main queue; the observer must outlive it.
#pragma once

#include <map>
#include <optional>

#include "shell/terminal/paired_host.h"
#include "shell/terminal/run_observer.h"
#include "shell/terminal/session.h"

namespace vantrell::shell {

/// The ids as the host writes them.
struct RemoteTask {
  std::string workspaceID, threadID;
};
/// Null where the host has no such task any more.
const RemoteThread* threadIn(const RemoteSnapshot& snapshot, const RemoteTask& task);
const RemoteRunActivity* activityIn(const RemoteSnapshot& snapshot, const RemoteTask& task);
RemoteEnvelope commandFor(RemoteMessageType type, const RemoteTask& task);

class RemoteJob final : public Job {
 public:
  struct What {
    RemoteTask task;
    /// What begins it; unset: it is under way.
    std::optional<RemoteEnvelope> command;
    PairedHost::HasHappened hasHappened;
    std::size_t shownEntries = 0;  // of the transcript, which are not news
    /// A run that belongs to what was before.
    std::optional<std::string> earlierRun;
  };
  RemoteJob(CommandContext& context, std::shared_ptr<PairedHost> host, What what,
            RunObserver& shownBy);

  void begin() override;
  void changed(const ChangeBatch& batch) override;
  bool isAtRest() const override;
  bool isStopping() const override;
  void stop() override;
  Question question() const override { return question_; }
  Result<> answer(const PermissionRequest& request, const PermissionOption* option,
                  Approvals::Answerer answerer) override;
  void typed(const std::string& line) override;
  void makeRoom() override { shownBy_.makeRoom(); }
  void setReceiving(bool receiving) override;
  void endWork() override {}
  void tellEnd() override;
  int status() const override;

 private:
  void look();
  void lookAtEntries(const RemoteThread& thread);
  void lookAtRun(const RemoteSnapshot& snapshot);
  void lookAtQuestion(const RemoteSnapshot& snapshot);
  void reportRun(RunRecord run);
  void send(std::string_view text);
  void deliver(RemoteEnvelope command, PairedHost::HasHappened hasHappened = nullptr);
  bool isWorking() const;

  CommandContext& context_;
  const std::shared_ptr<PairedHost> host_;
  const What what_;
  RunObserver& shownBy_;
  std::map<std::string, RemoteChatEntry, std::less<>> shown_;  // as they were told, by id
  std::optional<RunRecord> run_;
  double runSeenAt_ = 0;  // by the host's clock, while it was at work
  Question question_;
  std::optional<std::int64_t> answered_;  // a question that the host may still show
  std::string asked_;                     // the run whose task was selected to see its question
  std::size_t waiting_ = 0;               // in the queue
  std::size_t looked_ = 0;                // number of the last snapshot
  int unconfirmed_ = 0;                   // commands
  bool hasNews_ = false;                  // an entry that was not there before
  bool isRefused_ = false;
  bool isReceiving_ = true;
  bool isStopped_ = false;
  /// It seemed to rest in an earlier snapshot, and the host was asked again.
  bool isRestConfirmed_ = false;
  std::size_t restAskedAt_ = 0;
};

/// A prompt for the task, and whether the host has it: an entry or a queued prompt that was not in
/// `before`.
RemoteJob::What promptFor(const RemoteSnapshot& before, const RemoteTask& task,
                          std::string_view text, const std::vector<ChatAttachment>& attachments);

}  // namespace vantrell::shell
