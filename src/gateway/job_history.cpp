#include "gateway/job_history.h"

#include <algorithm>

#include "platform/text/text.h"

namespace vantrell {

namespace {
constexpr auto idOf = [](const auto& entry) -> const Uuid& { return entry.job->id; };
}  // namespace

JobHistory::JobHistory(std::vector<GatewayJob> jobs) {
  for (auto& each : jobs) entries_.push_back({std::make_shared<GatewayJob>(std::move(each))});
  prune();
}

/// The count of a shared pointer cannot tell whether another thread still reads the job.
JobHistory::Job JobHistory::handOut(const Entry& entry) {
  entry.isHandedOut = true;
  return entry.job;
}

std::vector<JobHistory::Job> JobHistory::all() const {
  std::vector<Job> jobs;
  jobs.reserve(entries_.size());
  for (const auto& each : entries_) jobs.push_back(handOut(each));
  return jobs;
}

JobHistory::Job JobHistory::find(const Uuid& id) const {
  const auto found = std::ranges::find(entries_, id, idOf);
  return found == entries_.end() ? nullptr : handOut(*found);
}

JobHistory::Job JobHistory::nextQueued() const {
  const auto found = std::ranges::find_if(
      entries_, [](const Entry& each) { return each.job->status == GatewayJobStatus::queued; });
  return found == entries_.end() ? nullptr : handOut(*found);
}

std::size_t JobHistory::unfinishedCount(const std::optional<Uuid>& siteKeyID) const {
  return static_cast<std::size_t>(std::ranges::count_if(entries_, [&](const Entry& each) {
    return !isFinished(each.job->status) && (!siteKeyID || each.job->siteKeyID == siteKeyID);
  }));
}

void JobHistory::add(GatewayJob job) {
  entries_.push_back({std::make_shared<GatewayJob>(std::move(job))});
  prune();
}

GatewayJob* JobHistory::change(const Uuid& id) {
  const auto found = std::ranges::find(entries_, id, idOf);
  if (found == entries_.end()) return nullptr;
  if (found->isHandedOut) *found = {std::make_shared<GatewayJob>(*found->job)};
  return found->job.get();
}

void JobHistory::removeUnfinishedOf(const Uuid& siteKeyID) {
  std::erase_if(entries_, [&](const Entry& each) {
    return each.job->siteKeyID == siteKeyID && !isFinished(each.job->status);
  });
}

void JobHistory::prune() {
  // The clock may have been set back between two jobs.
  std::ranges::stable_sort(entries_, {}, [](const Entry& each) { return each.job->createdAt; });
  std::size_t surplus = entries_.size() - std::min(entries_.size(), mostJobs);
  std::erase_if(entries_, [&](const Entry& each) {
    const bool goes = surplus > 0 && isFinished(each.job->status);
    if (goes) --surplus;
    return goes;
  });
}

void addEvent(GatewayJob& job, std::string type, std::string_view message, Date now) {
  if (job.events.size() >= JobHistory::mostEvents) job.events.erase(job.events.begin());
  job.events.push_back({Uuid::random(), now, std::move(type),
                        std::string(text::firstCharacters(message, JobHistory::longestMessage))});
}

void finish(GatewayJob& job, GatewayJobStatus status, std::string message, Date now) {
  job.status = status;
  job.finishedAt = now;
  job.pendingApproval.reset();
  addEvent(job, std::string(rawText(status)), message, now);
  if (status == GatewayJobStatus::failed) job.error = std::move(message);
}

}  // namespace vantrell
