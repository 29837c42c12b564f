// The jobs that callers of the gateway have given it. One runs at a time, in the project's own
// folder, with an agent client of its own; the others wait in the order in which they came. A job
// has no conversation, checkpoint, project context or hooks: its prompt goes to the agent as it
// came. Jobs that a process left at work have failed at the next start; those that waited still
// wait. Main queue.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/core/agent_session.h"
#include "engine/core/changes.h"
#include "engine/core/refusal.h"
#include "gateway/gateway_error.h"
#include "gateway/gateway_scope.h"
#include "gateway/gateway_store.h"
#include "gateway/job_history.h"
#include "gateway/site_keys.h"

namespace vantrell {

namespace topics {
/// A job came, changed or went.
inline constexpr ChangeTopic gatewayJobs{"gatewayJobs"};
}  // namespace topics

class GatewayJobs : public std::enable_shared_from_this<GatewayJobs>,
                    private AgentSession::Listener {
 public:
  struct Dependencies {
    MainQueue& main;
    Changes& changes;
    SiteKeys& keys;
    GatewayScope& scope;
    GatewayStore& store;
  };
  /// A job as it stood when it was asked for: what happens later does not change it.
  using Job = JobHistory::Job;

  explicit GatewayJobs(Dependencies dependencies);
  ~GatewayJobs() override;

  /// Reads what is stored and settles what an earlier process left at work. Nothing starts.
  void load();
  /// From now on jobs are started: for the process that serves. A command that only cancels one
  /// must not begin another, which would end with it.
  void begin();
  /// Starts the next job, unless one runs or the gateway is off. Called when the gateway is turned
  /// on; otherwise it follows by itself.
  void processNextJob();
  /// Ends the job at work, as failed, at the end of the process. No other starts.
  void endAllWork();

  // With a site key's id, another key's job counts as unknown; without one all are known, for the
  // user of this machine.

  /// Oldest first.
  std::vector<Job> jobs(const std::optional<Uuid>& siteKeyID = {}) const;
  /// Null where there is none.
  Job find(const Uuid& id, const std::optional<Uuid>& siteKeyID = {}) const;
  std::size_t unfinishedCount(const std::optional<Uuid>& siteKeyID = {}) const {
    return history_.unfinishedCount(siteKeyID);
  }

  /// The job that the same request has made before, by its idempotency key; refused where that key
  /// was another request's; nullopt for a new one.
  std::optional<GatewayResult<Job>> repeated(const GatewayJobRequest& request,
                                             const Uuid& siteKeyID) const;
  /// The job as it would be queued, or why this key may not give it: all checks except whether the
  /// provider is ready.
  GatewayResult<GatewayJob> admit(GatewayJobRequest request, const Uuid& siteKeyID) const;
  /// The new job, still queued. GatewayScope::prepare() comes before: a provider of which nothing
  /// is known yet counts as unavailable.
  GatewayResult<Job> create(const GatewayJobRequest& request, const Uuid& siteKeyID);
  GatewayResult<Job> cancel(const Uuid& id, const std::optional<Uuid>& siteKeyID = {});
  GatewayResult<Job> answerApproval(const Uuid& id, const std::string& optionID,
                                    const std::optional<Uuid>& siteKeyID = {});
  /// Removes the key with its unfinished jobs; those that are finished stay until they age out.
  Result<> revokeKey(const Uuid& siteKeyID);

  static constexpr std::size_t mostUnfinishedOfKey = 25;
  static constexpr std::size_t longestIdempotencyKey = 255;  // bytes
  static constexpr std::size_t longestPrompt = 200'000;      // bytes
  /// How long a client may take to start: one that hangs would hold up all jobs behind it.
  static constexpr std::chrono::seconds startLimit{60};
  /// What an agent says is written this often at most.
  static constexpr std::chrono::seconds saveInterval{1};

 private:
  void agentUpdated(const JsonObject& update) override;
  void agentAsked() override;
  void agentQuestionWithdrawn() override;
  void agentLogged(std::string_view) override {}
  void agentEnded(const std::string& text) override;

  enum class ClientEnd { stop, cancelAndStop };

  void startNext(AgentProvider prepared);
  void started(const std::optional<AgentSession::StartResult>& result);
  void answered(const std::optional<AgentSession::PromptResult>& result);
  void failActive(const AgentError& error);
  /// Ends the job at work with its client, and goes on with the next.
  void finishActive(GatewayJobStatus status, std::string message, ClientEnd end = ClientEnd::stop);
  void endClient(ClientEnd end);
  void append(GatewayJob& job, std::string_view text);
  /// The job at work, for a change; null where none is.
  GatewayJob* active() { return activeJobID_ ? history_.change(*activeJobID_) : nullptr; }
  void settingsChanged();

  void save();
  void saveSoon();

  const Dependencies core_;
  const std::shared_ptr<AgentSession> session_;
  JobHistory history_;
  std::optional<Uuid> activeJobID_;
  std::size_t outputLength_ = 0;  // of the job at work, in characters
  bool isPreparing_ = false;      // the next one's provider
  bool hasBegun_ = false;
  bool isEnding_ = false;
  Timer saveTimer_;
  Timer lossTimer_;  // of a client that went away and has not said why
  Changes::Observation settingsWatch_;
};

}  // namespace vantrell
