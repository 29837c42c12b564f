// Runs as a person reads them: in the activity list over all tasks, and in the history of one.
// Pure functions, any thread.
#pragma once

#include <span>

#include "engine/tasks/run_activity.h"
#include "views/task_rows.h"

namespace vantrell::views {

struct RunRow {
  Uuid id;
  TaskState state = TaskState::fresh;
  std::optional<AgentProvider> provider;
  std::string prompt;         // on one line
  std::string message;        // one line, may be empty
  std::string routingReason;  // why this provider ran, may be empty
  std::string begun;          // "5 min ago"
  std::string lasted;         // "3m 5s": until now while it is under way
  std::string lastSign;       // when it was last heard of: "12s ago"
};
RunRow runRow(const RunRecord& run, Date now);

struct ActivityRow {
  ThreadExecutionKey key;
  std::string title, project;
  RunRow run;
};
/// What is at work, waits, failed or has just ended, the last change first.
std::vector<ActivityRow> activityRows(std::span<const RunActivity> activities, Date now);
/// How many of them the user is to look at.
std::size_t attentionCount(std::span<const RunActivity> activities);

/// "just now", "5 min ago", "3 h ago", "4 days ago", beyond eight weeks the day: "2026-03-01"
/// (UTC).
std::string ago(Date then, Date now);
/// "2026-11-23 05:00 UTC".
std::string minuteOf(Date date);

}  // namespace vantrell::views
