#include "gateway/gateway_jobs.h"

#include <fmt/format.h>

#include "platform/queues/weakly.h"
#include "platform/text/text.h"

namespace vantrell {

namespace {

using enum GatewayJobStatus;

constexpr std::string_view quitText =
    "vantrell quit while this job was running. Submit it again if it is still needed.";
/// Characters of a tool's title in an event, which some agents make of a whole command, so that the
/// status has a place after it.
constexpr std::size_t longestTitle = JobHistory::longestMessage - 100;
/// How long a client that went away has to say how its runtime ended.
constexpr std::chrono::seconds lossLimit{2};

std::unexpected<GatewayError> refuseUnknownJob() {
  return refuseRequest(404, "job_not_found", "Job not found.");
}

std::unexpected<GatewayError> refuseClosedApproval() {
  return refuseRequest(409, "approval_not_pending", "This job is not waiting for approval.");
}

/// An empty choice is none.
void trim(std::optional<std::string>& choice) {
  if (choice) choice = std::string(text::trimmed(*choice));
  if (choice && choice->empty()) choice.reset();
}

}  // namespace

GatewayJobs::GatewayJobs(Dependencies dependencies)
    : core_(dependencies), session_(std::make_shared<AgentSession>(core_.main)) {
  session_->setListener(this);
  settingsWatch_ = core_.changes.observe([this](const ChangeBatch& batch) {
    if (batch.has(topics::settings)) settingsChanged();
  });
}

GatewayJobs::~GatewayJobs() {
  session_->setListener(nullptr);
  session_->end();
}

void GatewayJobs::load() {
  history_ = JobHistory(core_.store.loadJobs());
  bool isChanged = false;
  for (const auto& job : history_.all()) {
    if (isFinished(job->status) || job->status == queued) continue;
    finish(*history_.change(job->id), failed, std::string(quitText), core_.main.now());
    isChanged = true;
  }
  if (isChanged) save();
  core_.changes.mark(topics::gatewayJobs);
}

// ---- the queue ----------------------------------------------------------------------------------

void GatewayJobs::begin() {
  hasBegun_ = true;
  processNextJob();
}

void GatewayJobs::processNextJob() {
  if (!hasBegun_ || isEnding_ || activeJobID_ || isPreparing_ ||
      !core_.keys.configuration().enabled)
    return;
  const auto next = history_.nextQueued();
  if (!next) return;
  isPreparing_ = true;
  const AgentProvider provider = next->provider;
  core_.scope.prepare({provider}, weakly(this, [provider](GatewayJobs& self) {
                        self.isPreparing_ = false;
                        self.startNext(provider);
                      }));
}

void GatewayJobs::startNext(AgentProvider prepared) {
  const auto job = history_.nextQueued();
  // Much may have happened during the preparation.
  if (isEnding_ || !job || job->provider != prepared || !core_.keys.configuration().enabled) {
    return processNextJob();
  }
  const SiteKey* key = core_.keys.find(job->siteKeyID);
  const auto client = key ? core_.scope.makeClient(*job, *key)
                          : std::unexpected(std::string("The site key of this job was revoked."));
  GatewayJob& changed = *history_.change(job->id);
  if (!client) {
    finish(changed, failed, client.error(), core_.main.now());
    save();
    return processNextJob();
  }
  activeJobID_ = job->id;
  outputLength_ = 0;
  changed.status = starting;
  changed.startedAt = core_.main.now();
  addEvent(changed, "starting", fmt::format("Starting {}.", shortLabel(job->provider)),
           core_.main.now());
  save();
  session_->start(
      *client, std::nullopt, startLimit,
      weakly(this, [](GatewayJobs& self, const auto& result) { self.started(result); }));
}

// The session hands out nothing of a client that it has ended, so what follows is about the job at
// work, or about none: a client may still speak while it is told to end.

void GatewayJobs::started(const std::optional<AgentSession::StartResult>& result) {
  if (!activeJobID_) return;
  GatewayJob& job = *active();
  if (!result) {
    return finishActive(
        failed, fmt::format("{} could not finish connecting in {} seconds. The prompt was not "
                            "sent. Check the provider sign-in in Settings, then try again.",
                            shortLabel(job.provider), startLimit.count()));
  }
  if (!*result) return failActive(result->error());
  job.sessionID = (*result)->sessionId;
  if (!job.pendingApproval) job.status = working;
  addEvent(job, "working", "Agent started.", core_.main.now());
  if ((*result)->notice) addEvent(job, "notice", *(*result)->notice, core_.main.now());
  std::string prompt = job.prompt;
  save();
  session_->prompt(std::move(prompt), weakly(this, [](GatewayJobs& self, const auto& answer) {
                     self.answered(answer);
                   }));
}

void GatewayJobs::answered(const std::optional<AgentSession::PromptResult>& result) {
  if (!activeJobID_) return;
  if (result && *result) return finishActive(completed, "Job completed.");
  failActive(result ? result->error()
                    : AgentError::disconnection("The model runtime disconnected."));
}

void GatewayJobs::failActive(const AgentError& error) {
  const std::string& description = error.localizedDescription();
  if (!error.isDisconnection()) return finishActive(failed, description);
  // How the runtime ended is told apart from this, and says more.
  lossTimer_ =
      core_.main.after(lossLimit, [this, description] { finishActive(failed, description); });
}

void GatewayJobs::agentEnded(const std::string& text) {
  if (activeJobID_) finishActive(failed, text);
}

void GatewayJobs::finishActive(GatewayJobStatus status, std::string message, ClientEnd end) {
  finish(*active(), status, std::move(message), core_.main.now());
  endClient(end);
  save();
  processNextJob();
}

void GatewayJobs::endClient(ClientEnd end) {
  lossTimer_.cancel();
  activeJobID_.reset();  // before the client hears of it: what it says to that changes no job
  if (end == ClientEnd::cancelAndStop) session_->cancel();
  session_->end();
}

/// As a turn, a job does not go on with a provider that the guard against metered billing bars now.
void GatewayJobs::settingsChanged() {
  const auto job = activeJobID_ ? history_.find(*activeJobID_) : nullptr;
  if (!job || !core_.scope.isBlocked(job->provider)) return;
  finishActive(failed, std::string(GatewayScope::meteredBlocked), ClientEnd::cancelAndStop);
}

void GatewayJobs::endAllWork() {
  isEnding_ = true;
  if (activeJobID_) finishActive(failed, std::string(quitText));
}

// ---- what the agent says ------------------------------------------------------------------------

void GatewayJobs::agentUpdated(const JsonObject& update) {
  if (!activeJobID_) return;
  GatewayJob& job = *active();
  const std::string kind = json::textOr(update, "sessionUpdate", "");
  if (kind == "agent_message_chunk") {
    const JsonObject* content = json::object(update, "content");
    if (const std::string* text = content ? json::text(*content, "text") : nullptr) {
      append(job, *text);
    }
  } else if (kind == "tool_call" || kind == "tool_call_update") {
    addEvent(job, "tool",
             fmt::format(
                 "{} · {}",
                 text::firstCharacters(json::textOr(update, "title", "Using a tool"), longestTitle),
                 json::textOr(update, "status", "working")),
             core_.main.now());
  } else {
    return;
  }
  saveSoon();
}

void GatewayJobs::append(GatewayJob& job, std::string_view text) {
  // A character may be made of any number of marks.
  if (job.output.size() >= 4 * JobHistory::mostOutput) return;
  const auto fitting = text::firstCharacters(text, JobHistory::mostOutput - outputLength_);
  outputLength_ += text::characterCount(fitting);
  job.output += fitting;
}

void GatewayJobs::agentAsked() {
  if (!activeJobID_) return;
  const PermissionRequest& question = *session_->question();
  GatewayApproval approval{question.id, question.title, question.detail, {}};
  for (const auto& [id, name, kind] : question.options) {
    approval.options.push_back({id, name, kind});
  }
  GatewayJob& job = *active();
  job.status = waitingForApproval;
  job.pendingApproval = std::move(approval);
  addEvent(job, "attention", question.title, core_.main.now());
  save();
}

void GatewayJobs::agentQuestionWithdrawn() {
  if (!activeJobID_) return;
  GatewayJob& job = *active();
  job.status = working;
  job.pendingApproval.reset();
  save();
}

// ---- operations ---------------------------------------------------------------------------------

std::vector<GatewayJobs::Job> GatewayJobs::jobs(const std::optional<Uuid>& siteKeyID) const {
  auto all = history_.all();
  if (siteKeyID) std::erase_if(all, [&](const Job& job) { return job->siteKeyID != *siteKeyID; });
  return all;
}

GatewayJobs::Job GatewayJobs::find(const Uuid& id, const std::optional<Uuid>& siteKeyID) const {
  auto job = history_.find(id);
  return job && (!siteKeyID || job->siteKeyID == *siteKeyID) ? job : nullptr;
}

std::optional<GatewayResult<GatewayJobs::Job>> GatewayJobs::repeated(
    const GatewayJobRequest& request, const Uuid& siteKeyID) const {
  if (!request.idempotencyKey) return std::nullopt;
  const auto own = jobs(siteKeyID);
  const auto found = std::ranges::find(own, request.idempotencyKey,
                                       [](const Job& job) { return job->idempotencyKey; });
  if (found == own.end()) return std::nullopt;
  const GatewayJob& job = **found;
  if (job.projectID == request.project && job.provider == request.provider &&
      job.prompt == text::trimmed(request.prompt)) {
    return *found;
  }
  return refuseRequest(409, "idempotency_conflict",
                       "Another job was created with this Idempotency-Key.");
}

GatewayResult<GatewayJob> GatewayJobs::admit(GatewayJobRequest request,
                                             const Uuid& siteKeyID) const {
  const SiteKey* key = core_.keys.find(siteKeyID);  // may have been revoked during a preparation
  if (!key) return refuseRequest(401, "invalid_site_key", std::string(SiteKeys::invalidKey));
  request.prompt = std::string(text::trimmed(request.prompt));
  trim(request.model);
  trim(request.effort);
  if (request.prompt.empty()) return refuseRequest(422, "empty_prompt", "Prompt cannot be empty.");
  if (request.prompt.size() > longestPrompt) {
    return refuseRequest(413, "prompt_too_large", "Prompt must be 200 KB or less.");
  }
  if (unfinishedCount(siteKeyID) >= mostUnfinishedOfKey) {
    return refuseRequest(
        429, "queue_full",
        fmt::format("This site key already has {} unfinished jobs.", mostUnfinishedOfKey));
  }
  return core_.scope.admit(request, *key);
}

GatewayResult<GatewayJobs::Job> GatewayJobs::create(const GatewayJobRequest& request,
                                                    const Uuid& siteKeyID) {
  if (auto before = repeated(request, siteKeyID)) return *std::move(before);
  auto job = admit(request, siteKeyID);
  if (!job) return std::unexpected(std::move(job.error()));
  if (auto ready = core_.scope.checkReady(*job); !ready) return std::unexpected(ready.error());
  const Uuid id = job->id = Uuid::random();
  job->siteKeyID = siteKeyID;
  job->idempotencyKey = request.idempotencyKey;
  job->createdAt = core_.main.now();
  addEvent(*job, "queued", fmt::format("Job queued on {}.", shortLabel(job->provider)),
           job->createdAt);
  history_.add(*std::move(job));
  auto made = history_.find(id);
  save();
  processNextJob();
  return made;
}

GatewayResult<GatewayJobs::Job> GatewayJobs::cancel(const Uuid& id,
                                                    const std::optional<Uuid>& siteKeyID) {
  const auto job = find(id, siteKeyID);
  if (!job) return refuseUnknownJob();
  if (isFinished(job->status)) {
    return refuseRequest(409, "job_finished", "The job has already finished.");
  }
  if (activeJobID_ == id) endClient(ClientEnd::cancelAndStop);
  finish(*history_.change(id), cancelled, "Job cancelled by the caller.", core_.main.now());
  auto ended = history_.find(id);  // the history may have no place for it
  save();
  processNextJob();
  return ended;
}

GatewayResult<GatewayJobs::Job> GatewayJobs::answerApproval(const Uuid& id,
                                                            const std::string& optionID,
                                                            const std::optional<Uuid>& siteKeyID) {
  const auto job = find(id, siteKeyID);
  if (!job) return refuseUnknownJob();
  if (activeJobID_ != id || !job->pendingApproval) return refuseClosedApproval();
  const GatewayApproval& approval = *job->pendingApproval;
  if (std::ranges::find(approval.options, optionID, &GatewayApprovalOption::id) ==
      approval.options.end()) {
    return refuseRequest(422, "invalid_approval_option",
                         "Choose one of the approval option IDs returned with the job.");
  }
  if (!session_->answer(approval.requestID, optionID)) return refuseClosedApproval();
  GatewayJob& changed = *active();
  changed.status = working;
  changed.pendingApproval.reset();
  addEvent(changed, "approval", "Approval response submitted.", core_.main.now());
  save();
  return history_.find(id);
}

Result<> GatewayJobs::revokeKey(const Uuid& siteKeyID) {
  const auto job = activeJobID_ ? history_.find(*activeJobID_) : nullptr;
  if (auto removed = core_.keys.remove(siteKeyID); !removed) return removed;
  history_.removeUnfinishedOf(siteKeyID);
  if (job && job->siteKeyID == siteKeyID) endClient(ClientEnd::cancelAndStop);
  save();
  processNextJob();
  return {};
}

// ---- saving -------------------------------------------------------------------------------------

void GatewayJobs::save() {
  saveTimer_.cancel();
  history_.prune();
  core_.store.save(history_.all());
  core_.changes.mark(topics::gatewayJobs);
}

void GatewayJobs::saveSoon() {
  core_.changes.mark(topics::gatewayJobs);
  if (!saveTimer_.isActive()) {
    saveTimer_ = core_.main.after(saveInterval, [this] { save(); });
  }
}

}  // namespace vantrell
