#include "engine/tasks/run_activity.h"

#include <algorithm>

namespace vantrell {

namespace {

bool isListed(const RunRecord& run, Date now) {
  switch (run.status) {
    case RunRecordStatus::starting:
    case RunRecordStatus::running:
    case RunRecordStatus::waitingApproval:
    case RunRecordStatus::failed:
    case RunRecordStatus::interrupted: return true;
    case RunRecordStatus::completed: return now - run.updatedAt < completedRunIsListedFor;
    case RunRecordStatus::cancelled: return false;
  }
  return false;
}

}  // namespace

std::vector<RunActivity> activities(const std::vector<Workspace>& workspaces, Date now) {
  struct Place {
    const Workspace* workspace;
    const ChatThread* thread;
    Date updatedAt;
  };
  // Places are sorted, not rows: a row holds copies of texts.
  std::vector<Place> places;
  for (const auto& workspace : workspaces) {
    for (const auto& thread : workspace.threads) {
      const RunRecord* run = thread.latestRun();
      if (run && isListed(*run, now)) places.push_back({&workspace, &thread, run->updatedAt});
    }
  }
  std::ranges::stable_sort(places, std::ranges::greater(), &Place::updatedAt);
  std::vector<RunActivity> rows;
  rows.reserve(places.size());
  for (const auto& [workspace, thread, updatedAt] : places) {
    rows.push_back(
        {workspace->id, workspace->name, thread->id, thread->title, *thread->latestRun()});
  }
  return rows;
}

}  // namespace vantrell
